#include "host/win32/text.h"

namespace host::win32 {

std::string WideToUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t wc : text) {
        auto cp = static_cast<char32_t>(wc);
        if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            cp = 0xFFFD;
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        auto b0 = static_cast<unsigned char>(text[i]);
        std::size_t len = 0;
        char32_t cp = 0;
        if (b0 < 0x80) {
            len = 1;
            cp = b0;
        } else if ((b0 & 0xE0) == 0xC0) {
            len = 2;
            cp = b0 & 0x1F;
        } else if ((b0 & 0xF0) == 0xE0) {
            len = 3;
            cp = b0 & 0x0F;
        } else if ((b0 & 0xF8) == 0xF0) {
            len = 4;
            cp = b0 & 0x07;
        }
        bool valid = len > 0 && i + len <= text.size();
        for (std::size_t k = 1; valid && k < len; ++k) {
            auto b = static_cast<unsigned char>(text[i + k]);
            if ((b & 0xC0) != 0x80)
                valid = false;
            else
                cp = (cp << 6) | (b & 0x3F);
        }
        // Overlong forms, surrogates and values beyond Unicode are not UTF-8.
        static constexpr char32_t minimum[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (valid && (cp < minimum[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)))
            valid = false;
        if (!valid) {
            out.push_back(static_cast<wchar_t>(b0));
            ++i;
            continue;
        }
        out.push_back(static_cast<wchar_t>(cp));
        i += len;
    }
    return out;
}

std::filesystem::path ToNativePath(std::wstring_view hostPath) {
    std::wstring slashed(hostPath);
    for (wchar_t& c : slashed)
        if (c == L'\\')
            c = L'/';
    return std::filesystem::path(WideToUtf8(slashed));
}

} // namespace host::win32
