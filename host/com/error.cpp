#include "host/com/error.h"

#include <cwchar>

namespace {

struct KnownCode {
    HRESULT hr;
    const wchar_t* text;
};

constexpr KnownCode kKnownCodes[] = {
    {S_OK, L"The operation completed successfully."},
    {S_FALSE, L"The operation completed with a partial result."},
    {E_NOTIMPL, L"Not implemented."},
    {E_NOINTERFACE, L"No such interface supported."},
    {E_POINTER, L"Invalid pointer."},
    {E_ABORT, L"Operation aborted."},
    {E_FAIL, L"Unspecified error."},
    {E_UNEXPECTED, L"Catastrophic failure."},
    {E_ACCESSDENIED, L"Access is denied."},
    {E_HANDLE, L"The handle is invalid."},
    {E_OUTOFMEMORY, L"Not enough memory resources are available to complete this operation."},
    {E_INVALIDARG, L"The parameter is incorrect."},
    {DISP_E_TYPEMISMATCH, L"Type mismatch."},
    {DISP_E_BADVARTYPE, L"Bad variable type."},
    {DISP_E_OVERFLOW, L"Out of present range."},
    {STG_E_FILENOTFOUND, L"The file could not be found."},
    {STG_E_PATHNOTFOUND, L"The path could not be found."},
    {STG_E_ACCESSDENIED, L"Access denied."},
    {STG_E_WRITEFAULT, L"A disk error occurred during a write operation."},
    {STG_E_READFAULT, L"A disk error occurred during a read operation."},
    {STG_E_MEDIUMFULL, L"There is insufficient disk space to complete the operation."},
    {STG_E_INVALIDHEADER, L"The file is not of the expected format (invalid header)."},
    {STG_E_OLDFORMAT, L"The file was written in a format version this program cannot read."},
    {STG_E_DOCFILECORRUPT, L"The file is corrupt."},
    {HRESULT_FROM_WIN32(38), L"Reached the end of the file."},
};

} // namespace

WORD _com_error::WCode() const noexcept {
    const auto bits = static_cast<std::uint32_t>(m_hresult);
    if (bits >= 0x80040200u && bits <= 0x8004FFFFu)
        return static_cast<WORD>(bits - 0x80040200u);
    return 0;
}

const wchar_t* _com_error::ErrorMessage() const {
    if (m_message.empty())
        m_message = host::com::ErrorMessage(m_hresult);
    return m_message.c_str();
}

void _com_issue_error(HRESULT hr) {
    throw _com_error(hr);
}

namespace host::com {

std::wstring ErrorMessage(HRESULT hr) {
    for (const KnownCode& known : kKnownCodes)
        if (known.hr == hr)
            return known.text;
    wchar_t buffer[40];
    std::swprintf(buffer, sizeof buffer / sizeof buffer[0], L"Unknown error 0x%08X",
                  static_cast<unsigned>(hr));
    return buffer;
}

} // namespace host::com
