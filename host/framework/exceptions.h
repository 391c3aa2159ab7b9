#pragma once
// The framework's exceptions. They are thrown by value (the host framework throws pointers
// that the catcher deletes; a value needs no such care) and derive from std::exception, so a
// plain catch of std::exception or catch (...) sees them.
#include "host/win32/types.h"

#include <exception>
#include <string>

class CException : public std::exception {
public:
    const char* what() const noexcept override { return "framework exception"; }
};

// Thrown by AfxThrowInvalidArgException: an argument a service cannot accept (a null output
// array, an index outside a string).
class CInvalidArgException : public CException {
public:
    const char* what() const noexcept override { return "invalid argument"; }
};

// A file could not be opened, read or written. m_lOsError is the Win32 error code.
class CFileException : public CException {
public:
    enum {
        none = 0,
        genericException = 1,
        fileNotFound = 2,
        badPath = 3,
        accessDenied = 5,
        sharingViolation = 7,
        endOfFile = 14
    };

    CFileException() = default;
    CFileException(int cause, long osError, std::string fileName)
        : m_cause(cause), m_lOsError(osError), m_strFileName(std::move(fileName)),
          m_message("cannot access file '" + m_strFileName + "' (Win32 error " +
                    std::to_string(osError) + ")") {}
    const char* what() const noexcept override {
        return m_message.empty() ? "file exception" : m_message.c_str();
    }

    int m_cause = none;
    long m_lOsError = 0;
    std::string m_strFileName; // UTF-8

private:
    std::string m_message;
};

// Throws CInvalidArgException.
[[noreturn]] void AfxThrowInvalidArgException();
