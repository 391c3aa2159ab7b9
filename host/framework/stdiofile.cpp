#include "host/framework/stdiofile.h"

#include "host/win32/files.h"
#include "host/win32/text.h"

#include <cerrno>
#include <string>

namespace {
int causeOf(DWORD win32Error) {
    switch (win32Error) {
    case ERROR_FILE_NOT_FOUND:
        return CFileException::fileNotFound;
    case ERROR_PATH_NOT_FOUND:
        return CFileException::badPath;
    case ERROR_ACCESS_DENIED:
        return CFileException::accessDenied;
    case ERROR_SHARING_VIOLATION:
        return CFileException::sharingViolation;
    default:
        return CFileException::genericException;
    }
}
} // namespace

CStdioFile::CStdioFile(LPCTSTR fileName, UINT openFlags) {
    CFileException error;
    if (!Open(fileName, openFlags, &error))
        throw error;
}

CStdioFile::~CStdioFile() {
    Close();
}

BOOL CStdioFile::Open(LPCTSTR fileName, UINT openFlags, CFileException* error) {
    Close();
    if (fileName == nullptr) {
        if (error != nullptr)
            *error = CFileException(CFileException::badPath, ERROR_INVALID_PARAMETER, "");
        return FALSE;
    }
    auto path = host::win32::ToNativePath(fileName);
    m_name = path.string();

    // Line ends are handled by ReadString, so the C stream is always binary.
    const bool write = (openFlags & (modeWrite | modeReadWrite)) != 0;
    const bool both = (openFlags & modeReadWrite) != 0;
    const char* mode = "rb";
    if (write) {
        if ((openFlags & modeCreate) != 0 && (openFlags & modeNoTruncate) == 0) {
            mode = both ? "w+b" : "wb";
        } else if ((openFlags & modeCreate) != 0) {
            std::error_code ec;
            mode = std::filesystem::exists(path, ec) ? "r+b" : "w+b";
        } else {
            mode = "r+b";
        }
    }
    m_file = std::fopen(path.c_str(), mode);
    if (m_file == nullptr) {
        DWORD code = host::win32::Win32ErrorFromErrno(errno, path);
        SetLastError(code);
        if (error != nullptr)
            *error = CFileException(causeOf(code), static_cast<long>(code), m_name);
        return FALSE;
    }
    return TRUE;
}

void CStdioFile::Close() {
    if (m_file != nullptr) {
        std::fclose(m_file);
        m_file = nullptr;
    }
}

BOOL CStdioFile::ReadString(CString& line) {
    line.Empty();
    if (m_file == nullptr)
        return FALSE;
    std::string bytes;
    bool any = false;
    int c;
    while ((c = std::fgetc(m_file)) != EOF) {
        any = true;
        if (c == '\n')
            break;
        bytes.push_back(static_cast<char>(c));
    }
    if (std::ferror(m_file))
        throw CFileException(CFileException::genericException, ERROR_GEN_FAILURE, m_name);
    if (!any)
        return FALSE;
    if (!bytes.empty() && bytes.back() == '\r')
        bytes.pop_back();
    line = CString(host::win32::Utf8ToWide(bytes));
    return TRUE;
}

void CStdioFile::WriteString(LPCTSTR text) {
    if (text == nullptr)
        AfxThrowInvalidArgException();
    if (m_file == nullptr)
        throw CFileException(CFileException::genericException, ERROR_INVALID_PARAMETER, m_name);
    std::string bytes = host::win32::WideToUtf8(text);
    if (std::fwrite(bytes.data(), 1, bytes.size(), m_file) != bytes.size())
        throw CFileException(CFileException::genericException, ERROR_GEN_FAILURE, m_name);
}
