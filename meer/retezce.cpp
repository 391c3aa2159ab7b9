#include "meer/retezce.h"

#include "meer/arrays.h"
#include "meer/obecne.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace meerspace {
namespace {
constexpr const char* kSource = "retezce";

bool atLineEnd(char c) { return c == '\n' || c == '\r' || c == '\0'; }
} // namespace

bool isTokenChar(int c) {
    return c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\0' && c != 0xFF &&
           c != static_cast<char>(0xFF) && c != EOF;
}
bool isLineChar(int c) {
    return c != '\n' && c != '\r' && c != '\0' && c != 0xFF && c != static_cast<char>(0xFF) &&
           c != EOF;
}
bool isBlank(int c) { return c == ' ' || c == '\t'; }
bool isDigit(int c) { return c >= '0' && c <= '9'; }

bool skipBlanks(char** cursor) {
    while (isBlank(**cursor))
        ++*cursor;
    return true;
}

bool skipTokens(char** cursor, int n) {
    for (int i = 0; i < n; ++i) {
        skipBlanks(cursor);
        if (atLineEnd(**cursor))
            return false;
        while (isTokenChar(**cursor))
            ++*cursor;
    }
    return true;
}

bool skipNumber(char** cursor) {
    skipBlanks(cursor);
    if (atLineEnd(**cursor))
        return false;
    char c = **cursor;
    if (c == '+' || c == '-' || isDigit(c)) {
        ++*cursor;
        while (isDigit(**cursor))
            ++*cursor;
    }
    return true;
}

bool scanInt(char** cursor, int* i) {
    std::sscanf(*cursor, "%d", i);
    return skipNumber(cursor);
}

bool scanLong(char** cursor, std::int32_t* l) {
    long value = 0;
    if (std::sscanf(*cursor, "%ld", &value) == 1)
        *l = static_cast<std::int32_t>(value);
    return skipNumber(cursor);
}

bool scanDouble(char** cursor, double* x) {
    std::sscanf(*cursor, "%lf", x);
    return skipTokens(cursor, 1);
}

} // namespace meerspace
