#include "host/com/guid.h"

#include <cstdio>

namespace host::com {
namespace {

template <typename Char> std::optional<GUID> ParseGuidText(std::basic_string_view<Char> text) {
    if (text.size() == 38) {
        if (text.front() != Char('{') || text.back() != Char('}'))
            return std::nullopt;
        text = text.substr(1, 36);
    }
    if (text.size() != 36)
        return std::nullopt;

    // Hex digits at every position except the four dashes.
    std::uint8_t nibbles[32];
    int count = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<std::uint32_t>(text[i]);
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-')
                return std::nullopt;
            continue;
        }
        std::uint8_t value;
        if (c >= '0' && c <= '9')
            value = static_cast<std::uint8_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            value = static_cast<std::uint8_t>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            value = static_cast<std::uint8_t>(c - 'A' + 10);
        else
            return std::nullopt;
        nibbles[count++] = value;
    }

    auto field = [&](int first, int digits) {
        std::uint64_t value = 0;
        for (int i = first; i < first + digits; ++i)
            value = (value << 4) | nibbles[i];
        return value;
    };
    GUID guid{};
    guid.Data1 = static_cast<std::uint32_t>(field(0, 8));
    guid.Data2 = static_cast<std::uint16_t>(field(8, 4));
    guid.Data3 = static_cast<std::uint16_t>(field(12, 4));
    for (int i = 0; i < 8; ++i)
        guid.Data4[i] = static_cast<std::uint8_t>(field(16 + 2 * i, 2));
    return guid;
}

} // namespace

std::optional<GUID> ParseGuid(std::wstring_view text) {
    return ParseGuidText(text);
}
std::optional<GUID> ParseGuid(std::string_view text) {
    return ParseGuidText(text);
}

std::string ToString(const GUID& g) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  static_cast<unsigned>(g.Data1), static_cast<unsigned>(g.Data2),
                  static_cast<unsigned>(g.Data3), g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3],
                  g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return buffer;
}

std::wstring ToWString(const GUID& guid) {
    const std::string narrow = ToString(guid);
    return std::wstring(narrow.begin(), narrow.end());
}

} // namespace host::com
