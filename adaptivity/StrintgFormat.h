#pragma once
// The number parsers of the module's STRINTG reader; the layout itself is the host kit's.
#include "host/outcome/strintg_layout.h"

#include <bit>
#include <cstdint>
#include <string_view>

namespace strintg {

// _wtoi over ASCII text: blanks, an optional sign, the digits that follow, clamped to int.
int ParseInt(std::string_view text);

// Powers of ten that doubles hold exactly.
inline constexpr double c_exactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// ParseDouble for the fields the fast way below does not take.
double ParseDoubleInGeneral(std::string_view text);

// _wtof over ASCII text in the "C" numeric locale, giving the same double as the runtime.
// The bulk of every file, fields in the solvers' own layout, is taken here by their fixed
// positions: the mantissa and scale of the value, converted with one multiplication or division
// of two exact doubles, which IEEE arithmetic rounds correctly (Clinger's fast path), so the
// result is the double the runtime gives.
inline double ParseDouble(std::string_view text) {
    if (SolverField field;
        ReadSolverField(text, field) && field.scale >= -22 && field.scale <= 22) {
        // The sign goes on before the exact operation, which rounds alike both ways: no
        // branch on it (half the fields are negative, at random), and -0 stays -0.
        const double value = std::bit_cast<double>(
            std::bit_cast<std::uint64_t>(static_cast<double>(field.mantissa)) |
            (static_cast<std::uint64_t>(field.negative) << 63));
        return field.scale < 0 ? value / c_exactPowersOfTen[-field.scale]
                               : value * c_exactPowersOfTen[field.scale];
    }
    return ParseDoubleInGeneral(text);
}

// The field of `width` characters from `start`, shorter or empty where the line ends first.
std::string_view FieldAt(std::string_view line, int start, int width);

} // namespace strintg
