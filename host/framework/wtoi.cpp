#include "host/framework/wtoi.h"

#include <cerrno>
#include <climits>
#include <cwchar>

int _wtoi(const wchar_t* text) {
    if (text == nullptr)
        return 0;
    // wcstoll sees the same blanks, sign and digits as the runtime's _wtoi; the clamp to int
    // is the runtime's overflow answer.
    long long value = std::wcstoll(text, nullptr, 10);
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}

double _wtof(const wchar_t* text) {
    if (text == nullptr)
        return 0.0;
    return std::wcstod(text, nullptr);
}
