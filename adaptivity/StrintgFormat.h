#pragma once
// The number parsers of the module's STRINTG reader; the layout itself is the host kit's.
#include "host/outcome/strintg_layout.h"

#include <string_view>

namespace strintg {

// _wtoi over ASCII text: blanks, an optional sign, the digits that follow, clamped to int.
int ParseInt(std::string_view text);

// _wtof over ASCII text in the "C" numeric locale, giving the same double as the runtime.
double ParseDouble(std::string_view text);

// The field of `width` characters from `start`, shorter or empty where the line ends first.
std::string_view FieldAt(std::string_view line, int start, int width);

} // namespace strintg
