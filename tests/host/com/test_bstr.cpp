// BSTR allocation, length and lifetime rules.
#include "host/com/com.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

class BstrTest : public ::testing::Test {
protected:
    void SetUp() override { m_live = host::com::LiveBstrCount(); }
    void TearDown() override { EXPECT_EQ(host::com::LiveBstrCount(), m_live) << "a BSTR leaked"; }

private:
    std::ptrdiff_t m_live = 0;
};

TEST_F(BstrTest, AllocStringCopiesUpToTheTerminator) {
    BSTR text = SysAllocString(L"Žluťoučký kůň");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(SysStringLen(text), 13u);
    EXPECT_EQ(SysStringByteLen(text), 13u * sizeof(wchar_t));
    EXPECT_EQ(std::wstring(text), L"Žluťoučký kůň");
    EXPECT_EQ(text[13], L'\0');
    SysFreeString(text);
}

TEST_F(BstrTest, AllocStringOfNullIsNull) {
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
}

TEST_F(BstrTest, AllocStringLenKeepsEmbeddedZeros) {
    const wchar_t source[] = {L'a', L'\0', L'b', L'c'};
    BSTR text = SysAllocStringLen(source, 4);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(SysStringLen(text), 4u);
    EXPECT_EQ(std::wstring(text, SysStringLen(text)), std::wstring(source, 4));
    EXPECT_EQ(text[4], L'\0');
    SysFreeString(text);
}

TEST_F(BstrTest, AllocStringLenWithoutSourceGivesZeroedCharacters) {
    BSTR text = SysAllocStringLen(nullptr, 5);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(SysStringLen(text), 5u);
    for (int i = 0; i <= 5; ++i)
        EXPECT_EQ(text[i], L'\0');
    SysFreeString(text);
}

TEST_F(BstrTest, EmptyStringIsNotNull) {
    BSTR text = SysAllocString(L"");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(SysStringLen(text), 0u);
    EXPECT_EQ(text[0], L'\0');
    SysFreeString(text);
}

TEST_F(BstrTest, NullIsAValidEmptyString) {
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    SysFreeString(nullptr); // does nothing
}

TEST_F(BstrTest, LiveCountFollowsAllocationsAndFrees) {
    const auto before = host::com::LiveBstrCount();
    BSTR a = SysAllocString(L"a");
    BSTR b = SysAllocStringLen(L"bc", 2);
    EXPECT_EQ(host::com::LiveBstrCount(), before + 2);
    SysFreeString(a);
    EXPECT_EQ(host::com::LiveBstrCount(), before + 1);
    SysFreeString(b);
    EXPECT_EQ(host::com::LiveBstrCount(), before);
}

TEST_F(BstrTest, ReAllocReplacesAndFreesTheOldString) {
    BSTR text = SysAllocString(L"old");
    const auto live = host::com::LiveBstrCount();
    ASSERT_EQ(SysReAllocString(&text, L"newer"), TRUE);
    EXPECT_EQ(host::com::LiveBstrCount(), live);
    EXPECT_EQ(std::wstring(text), L"newer");
    EXPECT_EQ(SysReAllocString(nullptr, L"x"), FALSE);
    SysFreeString(text);
}

TEST_F(BstrTest, CharactersAreAlignedForWchar) {
    BSTR text = SysAllocString(L"x");
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text) % alignof(wchar_t), 0u);
    SysFreeString(text);
}

} // namespace
