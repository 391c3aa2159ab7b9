#include "host/framework/cstring.h"
#include "host/framework/exceptions.h"

#include <gtest/gtest.h>

#include <chrono>
#include <clocale>
#include <sstream>
#include <string>

namespace {

TEST(CStringTest, ConstructsFromWideAndNarrowText) {
    CString wide(L"Deska č. 1");
    CString narrow("Deska \xC4\x8D. 1");
    EXPECT_EQ(wide, narrow);
    EXPECT_EQ(wide.GetLength(), 10);
    EXPECT_TRUE(CString().IsEmpty());
    EXPECT_TRUE(CString(static_cast<const wchar_t*>(nullptr)).IsEmpty());
    EXPECT_EQ(CString(L'x', 3), L"xxx");
    EXPECT_EQ(CString(L"abcdef", 3), L"abc");
    EXPECT_EQ(CString(std::string("abc")), L"abc");
}

TEST(CStringTest, MidLeftRightAreClamped) {
    CString s(L"0123456789");
    EXPECT_EQ(s.Mid(3), L"3456789");
    EXPECT_EQ(s.Mid(3, 4), L"3456");
    EXPECT_EQ(s.Mid(8, 15), L"89");
    EXPECT_EQ(s.Mid(20, 15), L"");
    EXPECT_EQ(s.Mid(-2, 3), L"012");
    EXPECT_EQ(s.Mid(2, -1), L"");
    EXPECT_EQ(s.Left(4), L"0123");
    EXPECT_EQ(s.Left(40), s);
    EXPECT_EQ(s.Right(3), L"789");
    EXPECT_EQ(s.Right(30), s);
}

TEST(CStringTest, FixedColumnsOfAShortLineGiveShortOrEmptyFields) {
    CString line(L"       1       1   1.5");
    EXPECT_EQ(line.Mid(0, 8), L"       1");
    EXPECT_EQ(line.Mid(16, 15), L"   1.5");
    EXPECT_EQ(line.Mid(31, 15), L"");
}

TEST(CStringTest, TrimRemovesBlanksOnBothSidesInPlace) {
    CString s(L" \t MX \r\n");
    CString& same = s.Trim();
    EXPECT_EQ(&same, &s);
    EXPECT_EQ(s, L"MX");
    CString l(L"  a b  ");
    EXPECT_EQ(CString(l).TrimLeft(), L"a b  ");
    EXPECT_EQ(CString(l).TrimRight(), L"  a b");
    EXPECT_EQ(CString(L"xxaxx").Trim(L'x'), L"a");
    EXPECT_EQ(CString(L"   ").Trim(), L"");
}

TEST(CStringTest, MakeLowerAndUpper) {
    CString s(L"Nx QYZ igX");
    EXPECT_EQ(s.MakeLower(), CString(L"nx qyz igx"));
    EXPECT_EQ(s.MakeUpper(), CString(L"NX QYZ IGX"));
}

TEST(CStringTest, CaseOfLettersBeyondAsciiFollowsTheLocale) {
    // As in the C runtime: the "C" locale changes only A-Z and a-z.
    CString s(L"Žluť");
    EXPECT_EQ(CString(s).MakeLower(), CString(L"Žluť"));
}

TEST(CStringTest, FormatPadsTheLoadCaseToFourDigitsAndNeverCuts) {
    CString s;
    s.Format(L".STRINTG%0*lu", 4, 7ul);
    EXPECT_EQ(s, L".STRINTG0007");
    s.Format(L".STRINTG%0*lu", 4, 12345ul);
    EXPECT_EQ(s, L".STRINTG12345");
    s.Format(L".STRINTG%0*lu", 4, 0ul);
    EXPECT_EQ(s, L".STRINTG0000");
}

TEST(CStringTest, FormatTakesWideStringsForPercentS) {
    CString s;
    s.Format(L"%s-%d-%hs-%S-%ls-%c-%.3f-%%", L"wide", -5, "narrow", "narrow2", L"w2", L'c', 1.5);
    EXPECT_EQ(s, L"wide--5-narrow-narrow2-w2-c-1.500-%");
    s.Format(L"%I64d", static_cast<long long>(1) << 40);
    EXPECT_EQ(s, L"1099511627776");
}

TEST(CStringTest, FormatReadsNarrowArgumentsAsUtf8WhateverTheLocale) {
    // The narrow constructor reads UTF-8; Format's narrow arguments do too, also in the "C"
    // locale, and the numeric locale still decides the decimal separator.
    const std::string savedCtype = std::setlocale(LC_CTYPE, nullptr);
    const std::string savedNumeric = std::setlocale(LC_NUMERIC, nullptr);
    std::setlocale(LC_CTYPE, "C");
    std::setlocale(LC_NUMERIC, "C");
    CString s;
    s.Format(L"%hs|%S|%.1f",
             "Ve\xc4\x8D"
             "ern\xC3\xAD",
             "stropn\xC3\xAD deska", 2.5);
    EXPECT_EQ(s, L"Ve\u010Dern\u00ED|stropn\u00ED deska|2.5");
    EXPECT_EQ(CString(L"Ve\u010Dern\u00ED"), CString("Ve\xc4\x8D"
                                                     "ern\xC3\xAD"));
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr) {
        s.Format(L"%hs %.1f", "\xC3\xA9", 2.5);
        EXPECT_EQ(s, L"\u00E9 2,5");
    }
    std::setlocale(LC_NUMERIC, savedNumeric.c_str());
    // Text that is not UTF-8 is refused at once, and the thread's locale is as before.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(s.Format(L"%hs", "\xff\xfe"), CInvalidArgException);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_EQ(std::string(std::setlocale(LC_CTYPE, nullptr)), "C");
    std::setlocale(LC_CTYPE, savedCtype.c_str());
}

TEST(CStringTest, FormatGrowsForLongOutput) {
    std::wstring big(5000, L'a');
    CString s;
    s.Format(L"<%s>", big.c_str());
    EXPECT_EQ(s.GetLength(), 5002);
    s.AppendFormat(L"%d", 42);
    EXPECT_EQ(s.Right(3), L">42");
}

TEST(CStringTest, ConcatenationAndComparison) {
    CString a(L"proj");
    CString b = a + L".GAR";
    EXPECT_EQ(b, L"proj.GAR");
    EXPECT_EQ(L"x" + a, L"xproj");
    EXPECT_EQ(a + L'!', L"proj!");
    a += CString(L"/m1");
    a += "_n";
    EXPECT_EQ(a, L"proj/m1_n");
    EXPECT_NE(a, b);
    EXPECT_LT(CString(L"abc"), CString(L"abd"));
    EXPECT_LT(CString(L"abc"), L"abd");
    EXPECT_EQ(CString(L"abc").Compare(L"abc"), 0);
    EXPECT_LT(CString(L"ABC").Compare(L"abc"), 0);
    EXPECT_EQ(CString(L"ABC").CompareNoCase(L"abc"), 0);
}

TEST(CStringTest, FindAndReplace) {
    CString s(L"a.b.c");
    EXPECT_EQ(s.Find(L'.'), 1);
    EXPECT_EQ(s.Find(L'.', 2), 3);
    EXPECT_EQ(s.Find(L"b.c"), 2);
    EXPECT_EQ(s.Find(L'x'), -1);
    EXPECT_EQ(s.ReverseFind(L'.'), 3);
    EXPECT_EQ(s.Replace(L".", L"::"), 2);
    EXPECT_EQ(s, L"a::b::c");
    EXPECT_EQ(s.Replace(L':', L'-'), 4);
}

TEST(CStringTest, IndexOutsideTheTextThrowsTheInvalidArgumentException) {
    CString s(L"ab");
    EXPECT_EQ(s.GetAt(1), L'b');
    EXPECT_EQ(s[0], L'a');
    EXPECT_THROW(s.GetAt(2), CInvalidArgException);
    EXPECT_THROW(s.GetAt(-1), CInvalidArgException);
}

TEST(CStringTest, ConvertsToPathsAndUtf8) {
    CString p(L"/tmp/proj\\m1");
    EXPECT_EQ(p.ToPath(), std::filesystem::path("/tmp/proj/m1"));
    EXPECT_EQ(CString::FromPath(std::filesystem::path("/a/b.msh")), L"/a/b.msh");
    EXPECT_EQ(CString(L"ž").ToUtf8(), "\xC5\xBE");
    std::ostringstream out;
    out << CString(L"ok");
    EXPECT_EQ(out.str(), "ok");
    const wchar_t* raw = p; // LPCTSTR conversion
    EXPECT_EQ(std::wstring(raw), L"/tmp/proj\\m1");
}

TEST(AfxThrowInvalidArgExceptionTest, ThrowsAStdExceptionTheDriverCanCatch) {
    EXPECT_THROW(AfxThrowInvalidArgException(), CInvalidArgException);
    EXPECT_THROW(AfxThrowInvalidArgException(), std::exception);
    try {
        AfxThrowInvalidArgException();
    } catch (const CException& e) {
        EXPECT_STREQ(e.what(), "invalid argument");
    }
}

} // namespace
