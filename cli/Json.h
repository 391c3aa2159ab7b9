#pragma once
// A small writer of JSON text for the command's --json output.
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>

namespace slabadapt::cli {

// The string as a JSON string literal, quotes included.
inline std::string JsonString(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char buffer[8];
                std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(c));
                out += buffer;
            } else {
                out += c;
            }
        }
    }
    return out + "\"";
}

// A number that reads back to the same double; null for NaN and the infinities, which JSON
// cannot hold.
inline std::string JsonNumber(double value) {
    if (!std::isfinite(value))
        return "null";
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    return buffer;
}

} // namespace slabadapt::cli
