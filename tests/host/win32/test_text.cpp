#include "host/win32/text.h"

#include <gtest/gtest.h>

namespace {

TEST(TextTest, Utf8RoundTripOfCzechAndWiderCharacters) {
    std::wstring text = L"Problém s žlutým koněm \u20AC \U0001F600";
    std::string utf8 = host::win32::WideToUtf8(text);
    EXPECT_EQ(utf8,
              "Probl\xC3\xA9m s \xC5\xBElut\xC3\xBDm kon\xC4\x9Bm \xE2\x82\xAC \xF0\x9F\x98\x80");
    EXPECT_EQ(host::win32::Utf8ToWide(utf8), text);
}

TEST(TextTest, BytesThatAreNotUtf8AreReadAsLatin1) {
    // 0xE9 alone is "é" in Latin-1; an overlong encoding of "/" is not accepted either.
    EXPECT_EQ(host::win32::Utf8ToWide("caf\xE9"), L"caf\u00E9");
    EXPECT_EQ(host::win32::Utf8ToWide("\xC0\xAF"), std::wstring(L"\u00C0\u00AF"));
    EXPECT_EQ(host::win32::Utf8ToWide("\xE2\x82"), std::wstring(L"\u00E2\u0082")); // cut short
}

TEST(TextTest, SurrogatesAreNotEncoded) {
    std::wstring bad(1, static_cast<wchar_t>(0xD800));
    EXPECT_EQ(host::win32::WideToUtf8(bad), "\xEF\xBF\xBD");
}

TEST(TextTest, BackslashesSeparatePathComponents) {
    EXPECT_EQ(host::win32::ToNativePath(L"proj\\sub\\m1.GAR"),
              std::filesystem::path("proj/sub/m1.GAR"));
    EXPECT_EQ(host::win32::ToNativePath(L"/tmp/x\\backup_m1.GAR").filename(), "backup_m1.GAR");
    EXPECT_EQ(host::win32::ToNativePath(L"/tmp/a/b.msh"), std::filesystem::path("/tmp/a/b.msh"));
}

} // namespace
