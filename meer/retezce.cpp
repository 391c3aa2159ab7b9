#include "meer/retezce.h"

#include "meer/arrays.h"
#include "meer/obecne.h"

#include <cctype>
#include <cstring>
#include <string>

namespace meerspace {
namespace {

constexpr const char* kSource = "retezce";

// What the expectations on a stream report as the text found: the C runtime prints a null
// string argument of "%s" as "(null)", and that is what the message has always shown.
constexpr const char* kNullText = "(null)";

// The next character of a stream; the byte 0xFF counts as end of file.
int next(std::FILE* f) {
    int c = std::getc(f);
    return c == 0xFF ? EOF : c;
}

void putBack(int c, std::FILE* f) {
    if (c != EOF)
        std::ungetc(c, f);
}

bool atLineEnd(char c) {
    return c == '\n' || c == '\r' || c == '\0';
}

int lower(int c) {
    return c == EOF ? EOF : std::tolower(static_cast<unsigned char>(c));
}

bool sameChar(int a, int b, bool caseSensitive) {
    return caseSensitive ? a == b : lower(a) == lower(b);
}

// Consumes the rest of the line through its '\n'; false when end of file comes first.
bool skipRestOfLine(std::FILE* f) {
    for (;;) {
        int c = next(f);
        if (c == EOF)
            return false;
        if (c == '\n')
            return true;
    }
}

// Consumes the token characters that follow and puts back the delimiter.
void skipTokenRest(std::FILE* f) {
    int c = next(f);
    while (isTokenChar(c))
        c = next(f);
    putBack(c, f);
}

// The line characters that follow, with the line end consumed ("\r\n" as one).
// False at end of file with nothing read.
bool readLineText(std::FILE* f, std::string& text) {
    text.clear();
    int c = next(f);
    while (isLineChar(c)) {
        text.push_back(static_cast<char>(c));
        c = next(f);
    }
    if (c == EOF && text.empty())
        return false;
    if (c == '\r') {
        int after = next(f);
        if (after != '\n')
            putBack(after, f);
    }
    return true;
}

// Cursor form of matchWord: advances past word only when the whole word matched.
bool matchCursorWord(char** cursor, const char* word, bool caseSensitive) {
    std::size_t i = 0;
    for (; word[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>((*cursor)[i]);
        if (c == '\0' || !sameChar(c, static_cast<unsigned char>(word[i]), caseSensitive))
            return false;
    }
    *cursor += i;
    return true;
}

} // namespace

bool isTokenChar(int c) {
    return c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\0' && c != 0xFF && c != EOF;
}

bool isLineChar(int c) {
    return c != '\n' && c != '\r' && c != '\0' && c != 0xFF && c != EOF;
}

bool isBlank(int c) {
    return c == ' ' || c == '\t';
}

bool isDigit(int c) {
    return c >= '0' && c <= '9';
}

// ---- Stream readers ----------------------------------------------------------------------

bool skipWhitespace(std::FILE* f) {
    for (;;) {
        int c = next(f);
        if (c == EOF)
            return false;
        if (isTokenChar(c)) {
            putBack(c, f);
            return true;
        }
    }
}

bool skipBlanks(std::FILE* f) {
    for (;;) {
        int c = next(f);
        if (c == EOF)
            return false;
        if (!isBlank(c)) {
            putBack(c, f);
            return true;
        }
    }
}

bool skipToToken(std::FILE* f) {
    for (;;) {
        if (!skipWhitespace(f))
            return false;
        int c = next(f);
        if (c != '#') {
            putBack(c, f);
            return true;
        }
        skipRestOfLine(f);
    }
}

void skipCommentLines(std::FILE* f) {
    for (;;) {
        int c = next(f);
        if (c != '#') {
            putBack(c, f);
            return;
        }
        skipRestOfLine(f);
    }
}

bool skipLines(std::FILE* f, int n) {
    for (int i = 0; i < n; ++i)
        if (!skipRestOfLine(f))
            return false;
    return true;
}

void skipDataLines(std::FILE* f, int n) {
    int passed = 0;
    while (passed < n) {
        int c = next(f);
        if (c == EOF)
            return;
        if (c == '#') {
            skipRestOfLine(f);
            continue;
        }
        if (c != '\n')
            skipRestOfLine(f);
        ++passed;
    }
}

bool matchWord(std::FILE* f, const char* word, bool caseSensitive) {
    for (const char* w = word; *w != '\0'; ++w) {
        int c = next(f);
        if (!sameChar(c, static_cast<unsigned char>(*w), caseSensitive)) {
            putBack(c, f);
            return false;
        }
    }
    return true;
}

bool findWord(std::FILE* f, const char* word, bool caseSensitive) {
    for (;;) {
        if (matchWord(f, word, caseSensitive))
            return true;
        if (!skipRestOfLine(f))
            return false;
    }
}

bool findWordSkipLine(std::FILE* f, const char* word, bool caseSensitive) {
    if (!findWord(f, word, caseSensitive))
        return false;
    return skipRestOfLine(f);
}

bool findLineStartingWith(std::FILE* f, char ch) {
    for (;;) {
        int c = next(f);
        if (c == EOF)
            return false;
        if (c == static_cast<unsigned char>(ch)) {
            putBack(c, f);
            return true;
        }
        if (c != '\n' && !skipRestOfLine(f))
            return false;
    }
}

bool readInts(std::FILE* f, int n, int* dst) {
    for (int i = 0; i < n; ++i)
        if (std::fscanf(f, "%d", &dst[i]) != 1)
            return false;
    return true;
}

bool readLongs(std::FILE* f, int n, std::int32_t* dst) {
    for (int i = 0; i < n; ++i) {
        long value = 0;
        if (std::fscanf(f, "%ld", &value) != 1)
            return false;
        dst[i] = static_cast<std::int32_t>(value);
    }
    return true;
}

bool readDoubles(std::FILE* f, int n, double* dst) {
    for (int i = 0; i < n; ++i)
        if (std::fscanf(f, "%lf", &dst[i]) != 1)
            return false;
    return true;
}

std::int32_t countTokens(std::FILE* f) {
    std::int32_t count = 0;
    while (skipWhitespace(f)) {
        ++count;
        skipTokenRest(f);
    }
    return count;
}

std::int32_t countLines(std::FILE* f, bool restore) {
    const long start = std::ftell(f);
    std::int32_t count = 0;
    for (int c = next(f); c != EOF; c = next(f))
        if (c == '\n')
            ++count;
    if (restore) {
        std::clearerr(f);
        std::fseek(f, start, SEEK_SET);
    }
    return count;
}

int readLine(std::FILE* f, char* dst) {
    std::string text;
    if (!readLineText(f, text)) {
        dst[0] = '\0';
        return -1;
    }
    std::memcpy(dst, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

int readDataLine(std::FILE* f, char* dst) {
    for (;;) {
        if (!skipBlanks(f))
            break;
        int c = next(f);
        if (c == '#') {
            skipRestOfLine(f);
        } else if (c == '\r') {
            int after = next(f);
            if (after != '\n')
                putBack(after, f);
        } else if (c != '\n') {
            putBack(c, f);
            break;
        }
    }
    return readLine(f, dst);
}

int readWord(std::FILE* f, char* dst) {
    int length = 0;
    if (skipWhitespace(f)) {
        int c = next(f);
        while (isTokenChar(c)) {
            dst[length++] = static_cast<char>(c);
            c = next(f);
        }
        putBack(c, f);
    }
    dst[length] = '\0';
    return length;
}

int readLineAlloc(std::FILE* f, char** dst) {
    if (*dst != nullptr)
        ERROR(kSource, __LINE__, "allocated");
    // The line is gathered in a growing string rather than a fixed local buffer, so that an
    // overlong line cannot overrun it. At end of file (-1) nothing is allocated.
    std::string text;
    if (!readLineText(f, text))
        return -1;
    *dst = new char[text.size() + 1];
    std::memcpy(*dst, text.c_str(), text.size() + 1);
    return static_cast<int>(text.size());
}

bool expectWord(std::FILE* f, const char* word, bool caseSensitive) {
    if (!skipWhitespace(f))
        return false;
    if (!matchWord(f, word, caseSensitive))
        return false;
    skipTokenRest(f);
    return true;
}

bool expectWordAtLineEnd(std::FILE* f, const char* word, bool caseSensitive) {
    if (!skipBlanks(f))
        return false;
    if (!matchWord(f, word, caseSensitive))
        return false;
    skipBlanks(f);
    int c = next(f);
    if (c == '\r')
        c = next(f);
    if (c == '\n')
        return true;
    putBack(c, f);
    return false;
}

// ---- Cursor readers ----------------------------------------------------------------------

bool cutComment(char* s) {
    char* hash = std::strchr(s, '#');
    if (hash == nullptr)
        return false;
    *hash = '\0';
    while (hash > s && hash[-1] == ' ')
        *--hash = '\0';
    return true;
}

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
        while (isTokenChar(static_cast<unsigned char>(**cursor)))
            ++*cursor;
    }
    return true;
}

bool skipNumber(char** cursor) {
    skipBlanks(cursor);
    if (atLineEnd(**cursor))
        return false;
    const char c = **cursor;
    if (c == '+' || c == '-' || isDigit(c)) {
        ++*cursor;
        while (isDigit(**cursor))
            ++*cursor;
    }
    return true;
}

bool readChar(char** cursor, char* ch) {
    skipBlanks(cursor);
    if (atLineEnd(**cursor))
        return false;
    *ch = **cursor;
    ++*cursor;
    return true;
}

int readWord(char** cursor, char* dst) {
    skipBlanks(cursor);
    int length = 0;
    while (isTokenChar(static_cast<unsigned char>(**cursor))) {
        dst[length++] = **cursor;
        ++*cursor;
    }
    dst[length] = '\0';
    return length;
}

int readLine(char** cursor, char* dst) {
    if (dst == nullptr)
        ERROR(kSource, __LINE__, "destination is not allocated");
    int length = 0;
    while (isLineChar(static_cast<unsigned char>(**cursor))) {
        dst[length++] = **cursor;
        ++*cursor;
    }
    dst[length] = '\0';
    return length;
}

int readLineAlloc(char** cursor, char** dst) {
    if (*dst != nullptr)
        ERROR(kSource, __LINE__, "allocated");
    skipBlanks(cursor);
    std::size_t length = 0;
    while (isLineChar(static_cast<unsigned char>((*cursor)[length])))
        ++length;
    *dst = new char[length + 1];
    std::memcpy(*dst, *cursor, length);
    (*dst)[length] = '\0';
    *cursor += length;
    return static_cast<int>(length);
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

void unscan(char** cursor, const char* word) {
    while (isBlank((*cursor)[-1]))
        --*cursor;
    const std::size_t length = std::strlen(word);
    *cursor -= length;
    if (std::strncmp(*cursor, word, length) != 0)
        ERROR(kSource, __LINE__, "unscan error");
}

bool scanCountedDoubles(char** cursor, int n, double* values) {
    int count = -1;
    bool result = scanInt(cursor, &count);
    if (count != n) {
        WARNING(kSource, __LINE__, "The length of array of doubles is not \"%d\"", n);
        return false;
    }
    for (int i = 0; i < n; ++i)
        result = scanDouble(cursor, &values[i]);
    return result;
}

bool scanCountedVector(char** cursor, int n, Dvctr& v) {
    int count = -1;
    bool result = scanInt(cursor, &count);
    if (count != n)
        ERROR(kSource, __LINE__, "unexpected number of components in scanned array");
    v.resize(n);
    for (int i = 0; i < n; ++i)
        result = scanDouble(cursor, &v[i]);
    return result;
}

// ---- Keyword expectations ----------------------------------------------------------------

void expectWordOrDie(const char* sourceFile, int line, std::FILE* f, const char* word,
                     const char* context, bool caseSensitive) {
    if (!expectWord(f, word, caseSensitive))
        ERROR(sourceFile, line, "%s, expected \"%s\"  != \"%s\"", context, word, kNullText);
}

void expectWordAtLineEndOrDie(const char* sourceFile, int line, std::FILE* f, const char* word,
                              const char* context, bool caseSensitive) {
    if (!expectWordAtLineEnd(f, word, caseSensitive))
        ERROR(sourceFile, line, "%s, expected \"%s\"  != \"%s\"", context, word, kNullText);
}

void expectCursorWord(const char* sourceFile, int line, char** cursor, const char* word,
                      const char* context, bool caseSensitive) {
    skipBlanks(cursor);
    if (!matchCursorWord(cursor, word, caseSensitive))
        ERROR(sourceFile, line, "%s, expected \"%s\"  != \"%s\"", context, word, *cursor);
}

int expectCursorWord2(const char* sourceFile, int line, char** cursor, const char* word1,
                      const char* word2, const char* context, bool caseSensitive) {
    skipBlanks(cursor);
    if (matchCursorWord(cursor, word2, caseSensitive))
        return 2;
    if (matchCursorWord(cursor, word1, caseSensitive))
        return 1;
    ERROR(sourceFile, line, "%s, expected \"%s\" or \"%s\" != \"%s\"", context, word1, word2,
          *cursor);
}

int expectCursorWord3(const char* sourceFile, int line, char** cursor, const char* word1,
                      const char* word2, const char* word3, const char* context,
                      bool caseSensitive) {
    skipBlanks(cursor);
    if (matchCursorWord(cursor, word3, caseSensitive))
        return 3;
    if (matchCursorWord(cursor, word2, caseSensitive))
        return 2;
    if (matchCursorWord(cursor, word1, caseSensitive))
        return 1;
    // word2 fills the places of both the second and the third word; kept as users know it.
    ERROR(sourceFile, line, "%s, expected \"%s\" or \"%s\" or \"%s\" != \"%s\"", context, word1,
          word2, word2, *cursor);
}

void reportExpectedInt(const char* sourceFile, int line, const char* context, int expected,
                       const char* found) {
    ERROR(sourceFile, line, "%s, expected \"%d\"  != \"%s\"", context, expected, found);
}

void reportExpectedLong(const char* sourceFile, int line, const char* context,
                        std::int32_t expected, const char* found) {
    ERROR(sourceFile, line, "%s, expected \"%ld\" != \"%s\"", context, static_cast<long>(expected),
          found);
}

// ---- String builders ---------------------------------------------------------------------

char* duplicate(const char* s) {
    if (s == nullptr)
        return nullptr;
    const std::size_t length = std::strlen(s);
    char* copy = new char[length + 1];
    std::memcpy(copy, s, length + 1);
    return copy;
}

char* concat(const char* a, const char* b) {
    const std::size_t size = std::strlen(a) + std::strlen(b) + 1;
    char* text = new char[size];
    std::snprintf(text, size, "%s%s", a, b);
    return text;
}

char* concat(const char* a, const char* b, const char* c) {
    const std::size_t size = std::strlen(a) + std::strlen(b) + std::strlen(c) + 1;
    char* text = new char[size];
    std::snprintf(text, size, "%s%s%s", a, b, c);
    return text;
}

char* withTrailingBackslash(const char* path) {
    const std::size_t length = std::strlen(path);
    if (length > 0 && path[length - 1] == '\\')
        return duplicate(path);
    return concat(path, "\\");
}

void appendWords(char* dst, const char* const* words, int n) {
    for (int i = 0; i < n; ++i) {
        char* end = dst + std::strlen(dst);
        std::sprintf(end, " %s", words[i]);
    }
}

// ---- Copying between open files ------------------------------------------------------------

bool copyToStar(std::FILE* from, std::FILE* to) {
    for (;;) {
        int c = next(from);
        if (c == EOF)
            return false;
        if (c == '*') {
            putBack(c, from);
            return true;
        }
        std::fputc(c, to);
    }
}

bool copyLines(std::FILE* from, std::FILE* to, int n) {
    for (int i = 0; i < n; ++i) {
        for (;;) {
            int c = next(from);
            if (c == EOF)
                return false;
            std::fputc(c, to);
            if (c == '\n')
                break;
        }
    }
    return true;
}

bool copyRestOfLine(std::FILE* from, std::FILE* to) {
    for (;;) {
        int c = next(from);
        if (c == EOF)
            return false;
        if (c == '\n') {
            putBack(c, from);
            return true;
        }
        std::fputc(c, to);
    }
}

void copyToEnd(std::FILE* from, std::FILE* to) {
    for (int c = next(from); c != EOF; c = next(from))
        std::fputc(c, to);
}

bool skipToStar(std::FILE* f) {
    for (;;) {
        int c = next(f);
        if (c == EOF)
            return false;
        if (c == '*') {
            putBack(c, f);
            return true;
        }
    }
}

int firstDuplicate(int n, const std::int32_t* values) {
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j)
            if (values[i] == values[j])
                return i + 1;
    return 0;
}

int findAfter(const char* text, const char* key, std::int32_t* l) {
    const char* at = std::strstr(text, key);
    if (at == nullptr)
        return 1;
    long value = 0;
    if (std::sscanf(at + std::strlen(key), "%ld", &value) == 1)
        *l = static_cast<std::int32_t>(value);
    return 0;
}

int findAfter(const char* text, const char* key, double* x) {
    const char* at = std::strstr(text, key);
    if (at == nullptr)
        return 1;
    std::sscanf(at + std::strlen(key), "%lf", x);
    return 0;
}

} // namespace meerspace
