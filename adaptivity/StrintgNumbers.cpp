// Fast and exact parsing of the numbers of STRINTG records: the same values as the C
// runtime's _wtoi and _wtof give, at a fraction of their cost.
#include "adaptivity/StrintgFormat.h"

#include "host/framework/framework.h"

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace strintg {

namespace {

// The blanks the C runtime skips in front of a number (iswspace of the ASCII range).
constexpr bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

// _wtoi over ASCII text: blanks, an optional sign, the digits that follow, clamped to int.
int ParseInt(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && IsBlank(text[i]))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        negative = text[i++] == '-';
    constexpr long long limit = static_cast<long long>(std::numeric_limits<int>::max()) + 1;
    long long value = 0;
    for (; i < text.size() && IsDigit(text[i]); ++i) {
        if (value <= limit)
            value = value * 10 + (text[i] - '0');
    }
    if (negative)
        value = -value;
    if (value > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (value < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

namespace {

// _wtof through the C runtime, for the rare fields the fast path leaves to it.
double ParseDoubleByRuntime(std::string_view text) {
    std::wstring wide(text.begin(), text.end());
    return _wtof(wide.c_str());
}

// The digits of a decimal number (from the first digit or '.') through std::from_chars, which
// rounds correctly as wcstod does; out of range, the runtime gives its own answer.
double ParseDecimalByFromChars(std::string_view text, std::size_t first, bool negative) {
    double value = 0.0;
    auto [end, ec] = std::from_chars(text.data() + first, text.data() + text.size(), value,
                                     std::chars_format::general);
    (void)end;
    if (ec == std::errc())
        return negative ? -value : value;
    if (ec == std::errc::invalid_argument)
        return 0.0; // "." or ".e5": nothing to convert
    return ParseDoubleByRuntime(text);
}

// Eight characters as one little-endian word; SWAR (several digits per instruction) below.
std::uint64_t Load8(const char* p) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap64(word);
    return word;
}

// How many of the eight ASCII characters of `word`, from the first, are decimal digits.
int LeadingDigits(std::uint64_t word) {
    constexpr std::uint64_t highNibbles = 0xF0F0F0F0F0F0F0F0ULL;
    constexpr std::uint64_t zeros = 0x3030303030303030ULL;
    // A byte is a digit when its high nibble is 3 and its low nibble at most 9 (adding 6 keeps
    // the high nibble); ASCII bytes cannot carry into their neighbours.
    const std::uint64_t notDigits =
        ((word & highNibbles) ^ zeros) | (((word + 0x0606060606060606ULL) & highNibbles) ^ zeros);
    return notDigits == 0 ? 8 : std::countr_zero(notDigits) / 8;
}

// The value of the first `count` (1..8) digits of `word`.
std::uint64_t DigitsValue(std::uint64_t word, int count) {
    // Subtracting '0' can only borrow at the first non-digit, behind the digits that count;
    // the shift drops everything behind them and puts zeros in front.
    std::uint64_t d = (word - 0x3030303030303030ULL) << (8 * (8 - count));
    d = d * 10 + (d >> 8);
    d = (((d & 0x000000FF000000FFULL) * (100 + (1000000ULL << 32))) +
         (((d >> 16) & 0x000000FF000000FFULL) * (1 + (10000ULL << 32)))) >>
        32;
    return d;
}

constexpr std::uint64_t c_powersOfTenInt[] = {1,      10,      100,      1000,     10000,
                                              100000, 1000000, 10000000, 100000000};

// Appends the run of digits at text[i...] to the mantissa; returns the number of digits taken.
// Eight characters at a time while eight remain in the field, one at a time after that.
[[gnu::always_inline]] inline int TakeDigits(std::string_view text, std::size_t& i,
                                             std::uint64_t& mantissa, int& digits) {
    const std::size_t n = text.size();
    int taken = 0;
    while (i + 8 <= n) {
        const int run = LeadingDigits(Load8(text.data() + i));
        if (run == 0)
            return taken;
        if (digits + run > 19)
            return -1; // more digits than a 64-bit mantissa holds
        mantissa = mantissa * c_powersOfTenInt[run] + DigitsValue(Load8(text.data() + i), run);
        digits += run;
        taken += run;
        i += static_cast<std::size_t>(run);
        if (run < 8)
            return taken;
    }
    for (; i < n && IsDigit(text[i]); ++i, ++taken) {
        if (++digits > 19)
            return -1;
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(text[i] - '0');
    }
    return taken;
}

} // namespace

// The general way of ParseDouble: numbers of at most 19 digits whose decimal exponent lies
// within +-22 are converted with one multiplication or division of two exact doubles, which
// IEEE arithmetic rounds correctly (Clinger's fast path). Longer numbers and larger exponents
// go through std::from_chars; infinities, NaNs and hexadecimal numbers through the runtime
// itself.
double ParseDoubleInGeneral(std::string_view text) {
    if (SolverField field; ReadSolverField(text, field)) // beyond the exact powers of ten
        return ParseDecimalByFromChars(text, text.find_first_of("0123456789"), field.negative);
    const std::size_t n = text.size();
    std::size_t i = 0;
    // Fields are right-aligned: skip their spaces eight at a time, then any other blanks.
    while (i + 8 <= n) {
        const std::uint64_t notSpaces = Load8(text.data() + i) ^ 0x2020202020202020ULL;
        if (notSpaces != 0) {
            i += static_cast<std::size_t>(std::countr_zero(notSpaces) / 8);
            break;
        }
        i += 8;
    }
    while (i < n && IsBlank(text[i]))
        ++i;
    if (i == n)
        return 0.0;
    // The sign without a branch: signs of solver output are as good as random.
    const bool negative = text[i] == '-';
    i += static_cast<std::size_t>(negative || text[i] == '+');
    if (i == n)
        return 0.0;
    const std::size_t first = i;
    const char c = text[i];
    if (c == '0' && i + 1 < n && (text[i + 1] == 'x' || text[i + 1] == 'X'))
        return ParseDoubleByRuntime(text);
    if (!IsDigit(c) && c != '.') {
        const char lower = static_cast<char>(c | 0x20);
        return lower == 'i' || lower == 'n' ? ParseDoubleByRuntime(text) : 0.0;
    }

    std::uint64_t mantissa = 0;
    int digits = 0; // leading zeros included: they only make the limit of 19 stricter
    int taken = TakeDigits(text, i, mantissa, digits);
    if (taken < 0)
        return ParseDecimalByFromChars(text, first, negative);
    bool anyDigit = taken > 0;
    int scale = 0; // decimal exponent of the mantissa's last digit
    if (i < n && text[i] == '.') {
        ++i;
        taken = TakeDigits(text, i, mantissa, digits);
        if (taken < 0)
            return ParseDecimalByFromChars(text, first, negative);
        anyDigit = anyDigit || taken > 0;
        scale = -taken;
    }
    if (!anyDigit)
        return 0.0; // "." or ".e5"
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        // An exponent counts only with at least one digit; "1e" and "1e+" are 1.
        std::size_t j = i + 1;
        const bool negativeExponent = j < n && text[j] == '-';
        j += static_cast<std::size_t>(j < n && (negativeExponent || text[j] == '+'));
        if (j < n && IsDigit(text[j])) {
            int exponent = 0;
            for (; j < n && IsDigit(text[j]); ++j)
                exponent = std::min(exponent * 10 + (text[j] - '0'), 100000);
            scale += negativeExponent ? -exponent : exponent;
        }
    }
    if (mantissa == 0)
        return negative ? -0.0 : 0.0;
    if (mantissa <= (std::uint64_t{1} << 53) && scale >= -22 && scale <= 22) {
        double value = static_cast<double>(mantissa);
        value = scale < 0 ? value / c_exactPowersOfTen[-scale] : value * c_exactPowersOfTen[scale];
        return negative ? -value : value;
    }
    return ParseDecimalByFromChars(text, first, negative);
}

std::string_view FieldAt(std::string_view line, int start, int width) {
    const auto first = static_cast<std::size_t>(start);
    if (first >= line.size())
        return {};
    return line.substr(first, static_cast<std::size_t>(width));
}

} // namespace strintg
