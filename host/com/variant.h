#pragma once
// VARIANT and _variant_t: a tagged value of the COM support library.
//
// The value kinds held here are VT_EMPTY, VT_I4, VT_R8, VT_BSTR and VT_BOOL. A variant of
// type VT_BSTR owns its string (freed by VariantClear and by ~_variant_t); no other kind owns
// anything, so a tag of any other number (as a reader may set it) is cleared without freeing.
#include "host/com/bstr.h"
#include "host/com/types.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace host::com {
// A BSTR copy of `length` characters (embedded zeros kept); raises _com_error E_OUTOFMEMORY
// when it cannot be made.
BSTR CopyToBstr(const wchar_t* text, std::size_t length);
} // namespace host::com

using VARTYPE = unsigned short;
using VARIANT_BOOL = short;

inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_UI1 = 17,
    VT_I8 = 20,
};

struct tagVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONG lVal;            // VT_I4
        double dblVal;        // VT_R8
        BSTR bstrVal;         // VT_BSTR, owned
        VARIANT_BOOL boolVal; // VT_BOOL: VARIANT_TRUE or VARIANT_FALSE by convention
        LONGLONG llVal;       // VT_I8
        SHORT iVal;           // VT_I2
        BYTE bVal;            // VT_UI1
        float fltVal;         // VT_R4
    };
};
using VARIANT = tagVARIANT;
using VARIANTARG = tagVARIANT;

// VT_EMPTY with a zeroed value.
void VariantInit(VARIANT* variant);
// Frees what the variant owns, then makes it VT_EMPTY. E_POINTER for nullptr.
HRESULT VariantClear(VARIANT* variant);
// Clears target, then copies source into it (a VT_BSTR gets a string of its own).
// E_OUTOFMEMORY when the string cannot be copied (target is then VT_EMPTY).
HRESULT VariantCopy(VARIANT* target, const VARIANT* source);

class _variant_t : public tagVARIANT {
public:
    _variant_t() noexcept { VariantInit(this); }
    _variant_t(const VARIANT& other);
    _variant_t(const _variant_t& other);
    _variant_t(_variant_t&& other) noexcept;
    _variant_t(int value) noexcept;     // VT_I4 (NOLINT: implicit, as in the library)
    _variant_t(long value);             // VT_I4; DISP_E_OVERFLOW outside 32 bits
    _variant_t(double value) noexcept;  // VT_R8
    _variant_t(bool value) noexcept;    // VT_BOOL, VARIANT_TRUE or VARIANT_FALSE
    _variant_t(const wchar_t* text);    // VT_BSTR, a copy (nullptr: a null BSTR)
    _variant_t(std::wstring_view text); // VT_BSTR, a copy (embedded zeros kept)
    _variant_t(const std::wstring& text) : _variant_t(std::wstring_view(text)) {}
    ~_variant_t() { Clear(); }

    _variant_t& operator=(const _variant_t& other);
    _variant_t& operator=(_variant_t&& other) noexcept;
    _variant_t& operator=(int value) noexcept;
    _variant_t& operator=(long value);
    _variant_t& operator=(double value) noexcept;
    _variant_t& operator=(bool value) noexcept;
    _variant_t& operator=(const wchar_t* text);

    // Frees the value; VT_EMPTY afterwards.
    void Clear() noexcept { VariantClear(this); }
    // Hands the value over to the caller, who clears it; this variant becomes VT_EMPTY.
    VARIANT Detach() noexcept;

    // Same tag and equal value (strings by their characters, doubles by ==).
    friend bool operator==(const _variant_t& a, const _variant_t& b) noexcept;
};
