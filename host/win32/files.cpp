#include "host/win32/files.h"

#include "host/win32/text.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <sched.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {
thread_local DWORD t_lastError = ERROR_SUCCESS;

std::mutex g_hookMutex;
host::win32::FileFaultHook g_faultHook;
host::win32::SwitchToThreadHook g_switchHook;

// The error the test hook forces for this call, or ERROR_SUCCESS.
DWORD injectedFault(host::win32::FileOperation op, const std::filesystem::path& path) {
    host::win32::FileFaultHook hook;
    {
        std::lock_guard lock(g_hookMutex);
        hook = g_faultHook;
    }
    return hook ? hook(op, path) : ERROR_SUCCESS;
}

BOOL fail(DWORD code) {
    t_lastError = code;
    return FALSE;
}
} // namespace

namespace host::win32 {

DWORD Win32ErrorFromErrno(int error, const std::filesystem::path& path) {
    switch (error) {
    case ENOENT: {
        std::error_code ec;
        auto parent = path.parent_path();
        if (!parent.empty() && !std::filesystem::is_directory(parent, ec))
            return ERROR_PATH_NOT_FOUND;
        return ERROR_FILE_NOT_FOUND;
    }
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS:
        return ERROR_ACCESS_DENIED;
    case EBUSY:
    case ETXTBSY:
        return ERROR_SHARING_VIOLATION;
    case EEXIST:
        return ERROR_FILE_EXISTS;
    case ENOSPC:
        return ERROR_DISK_FULL;
    case EINVAL:
    case ENAMETOOLONG:
        return ERROR_INVALID_PARAMETER;
    default:
        return ERROR_GEN_FAILURE;
    }
}

std::filesystem::path TemporaryPathBeside(const std::filesystem::path& target) {
    static std::atomic<unsigned long> count{0};
    std::filesystem::path temporary = target;
    temporary += ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(++count);
    return temporary;
}

FileFaultHook SetFileFaultHook(FileFaultHook hook) {
    std::lock_guard lock(g_hookMutex);
    std::swap(g_faultHook, hook);
    return hook;
}

SwitchToThreadHook SetSwitchToThreadHook(SwitchToThreadHook hook) {
    std::lock_guard lock(g_hookMutex);
    std::swap(g_switchHook, hook);
    return hook;
}

} // namespace host::win32

BOOL DeleteFileW(LPCWSTR lpFileName) {
    if (lpFileName == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    auto path = host::win32::ToNativePath(lpFileName);
    if (DWORD forced = injectedFault(host::win32::FileOperation::Delete, path))
        return fail(forced);
    struct stat st {};
    // Windows refuses to delete a folder with "access denied"; unlink() would say EISDIR or EPERM.
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        return fail(ERROR_ACCESS_DENIED);
    if (::unlink(path.c_str()) != 0)
        return fail(host::win32::Win32ErrorFromErrno(errno, path));
    return TRUE;
}

BOOL CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName, BOOL bFailIfExists) {
    if (lpExistingFileName == nullptr || lpNewFileName == nullptr)
        return fail(ERROR_INVALID_PARAMETER);
    auto from = host::win32::ToNativePath(lpExistingFileName);
    auto to = host::win32::ToNativePath(lpNewFileName);
    if (DWORD forced = injectedFault(host::win32::FileOperation::Copy, from))
        return fail(forced);
    struct stat st {};
    if (::stat(from.c_str(), &st) != 0)
        return fail(host::win32::Win32ErrorFromErrno(errno, from));
    if (S_ISDIR(st.st_mode))
        return fail(ERROR_ACCESS_DENIED);
    struct stat target {};
    if (::stat(to.c_str(), &target) == 0) {
        if (bFailIfExists)
            return fail(ERROR_FILE_EXISTS);
        if (S_ISDIR(target.st_mode))
            return fail(ERROR_ACCESS_DENIED);
    }
    std::error_code ec;
    auto options = bFailIfExists ? std::filesystem::copy_options::none
                                 : std::filesystem::copy_options::overwrite_existing;
    if (!std::filesystem::copy_file(from, to, options, ec)) {
        int error =
            ec.category() == std::generic_category() || ec.category() == std::system_category()
                ? ec.value()
                : EIO;
        // A missing target folder shows as ENOENT of the target, not of the source.
        return fail(host::win32::Win32ErrorFromErrno(error, to));
    }
    return TRUE;
}

DWORD GetFileAttributesW(LPCWSTR lpFileName) {
    if (lpFileName == nullptr) {
        t_lastError = ERROR_INVALID_PARAMETER;
        return INVALID_FILE_ATTRIBUTES;
    }
    auto path = host::win32::ToNativePath(lpFileName);
    if (DWORD forced = injectedFault(host::win32::FileOperation::GetAttributes, path)) {
        t_lastError = forced;
        return INVALID_FILE_ATTRIBUTES;
    }
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        t_lastError = host::win32::Win32ErrorFromErrno(errno, path);
        return INVALID_FILE_ATTRIBUTES;
    }
    if (S_ISDIR(st.st_mode))
        return FILE_ATTRIBUTE_DIRECTORY;
    if (::access(path.c_str(), W_OK) != 0)
        return FILE_ATTRIBUTE_READONLY;
    return FILE_ATTRIBUTE_NORMAL;
}

DWORD GetLastError() {
    return t_lastError;
}

void SetLastError(DWORD dwErrCode) {
    t_lastError = dwErrCode;
}

BOOL SwitchToThread() {
    ::sched_yield();
    host::win32::SwitchToThreadHook hook;
    {
        std::lock_guard lock(g_hookMutex);
        hook = g_switchHook;
    }
    if (hook)
        hook();
    return TRUE;
}
