#pragma once
// CString: the application framework's wide string, with the members the module uses.
//
// Text is UTF-32 wide text (wchar_t). Construction from narrow text reads it as UTF-8.
// Positions and counts are in characters; as in the framework, out-of-range arguments of
// Mid/Left/Right are clamped instead of failing.
#include "host/win32/types.h"

#include <compare>
#include <cstdarg>
#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>

class CString {
public:
    CString() = default;
    CString(const wchar_t* text);             // NOLINT: implicit, as in the framework
    CString(const wchar_t* text, int length); // the first length characters
    CString(const char* utf8);                // NOLINT
    CString(wchar_t ch, int repeat = 1);
    CString(std::wstring text) : m_text(std::move(text)) {} // NOLINT
    CString(std::wstring_view text) : m_text(text) {}       // NOLINT
    CString(const std::string& utf8);                       // NOLINT

    // Length and access.
    int GetLength() const { return static_cast<int>(m_text.size()); }
    bool IsEmpty() const { return m_text.empty(); }
    void Empty() { m_text.clear(); }
    wchar_t GetAt(int index) const; // throws CInvalidArgException outside 0..length-1
    void SetAt(int index, wchar_t ch);
    wchar_t operator[](int index) const { return GetAt(index); }
    const wchar_t* GetString() const { return m_text.c_str(); }
    operator const wchar_t*() const {
        return m_text.c_str();
    } // NOLINT: LPCTSTR, as in the framework

    // Substrings (clamped: a negative start counts as 0, a count past the end stops there).
    CString Mid(int first) const;
    CString Mid(int first, int count) const;
    CString Left(int count) const;
    CString Right(int count) const;

    // Search: the zero-based position, or -1.
    int Find(wchar_t ch, int start = 0) const;
    int Find(const wchar_t* sub, int start = 0) const;
    int ReverseFind(wchar_t ch) const;

    // In-place changes; each returns *this. Trim removes blanks (space, tab, CR, LF, VT, FF).
    // MakeLower/MakeUpper follow the C library's current locale, as the runtime does: in the
    // "C" locale only the ASCII letters change.
    CString& Trim();
    CString& TrimLeft();
    CString& TrimRight();
    CString& Trim(wchar_t ch);
    CString& TrimLeft(wchar_t ch);
    CString& TrimRight(wchar_t ch);
    CString& MakeLower();
    CString& MakeUpper();
    int Replace(const wchar_t* oldText, const wchar_t* newText); // returns the count replaced
    int Replace(wchar_t oldCh, wchar_t newCh);

    // printf-style formatting with the framework's wide conventions: %s and %c take wide
    // arguments (wchar_t*, wchar_t), %hs/%S and %hc/%C narrow ones (UTF-8, as the narrow
    // constructor reads them; text that is not UTF-8 throws CInvalidArgException); %ls stays
    // wide. Everything else follows the C library and its current locale (%d, %lu, %0*lu, %g,
    // %f, ...). Replaces the content.
    void Format(const wchar_t* format, ...);
    void FormatV(const wchar_t* format, va_list args);
    void AppendFormat(const wchar_t* format, ...);

    // Concatenation and assignment.
    CString& operator=(const wchar_t* text);
    CString& operator=(const char* utf8);
    CString& operator=(wchar_t ch);
    CString& operator+=(const CString& other) {
        m_text += other.m_text;
        return *this;
    }
    CString& operator+=(const wchar_t* text);
    CString& operator+=(wchar_t ch) {
        m_text += ch;
        return *this;
    }
    CString& operator+=(const char* utf8) { return *this += CString(utf8); }
    friend CString operator+(const CString& a, const CString& b) {
        return CString(a.m_text + b.m_text);
    }
    friend CString operator+(const CString& a, const wchar_t* b) {
        CString r(a);
        r += b;
        return r;
    }
    friend CString operator+(const wchar_t* a, const CString& b) {
        CString r(a);
        r += b;
        return r;
    }
    friend CString operator+(const CString& a, wchar_t b) {
        CString r(a);
        r += b;
        return r;
    }
    friend CString operator+(wchar_t a, const CString& b) {
        CString r(a);
        r += b;
        return r;
    }

    // Comparison (ordinal, by character code). Compare returns <0, 0, >0.
    int Compare(const wchar_t* other) const;
    int CompareNoCase(const wchar_t* other) const;
    friend bool operator==(const CString& a, const CString& b) { return a.m_text == b.m_text; }
    friend bool operator==(const CString& a, const wchar_t* b) { return a.Compare(b) == 0; }
    friend std::strong_ordering operator<=>(const CString& a, const CString& b) {
        return a.m_text <=> b.m_text;
    }
    friend std::strong_ordering operator<=>(const CString& a, const wchar_t* b) {
        return a.Compare(b) <=> 0;
    }

    // Conversions of this platform.
    const std::wstring& Str() const { return m_text; }
    std::string ToUtf8() const;
    // The text as a path; "\" counts as a separator, as on the host.
    std::filesystem::path ToPath() const;
    static CString FromPath(const std::filesystem::path& path);

private:
    std::wstring m_text;
};

std::ostream& operator<<(std::ostream& out, const CString& text); // UTF-8
std::wostream& operator<<(std::wostream& out, const CString& text);
