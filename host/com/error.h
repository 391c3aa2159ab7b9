#pragma once
// _com_error: the exception of the COM support library, carrying a failing HRESULT.
//
// As in the host's library it is a class of its own, not derived from std::exception; code
// that must not let it pass catches it by name or with catch (...).
#include "host/com/types.h"

#include <string>

class _com_error {
public:
    explicit _com_error(HRESULT hr) noexcept : m_hresult(hr) {}

    HRESULT Error() const noexcept { return m_hresult; }
    // The dispatch error number for codes of the dispatch range (0x80040200 to 0x8004FFFF),
    // else 0.
    WORD WCode() const noexcept;
    // A short English text for the code, or "Unknown error 0x8XXXXXXX".
    const wchar_t* ErrorMessage() const;

private:
    HRESULT m_hresult;
    mutable std::wstring m_message;
};

// Throws _com_error(hr). The support library raises every failure through this routine.
[[noreturn]] void _com_issue_error(HRESULT hr);

namespace host::com {
// The text that _com_error::ErrorMessage gives for hr.
std::wstring ErrorMessage(HRESULT hr);
} // namespace host::com
