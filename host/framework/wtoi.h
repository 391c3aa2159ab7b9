#pragma once
// The C runtime's wide conversions: leading blanks skipped, an optional sign, as many digits
// as follow; trailing text is ignored and 0 comes back when nothing parses.
//
// _wtoi clamps a value outside int to INT_MAX or INT_MIN. _wtof reads the number in the
// current C numeric locale (callers set "C" for a full stop as the decimal separator) and
// gives +-HUGE_VAL beyond the range of double. A null pointer gives 0.

int _wtoi(const wchar_t* text);
double _wtof(const wchar_t* text);
