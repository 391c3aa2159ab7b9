#include "meer/obecne.h"

#include "host/win32/console.h"

#include <cctype>
#include <cstdarg>

Korvo::Math::DivideByZeroException::DivideByZeroException()
    : std::logic_error("Division by zero") {}

namespace meerspace {
namespace {

// Windows console attributes of the reports. On this platform the host kit turns them into
// ANSI colours on standard output, and only when standard output is a terminal, so redirected
// output stays free of escape codes. The colour goes to the output handle although the text
// goes to standard error; that pairing is kept as the engine has always had it.
constexpr WORD kAttributeRed = 4;
constexpr WORD kAttributeMagenta = 5;
constexpr WORD kAttributeNormal = 7;

void report(WORD colour, const char* head, const char* message, const char* sourceFile, int line) {
    std::fflush(stdout);
    SetConsoleTextAttribute(GetStdHandle(STD_OUTPUT_HANDLE), colour);
    std::fprintf(stderr, "\n\n %s:  %s", head, message);
    SetConsoleTextAttribute(GetStdHandle(STD_OUTPUT_HANDLE), kAttributeNormal);
    std::fprintf(stderr, " (%s:%d).  !!!\n\n", sourceFile, line);
}

std::FILE* openBuiltPath(const char* sourceFile, int line, const char* mode,
                         const char* description, const char* path) {
    return openFile(sourceFile, line, mode, description, path);
}

} // namespace

void ERROR(const char* sourceFile, int line, const char* format, ...) {
    char message[kMessageBufferSize];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    report(kAttributeRed, "ERROR", message, sourceFile, line);
    throw int{kFatalErrorCode};
}

void WARNING(const char* sourceFile, int line, const char* format, ...) {
    char message[kMessageBufferSize];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    report(kAttributeMagenta, "WARNING", message, sourceFile, line);
}

void checkOpened(std::FILE* file, const char* name) {
    if (file == nullptr)
        ERROR("obecne", __LINE__, "File has not been opened: %s\n Try it again", name);
}

std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* path) {
    std::FILE* file = std::fopen(path, mode);
    if (file == nullptr)
        ERROR(sourceFile, line, "\"%s\" file has not been opened: %s\n Try it again", description,
              path);
    return file;
}

std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* prefix, const char* name) {
    char path[kMaxBuiltPathLength + 1];
    if (prefix != nullptr)
        std::snprintf(path, sizeof path, "%s%s", prefix, name);
    else
        std::snprintf(path, sizeof path, "%s", name);
    return openBuiltPath(sourceFile, line, mode, description, path);
}

std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* prefix, const char* name1, const char* name2) {
    char path[kMaxBuiltPathLength + 1];
    if (prefix != nullptr)
        std::snprintf(path, sizeof path, "%s%s%s", prefix, name1, name2);
    else
        std::snprintf(path, sizeof path, "%s%s", name1, name2);
    return openBuiltPath(sourceFile, line, mode, description, path);
}

std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* prefix, const char* name1, const char* name2, const char* name3) {
    char path[kMaxBuiltPathLength + 1];
    if (prefix != nullptr)
        std::snprintf(path, sizeof path, "%s%s%s%s", prefix, name1, name2, name3);
    else
        std::snprintf(path, sizeof path, "%s%s%s", name1, name2, name3);
    return openBuiltPath(sourceFile, line, mode, description, path);
}

void echoCommandLine(std::FILE* file, int argc, const char* const* argv) {
    std::fprintf(file, "\n Command line:");
    std::fprintf(file, "\n  %s ", argv[0]);
    for (int i = 1; i < argc; ++i)
        std::fprintf(file, " %c", argv[i][0]);
    std::fprintf(file, "\n  options: ");
    for (int i = 1; i < argc; ++i)
        std::fprintf(file, " %s", argv[i]);
    std::fprintf(file, "\n\n");
}

int findOption(int argc, const char* const* argv, const char* name) {
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        const char* b = name;
        while (*a != '\0' && *b != '\0' &&
               std::tolower(static_cast<unsigned char>(*a)) ==
                   std::tolower(static_cast<unsigned char>(*b))) {
            ++a;
            ++b;
        }
        if (*a == '\0' && *b == '\0')
            return i;
    }
    return 0;
}

double divisor(double x) {
    if (x == 0.0)
        throw Korvo::Math::DivideByZeroException();
    return x;
}

std::uint32_t toUnsigned(std::int32_t i) {
    return checked_integral_cast<std::uint32_t>(i);
}

} // namespace meerspace
