#include "host/win32/console.h"

#include <cstdint>
#include <cstdio>
#include <unistd.h>

namespace {
std::optional<bool> g_terminalOverride;

HANDLE pseudoHandle(int fd) {
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(fd + 1));
}

// The C stream and file descriptor behind a pseudo handle, or null.
FILE* streamOf(HANDLE h, int& fd) {
    auto v = reinterpret_cast<std::intptr_t>(h);
    if (v == STDOUT_FILENO + 1) {
        fd = STDOUT_FILENO;
        return stdout;
    }
    if (v == STDERR_FILENO + 1) {
        fd = STDERR_FILENO;
        return stderr;
    }
    return nullptr;
}
} // namespace

HANDLE GetStdHandle(DWORD nStdHandle) {
    switch (nStdHandle) {
    case STD_INPUT_HANDLE:
        return pseudoHandle(STDIN_FILENO);
    case STD_OUTPUT_HANDLE:
        return pseudoHandle(STDOUT_FILENO);
    case STD_ERROR_HANDLE:
        return pseudoHandle(STDERR_FILENO);
    default:
        return INVALID_HANDLE_VALUE;
    }
}

BOOL SetConsoleTextAttribute(HANDLE hConsoleOutput, WORD wAttributes) {
    int fd = -1;
    FILE* stream = streamOf(hConsoleOutput, fd);
    if (stream == nullptr)
        return FALSE;
    bool terminal = g_terminalOverride ? *g_terminalOverride : isatty(fd) == 1;
    if (terminal) {
        std::fputs(host::win32::AnsiSequenceForAttribute(wAttributes), stream);
        std::fflush(stream);
    }
    return TRUE;
}

namespace host::win32 {
const char* AnsiSequenceForAttribute(WORD attributes) {
    // Windows orders the colour bits blue, green, red; ANSI orders them red, green, blue.
    static const char* const normal[8] = {"\033[0;30m", "\033[0;34m", "\033[0;32m", "\033[0;36m",
                                          "\033[0;31m", "\033[0;35m", "\033[0;33m", "\033[0m"};
    static const char* const bright[8] = {"\033[1;30m", "\033[1;34m", "\033[1;32m", "\033[1;36m",
                                          "\033[1;31m", "\033[1;35m", "\033[1;33m", "\033[1;37m"};
    unsigned colour = attributes & 0x7u;
    return (attributes & FOREGROUND_INTENSITY) ? bright[colour] : normal[colour];
}

void SetConsoleTerminalOverride(std::optional<bool> isTerminal) {
    g_terminalOverride = isTerminal;
}
} // namespace host::win32
