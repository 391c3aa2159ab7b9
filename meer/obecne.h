#pragma once
// Diagnostics of the estimation engine and its library: the fatal error and the warning
// reports, file opening with a standard complaint, command-line helpers, and the guarded
// numeric routines of the bridge (division guard, checked integral conversion).
//
// Every unrecoverable condition of the engine ends in ERROR, which prints the message and
// its location to standard error and throws the integer 201 (kFatalErrorCode).
#include <cstdint>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace Korvo::Math {
// Thrown by meerspace::divisor for a zero divisor; what() is "Division by zero".
class DivideByZeroException : public std::logic_error {
public:
    DivideByZeroException();
};
} // namespace Korvo::Math

namespace meerspace {

// The value ERROR throws (a plain int).
inline constexpr int kFatalErrorCode = 201;

// Size of the message buffer of ERROR and WARNING; a message is cut at one character less.
inline constexpr int kMessageBufferSize = 2048;

// The library's general internal-error message (kept word for word).
inline constexpr const char* kInternalErrorMessage =
    "za ktery muze autor teto sqele utility, bezte ho vytahat za usi";

// Prints "\n\n ERROR:  <message>" and " (<sourceFile>:<line>).  !!!\n\n" to standard error,
// red on a colour console, and throws the int 201. Never returns.
[[noreturn]] void ERROR(const char* sourceFile, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// The same report in magenta with the head "WARNING:"; returns normally.
void WARNING(const char* sourceFile, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Fatal ("File has not been opened: <name>\n Try it again") when file is null.
void checkOpened(std::FILE* file, const char* name);

// Opens path with mode, or raises the fatal error at the caller's sourceFile and line with
// "\"<description>\" file has not been opened: <path>\n Try it again".
std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* path);
// The same with a path built from parts (at most 255 characters); a null prefix is left out.
std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* prefix, const char* name);
std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* prefix, const char* name1, const char* name2);
std::FILE* openFile(const char* sourceFile, int line, const char* mode, const char* description,
                    const char* prefix, const char* name1, const char* name2, const char* name3);

// Longest path the path-building forms of openFile produce.
inline constexpr int kMaxBuiltPathLength = 255;

// Writes the command line: program name, the first characters of the arguments, then the
// arguments themselves.
void echoCommandLine(std::FILE* file, int argc, const char* const* argv);

// Index (1 .. argc - 1) of the first argument equal to name ignoring case; 0 when none.
int findOption(int argc, const char* const* argv, const char* name);

// Returns x, or throws Korvo::Math::DivideByZeroException when x == 0.0 (-0.0 included).
double divisor(double x);

// Converts between integral types, throwing std::range_error when the value does not fit.
template <typename To, typename From> To checked_integral_cast(From value) {
    static_assert(std::is_integral_v<To> && std::is_integral_v<From>);
    if constexpr (std::is_signed_v<From> && std::is_unsigned_v<To>) {
        if (value < 0)
            throw std::range_error("overflow - casting negative value to unsigned");
    }
    if (std::cmp_greater(value, std::numeric_limits<To>::max()))
        throw std::range_error("checked_integral_cast overflow - value too large");
    // Not met by the signed-to-unsigned pair the bridge uses; guards narrowing signed casts.
    if (std::cmp_less(value, std::numeric_limits<To>::min()))
        throw std::range_error("checked_integral_cast overflow - value too small");
    return static_cast<To>(value);
}

// The bridge's conversion of engine indices: throws std::range_error for a negative i.
std::uint32_t toUnsigned(std::int32_t i);

} // namespace meerspace
