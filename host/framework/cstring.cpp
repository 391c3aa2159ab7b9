#include "host/framework/cstring.h"

#include "host/framework/exceptions.h"
#include "host/win32/text.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cwchar>
#include <cwctype>
#include <locale.h>
#include <vector>

namespace {

bool isBlank(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n' || c == L'\v' || c == L'\f';
}

// The framework's wide printf conventions in the C library's: there %s in a wide format takes
// a narrow string and %ls a wide one; in the framework %s takes a wide one and %hs/%S a narrow
// one. The same holds for %c. "I64" (a 64-bit integer) becomes "ll".
std::wstring translateFormat(const wchar_t* format) {
    std::wstring out;
    const wchar_t* p = format;
    while (*p != L'\0') {
        if (*p != L'%') {
            out += *p++;
            continue;
        }
        out += *p++; // '%'
        if (*p == L'%') {
            out += *p++;
            continue;
        }
        while (*p != L'\0' && std::wcschr(L"-+ #0'", *p) != nullptr)
            out += *p++;
        while (*p == L'*' || (*p >= L'0' && *p <= L'9'))
            out += *p++;
        if (*p == L'.') {
            out += *p++;
            while (*p == L'*' || (*p >= L'0' && *p <= L'9'))
                out += *p++;
        }
        std::wstring length;
        while (*p != L'\0' && std::wcschr(L"hlLqjztwI", *p) != nullptr) {
            if (*p == L'I') {
                if (p[1] == L'6' && p[2] == L'4') {
                    length += L"ll";
                    p += 3;
                } else if (p[1] == L'3' && p[2] == L'2') {
                    p += 3;
                } else {
                    length += L'z';
                    ++p;
                }
                continue;
            }
            length += *p++;
        }
        wchar_t conv = *p;
        if (conv == L'\0')
            break;
        ++p;
        if (conv == L's' || conv == L'c' || conv == L'S' || conv == L'C') {
            bool upper = conv == L'S' || conv == L'C';
            wchar_t lower = upper ? static_cast<wchar_t>(conv - L'A' + L'a') : conv;
            bool wide;
            if (length == L"h")
                wide = false;
            else if (length == L"l" || length == L"w")
                wide = true;
            else
                wide = !upper;
            out += wide ? L"l" : L"";
            out += lower;
            continue;
        }
        out += length;
        out += conv;
    }
    return out;
}

// Switches the calling thread to a UTF-8 LC_CTYPE, the other categories as they are, for the
// object's lifetime. Without a UTF-8 locale on the system nothing changes.
class UsingUtf8Ctype {
public:
    UsingUtf8Ctype() {
        locale_t base = ::duplocale(LC_GLOBAL_LOCALE);
        if (base == locale_t{})
            return;
        m_locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", base);
        if (m_locale == locale_t{}) {
            ::freelocale(base);
            return;
        }
        m_previous = ::uselocale(m_locale);
    }
    ~UsingUtf8Ctype() {
        if (m_locale != locale_t{}) {
            ::uselocale(m_previous);
            ::freelocale(m_locale);
        }
    }
    UsingUtf8Ctype(const UsingUtf8Ctype&) = delete;
    UsingUtf8Ctype& operator=(const UsingUtf8Ctype&) = delete;

private:
    locale_t m_locale{};
    locale_t m_previous{};
};

} // namespace

CString::CString(const wchar_t* text) : m_text(text != nullptr ? text : L"") {}

CString::CString(const wchar_t* text, int length) {
    if (text != nullptr && length > 0)
        m_text.assign(text, static_cast<std::size_t>(length));
}

CString::CString(const char* utf8)
    : m_text(utf8 != nullptr ? host::win32::Utf8ToWide(utf8) : std::wstring()) {}

CString::CString(wchar_t ch, int repeat) {
    if (repeat > 0)
        m_text.assign(static_cast<std::size_t>(repeat), ch);
}

CString::CString(const std::string& utf8) : m_text(host::win32::Utf8ToWide(utf8)) {}

wchar_t CString::GetAt(int index) const {
    if (index < 0 || index >= GetLength())
        AfxThrowInvalidArgException();
    return m_text[static_cast<std::size_t>(index)];
}

void CString::SetAt(int index, wchar_t ch) {
    if (index < 0 || index >= GetLength())
        AfxThrowInvalidArgException();
    m_text[static_cast<std::size_t>(index)] = ch;
}

CString CString::Mid(int first) const {
    return Mid(first, GetLength());
}

CString CString::Mid(int first, int count) const {
    first = std::max(first, 0);
    count = std::max(count, 0);
    if (first >= GetLength())
        return CString();
    count = std::min(count, GetLength() - first);
    return CString(m_text.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(count)));
}

CString CString::Left(int count) const {
    return Mid(0, count);
}

CString CString::Right(int count) const {
    count = std::clamp(count, 0, GetLength());
    return Mid(GetLength() - count, count);
}

int CString::Find(wchar_t ch, int start) const {
    if (start < 0 || start >= GetLength())
        return -1;
    auto pos = m_text.find(ch, static_cast<std::size_t>(start));
    return pos == std::wstring::npos ? -1 : static_cast<int>(pos);
}

int CString::Find(const wchar_t* sub, int start) const {
    if (sub == nullptr || start < 0 || start > GetLength())
        return -1;
    auto pos = m_text.find(sub, static_cast<std::size_t>(start));
    return pos == std::wstring::npos ? -1 : static_cast<int>(pos);
}

int CString::ReverseFind(wchar_t ch) const {
    auto pos = m_text.rfind(ch);
    return pos == std::wstring::npos ? -1 : static_cast<int>(pos);
}

CString& CString::TrimLeft() {
    auto it = std::find_if(m_text.begin(), m_text.end(), [](wchar_t c) { return !isBlank(c); });
    m_text.erase(m_text.begin(), it);
    return *this;
}

CString& CString::TrimRight() {
    while (!m_text.empty() && isBlank(m_text.back()))
        m_text.pop_back();
    return *this;
}

CString& CString::Trim() {
    return TrimRight().TrimLeft();
}

CString& CString::TrimLeft(wchar_t ch) {
    auto first = m_text.find_first_not_of(ch);
    m_text.erase(0, first == std::wstring::npos ? m_text.size() : first);
    return *this;
}

CString& CString::TrimRight(wchar_t ch) {
    while (!m_text.empty() && m_text.back() == ch)
        m_text.pop_back();
    return *this;
}

CString& CString::Trim(wchar_t ch) {
    return TrimRight(ch).TrimLeft(ch);
}

CString& CString::MakeLower() {
    for (wchar_t& c : m_text)
        c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
    return *this;
}

CString& CString::MakeUpper() {
    for (wchar_t& c : m_text)
        c = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    return *this;
}

int CString::Replace(const wchar_t* oldText, const wchar_t* newText) {
    if (oldText == nullptr || *oldText == L'\0')
        return 0;
    std::wstring_view from(oldText);
    std::wstring_view to(newText != nullptr ? newText : L"");
    int count = 0;
    std::size_t pos = 0;
    while ((pos = m_text.find(from, pos)) != std::wstring::npos) {
        m_text.replace(pos, from.size(), to);
        pos += to.size();
        ++count;
    }
    return count;
}

int CString::Replace(wchar_t oldCh, wchar_t newCh) {
    int count = 0;
    for (wchar_t& c : m_text)
        if (c == oldCh) {
            c = newCh;
            ++count;
        }
    return count;
}

void CString::FormatV(const wchar_t* format, va_list args) {
    if (format == nullptr)
        AfxThrowInvalidArgException();
    std::wstring fmt = translateFormat(format);
    // Narrow arguments (%hs, %S, %hc) are UTF-8 here, as everywhere in CString: the C library
    // reads them in its LC_CTYPE, so this thread formats with a UTF-8 LC_CTYPE and the rest
    // (LC_NUMERIC for %f and %g) of the current locale.
    UsingUtf8Ctype utf8;
    // vswprintf does not say how much room it needs (-1 for "too small"), so grow until it fits.
    std::vector<wchar_t> buffer(256);
    for (;;) {
        va_list copy;
        va_copy(copy, args);
        errno = 0;
        int n = std::vswprintf(buffer.data(), buffer.size(), fmt.c_str(), copy);
        const int error = errno;
        va_end(copy);
        if (n >= 0 && static_cast<std::size_t>(n) < buffer.size()) {
            m_text.assign(buffer.data(), static_cast<std::size_t>(n));
            return;
        }
        // A narrow argument that is not UTF-8 fails at any size.
        if (error == EILSEQ || buffer.size() >= (std::size_t{1} << 26))
            AfxThrowInvalidArgException();
        buffer.resize(buffer.size() * 4);
    }
}

void CString::Format(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    try {
        FormatV(format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

void CString::AppendFormat(const wchar_t* format, ...) {
    CString more;
    va_list args;
    va_start(args, format);
    try {
        more.FormatV(format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
    m_text += more.m_text;
}

CString& CString::operator=(const wchar_t* text) {
    m_text = text != nullptr ? text : L"";
    return *this;
}

CString& CString::operator=(const char* utf8) {
    m_text = utf8 != nullptr ? host::win32::Utf8ToWide(utf8) : std::wstring();
    return *this;
}

CString& CString::operator=(wchar_t ch) {
    m_text.assign(1, ch);
    return *this;
}

CString& CString::operator+=(const wchar_t* text) {
    if (text != nullptr)
        m_text += text;
    return *this;
}

int CString::Compare(const wchar_t* other) const {
    int r = m_text.compare(other != nullptr ? other : L"");
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

int CString::CompareNoCase(const wchar_t* other) const {
    CString a(*this);
    CString b(other);
    return a.MakeLower().Compare(b.MakeLower());
}

std::string CString::ToUtf8() const {
    return host::win32::WideToUtf8(m_text);
}

std::filesystem::path CString::ToPath() const {
    return host::win32::ToNativePath(m_text);
}

CString CString::FromPath(const std::filesystem::path& path) {
    return CString(path.string());
}

std::ostream& operator<<(std::ostream& out, const CString& text) {
    return out << text.ToUtf8();
}

std::wostream& operator<<(std::wostream& out, const CString& text) {
    return out << text.Str();
}
