#pragma once
// CStdioFile: the framework's buffered text file, in text mode.
//
// Reading returns each line without its line end; "\n" and "\r\n" both end a line, and the
// last line needs no line end. The file's bytes are read as UTF-8 (bytes that are not UTF-8
// are taken as Latin-1). Writing writes UTF-8 and "\n" line ends.
#include "host/framework/cstring.h"
#include "host/framework/exceptions.h"
#include "host/win32/types.h"

#include <cstdio>

class CFile {
public:
    enum OpenFlags : UINT {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000,
    };
};

class CStdioFile : public CFile {
public:
    CStdioFile() = default;
    // Opens the file or throws CFileException.
    CStdioFile(LPCTSTR fileName, UINT openFlags);
    ~CStdioFile();
    CStdioFile(const CStdioFile&) = delete;
    CStdioFile& operator=(const CStdioFile&) = delete;

    // FALSE when the file cannot be opened; then *error (if given) tells why. Sharing flags
    // are accepted and have no effect here.
    BOOL Open(LPCTSTR fileName, UINT openFlags, CFileException* error = nullptr);
    void Close();
    bool IsOpen() const { return m_file != nullptr; }

    // The next line without its line end; FALSE at the end of the file (line left empty).
    BOOL ReadString(CString& line);
    // Writes the text as it stands ("\n" where the caller puts it); throws CFileException
    // when the write fails.
    void WriteString(LPCTSTR text);

private:
    std::FILE* m_file = nullptr;
    std::string m_name; // UTF-8, for messages
};
