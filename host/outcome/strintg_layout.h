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

// A whole value field in the exponent layout solvers write: eight decimals,
// " d.ddddddddE+dd" or "-d.ddddddddE-dd" (the letter may be 'e'), or seven behind one more
// blank, "  d.ddddddde+dd" (CalculiX results imported by slabadapt). The number of decimals,
// 0 for any other field. The bulk of every file: readers may take it by its fixed positions.
inline int SolverFieldDecimals(std::string_view field) {
    static_assert(c_nFieldWidth == 15);
    if (field.size() != static_cast<std::size_t>(c_nFieldWidth))
        return 0;
    const auto digit = [](char c) { return static_cast<unsigned char>(c - '0') < 10; };
    const char* f = field.data();
    if ((f[11] != 'E' && f[11] != 'e') || (f[12] != '+' && f[12] != '-') || !digit(f[13]) ||
        !digit(f[14]))
        return 0;
    bool decimals = true;
    for (int i = 4; i < 11; ++i)
        decimals &= digit(f[i]);
    if (!decimals)
        return 0;
    if ((f[0] == ' ' || f[0] == '-') && digit(f[1]) && f[2] == '.' && digit(f[3]))
        return 8;
    if (f[0] == ' ' && (f[1] == ' ' || f[1] == '-') && digit(f[2]) && f[3] == '.')
        return 7;
    return 0;
}

inline bool IsSolverField(std::string_view field) {
    return SolverFieldDecimals(field) != 0;
}

} // namespace strintg
