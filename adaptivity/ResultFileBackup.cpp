// The project's result file P.GAR: its backup, its restoring and its removal.
#include "adaptivity/AdaptiveMeshData.h"

#include "host/win32/win32.h"

#include <string>

namespace {

constexpr DWORD c_nSharingViolation = 32;

// Deletes a file, retrying for as long as another process holds it (a sharing violation);
// any other failure ends the attempt. True when the file was deleted.
bool DeleteFileRetrying(const CString& fileName) {
    for (;;) {
        if (DeleteFileW(fileName.GetString()))
            return true;
        if (GetLastError() != c_nSharingViolation)
            return false;
        SwitchToThread();
    }
}

bool FileExists(const CString& fileName) {
    return GetFileAttributesW(fileName.GetString()) != INVALID_FILE_ATTRIBUTES;
}

CString ResultFileName(const CString& projectPath) {
    return projectPath + L".GAR";
}

constexpr bool IsSeparator(wchar_t c) {
    return c == L'\\' || c == L'/';
}

// The backup of a result file: "backup_" in front of its file name, in the same folder. The
// folder and the name are split by the host's (Windows) rules: "\" and "/" both separate, a
// drive "X:" is a folder of its own, and a root keeps its separator.
CString BackupFileName(const CString& resultFile) {
    const std::wstring& path = resultFile.Str();
    const std::size_t last = path.find_last_of(L"\\/");
    std::wstring folder;
    std::wstring name;
    if (last != std::wstring::npos) {
        name = path.substr(last + 1);
        std::size_t end = last;
        while (end > 0 && IsSeparator(path[end - 1]))
            --end; // "a\\\\m1.GAR": the folder is "a"
        const bool root = end == 0 || (end == 2 && path[1] == L':');
        folder = root ? path.substr(0, last + 1) : path.substr(0, end);
    } else if (path.size() >= 2 && path[1] == L':') {
        folder = path.substr(0, 2);
        name = path.substr(2);
    } else {
        name = path;
    }
    if (!folder.empty() && folder.back() != L'\\' && folder.back() != L'/' && folder.back() != L':')
        folder += L'\\';
    return CString(folder + L"backup_" + name);
}

} // namespace

bool CAdaptiveMeshData::CreateGARFileBackup(const CString& projectPath, CString& backupPath) {
    backupPath.Empty();
    const CString resultFile = ResultFileName(projectPath);
    const CString backupFile = BackupFileName(resultFile);
    DeleteFileRetrying(backupFile);
    if (!FileExists(resultFile))
        return false;
    if (!CopyFileW(resultFile.GetString(), backupFile.GetString(), FALSE))
        return false;
    backupPath = backupFile;
    return true;
}

bool CAdaptiveMeshData::RestoreGARFileFromBackup(const CString& projectPath) {
    const CString resultFile = ResultFileName(projectPath);
    const CString backupFile = BackupFileName(resultFile);
    // The result file goes first, backup or not: a restore never leaves the results of the
    // failed run in place.
    DeleteFileRetrying(resultFile);
    if (!FileExists(backupFile))
        return false;
    const bool copied = CopyFileW(backupFile.GetString(), resultFile.GetString(), FALSE) != FALSE;
    DeleteFileRetrying(backupFile);
    return copied;
}

void CAdaptiveMeshData::DeleteResultFiles(const CString& projectPath) {
    DeleteFileRetrying(ResultFileName(projectPath));
}
