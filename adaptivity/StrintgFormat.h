#pragma once
// The fixed layout of a STRINTG file and the number parsers its reader uses.
//
// A STRINTG file has two title lines, the column header (line 3: names in 15-character
// fields from character 20 on), a fourth line the reader skips, and then one record per
// integration point: the element number in characters 0..7 and, from character 16 on, one
// 15-character field per column of the header, in ascending bit order of the columns'
// property flags.
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

// _wtoi over ASCII text: blanks, an optional sign, the digits that follow, clamped to int.
int ParseInt(std::string_view text);

// _wtof over ASCII text in the "C" numeric locale, giving the same double as the runtime.
double ParseDouble(std::string_view text);

// The field of `width` characters from `start`, shorter or empty where the line ends first.
std::string_view FieldAt(std::string_view line, int start, int width);

} // namespace strintg
