#pragma once
// File services with Windows semantics: BOOL results, and the reason of a failure kept per
// thread for GetLastError as a Win32 error code.
//
// Host paths may use "\" or "/" as separators (see ToNativePath).
//
// Linux never refuses to delete a file that another process holds open, so the sharing
// violation (error 32) that Windows reports does not happen by itself here. Tests make it
// happen through the fault hook below, to drive code that retries while a file is in use.
#include "host/win32/types.h"

#include <filesystem>
#include <functional>
#include <utility>

// Win32 error codes the file services report.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;

inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

// Deletes a file. Fails with 2 (no such file), 3 (no such folder), 5 (a folder, or no right).
BOOL DeleteFileW(LPCWSTR lpFileName);

// Copies a file, replacing an existing target unless bFailIfExists (then error 80).
BOOL CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName, BOOL bFailIfExists);

// FILE_ATTRIBUTE_DIRECTORY for a folder, FILE_ATTRIBUTE_NORMAL (or READONLY) for a file;
// INVALID_FILE_ATTRIBUTES with error 2 or 3 when nothing is there.
DWORD GetFileAttributesW(LPCWSTR lpFileName);

// The error code of the calling thread's last failed service call.
DWORD GetLastError();
void SetLastError(DWORD dwErrCode);

// Yields the processor; TRUE when another thread was ready to run (always TRUE here, as Linux
// does not say).
BOOL SwitchToThread();

namespace host::win32 {

enum class FileOperation { Delete, Copy, GetAttributes };

// A test seam: called before every file service with the operation and its (first) path.
// It returns ERROR_SUCCESS to let the service run, or a Win32 error code with which the
// service fails at once, untouched files and all.
using FileFaultHook = std::function<DWORD(FileOperation, const std::filesystem::path&)>;

// Installs a hook for the whole process (an empty one removes it); returns the previous one.
FileFaultHook SetFileFaultHook(FileFaultHook hook);

// A test seam: called by SwitchToThread after it has yielded (for example to count the
// retries of a loop, or to let a simulated sharing violation end).
using SwitchToThreadHook = std::function<void()>;
SwitchToThreadHook SetSwitchToThreadHook(SwitchToThreadHook hook);

// Installs a fault hook for the lifetime of the object and puts the previous one back.
class ScopedFileFaultHook {
public:
    explicit ScopedFileFaultHook(FileFaultHook hook)
        : m_previous(SetFileFaultHook(std::move(hook))) {}
    ~ScopedFileFaultHook() { SetFileFaultHook(std::move(m_previous)); }
    ScopedFileFaultHook(const ScopedFileFaultHook&) = delete;
    ScopedFileFaultHook& operator=(const ScopedFileFaultHook&) = delete;

private:
    FileFaultHook m_previous;
};

// The Win32 code for an errno value of a failed file call on path (ENOENT gives 3 instead of 2
// when the folder of the path is missing).
DWORD Win32ErrorFromErrno(int error, const std::filesystem::path& path);

// A name beside target for writing it aside before a rename over it: target + ".tmp-<process>-
// <count>", so that two processes (or two writers of one process) never share one.
std::filesystem::path TemporaryPathBeside(const std::filesystem::path& target);

} // namespace host::win32
