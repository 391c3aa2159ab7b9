#pragma once
// Console services: the standard handles and the text attribute (colour) of a console.
//
// On this platform SetConsoleTextAttribute emits the ANSI colour sequence for the Windows
// attribute on the stream behind the handle, and only when that stream is a terminal, so that
// redirected output never holds escape codes.
#include "host/win32/types.h"

#include <optional>

inline constexpr DWORD STD_INPUT_HANDLE = static_cast<DWORD>(-10);
inline constexpr DWORD STD_OUTPUT_HANDLE = static_cast<DWORD>(-11);
inline constexpr DWORD STD_ERROR_HANDLE = static_cast<DWORD>(-12);

// Windows console attribute bits.
inline constexpr WORD FOREGROUND_BLUE = 0x0001;
inline constexpr WORD FOREGROUND_GREEN = 0x0002;
inline constexpr WORD FOREGROUND_RED = 0x0004;
inline constexpr WORD FOREGROUND_INTENSITY = 0x0008;

// A pseudo handle for stdin, stdout or stderr; INVALID_HANDLE_VALUE for any other request.
HANDLE GetStdHandle(DWORD nStdHandle);

// FALSE for a handle that is not one of the standard output handles.
BOOL SetConsoleTextAttribute(HANDLE hConsoleOutput, WORD wAttributes);

namespace host::win32 {
// The ANSI sequence for a console attribute: attribute 7 (the normal colour) resets.
const char* AnsiSequenceForAttribute(WORD attributes);

// Tests force the "is a terminal" answer with true or false; std::nullopt asks isatty() again.
void SetConsoleTerminalOverride(std::optional<bool> isTerminal);
} // namespace host::win32
