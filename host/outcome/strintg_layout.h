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

} // namespace strintg
