#pragma once
// GUID: the 128-bit identifier of interfaces, classes and result types.
#include "host/com/types.h"

#include <compare>
#include <optional>
#include <string>
#include <string_view>

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend constexpr bool operator==(const GUID&, const GUID&) = default;
    // Field by field, so that GUIDs can key ordered containers.
    friend constexpr auto operator<=>(const GUID&, const GUID&) = default;
};

using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFGUID = const GUID&;

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
// {00000000-0000-0000-C000-000000000046}
inline constexpr IID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

constexpr bool IsEqualGUID(REFGUID a, REFGUID b) {
    return a == b;
}
constexpr bool IsEqualIID(REFIID a, REFIID b) {
    return a == b;
}

namespace host::com {
// Reads "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (hex digits of either case; the braces may be
// left out). Anything else, including surrounding blanks, answers std::nullopt.
std::optional<GUID> ParseGuid(std::wstring_view text);
std::optional<GUID> ParseGuid(std::string_view text);

// The registry form, upper case with braces: "{AC98000C-E79E-4365-877E-0A3F95AA42F4}".
std::wstring ToWString(const GUID& guid);
std::string ToString(const GUID& guid);
} // namespace host::com
