#pragma once
// The fixed layout of a STRINTG file, which the module's reader, the project check, the
// CalculiX importer and the combinations of load cases all follow.
//
// Two title lines, the column header (line 3: names in 15-character fields from character 20
// on), a fourth line no reader takes, and then one record per integration point: the element
// number in characters 0..7, the point number in 8..15 and, from character 16 on, one
// 15-character field per column of the header, in ascending bit order of the columns' property
// flags (the order of c_columnNames).
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace strintg {

// Fixed columns of a STRINTG file (zero-based character positions).
constexpr int c_nHeaderFieldsStart = 20;
constexpr int c_nElementNumberWidth = 8;
constexpr int c_nValuesStart = 16;
constexpr int c_nFieldWidth = 15;
// The column names a header may hold, in ascending bit order of their property flags (bit 3
// belongs to no column); "qyz" is read as another name of "gyz".
inline constexpr std::array<const char*, 19> c_columnNames = {
    "igx", "igy", "igz", "mx",  "my",  "mxy", "qx", "qy", "nx", "ny",
    "nxy", "kx",  "ky",  "kxy", "gxz", "gyz", "ex", "ey", "gxy"};

// Line 3 is the column header; records begin on line 5.
constexpr long c_nHeaderLine = 3;
constexpr long c_nFirstRecordLine = 5;

// A value field in the exponent layout solvers write, by its fixed positions: eight decimals,
// " d.ddddddddE+dd" or "-d.ddddddddE-dd" (the letter may be 'e'), or seven behind one more
// blank, "  d.ddddddde+dd" (CalculiX results imported by slabadapt). The bulk of every file.
struct SolverField {
    bool negative = false;
    std::uint64_t mantissa = 0; // the nine digits (seven decimals: ten times the eight)
    int scale = 0;              // the decimal exponent of the mantissa's last digit
};

// The field read by its fixed positions; false for any field of another form (which then
// takes the general way).
inline bool ReadSolverField(std::string_view field, SolverField& out) {
    static_assert(c_nFieldWidth == 15);
    if (field.size() != static_cast<std::size_t>(c_nFieldWidth))
        return false;
    const char* f = field.data();
    const bool eight = f[2] == '.';
    if (!eight && f[3] != '.')
        return false;
    // The decimals, eight characters from f[3] as one little-endian word: eight digits, or
    // the full stop and seven, which are taken as eight with a zero behind.
    std::uint64_t word;
    std::memcpy(&word, f + 3, sizeof word);
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap64(word);
    if (!eight)
        word = (word >> 8) | (std::uint64_t{'0'} << 56);
    constexpr std::uint64_t highNibbles = 0xF0F0F0F0F0F0F0F0ULL;
    constexpr std::uint64_t zeros = 0x3030303030303030ULL;
    // A byte is a digit when its high nibble is 3 and its low nibble at most 9 (adding 6 keeps
    // the high nibble); ASCII bytes cannot carry into their neighbours.
    const std::uint64_t notDigits =
        ((word & highNibbles) ^ zeros) | (((word + 0x0606060606060606ULL) & highNibbles) ^ zeros);
    const auto digit = [](char c) { return static_cast<unsigned char>(c - '0') < 10; };
    const char sign = eight ? f[0] : f[1];
    const char lead = eight ? f[1] : f[2];
    // All tests are made, without a branch between them.
    const auto bit = [](bool b) { return static_cast<unsigned>(b); };
    const bool ok =
        (bit(notDigits == 0) & bit(sign == ' ' || sign == '-') & bit(eight || f[0] == ' ') &
         bit(digit(lead)) & bit((f[11] | 0x20) == 'e') & bit(f[12] == '+' || f[12] == '-') &
         bit(digit(f[13])) & bit(digit(f[14]))) != 0;
    if (!ok)
        return false;
    // The eight digits' value, two, four and then eight at a time.
    std::uint64_t d = word - zeros;
    d = (d * 10 + (d >> 8)) & 0x00FF00FF00FF00FFULL;
    d = (d * 100 + (d >> 16)) & 0x0000FFFF0000FFFFULL;
    d = (d * 10000 + (d >> 32)) & 0xFFFFFFFFULL;
    out.negative = sign == '-';
    out.mantissa = static_cast<std::uint64_t>(lead - '0') * 100000000u + d;
    const int exponent = (f[13] - '0') * 10 + (f[14] - '0');
    out.scale = (f[12] == '-' ? -exponent : exponent) - 8;
    return true;
}

inline bool IsSolverField(std::string_view field) {
    SolverField ignored;
    return ReadSolverField(field, ignored);
}

} // namespace strintg
