// VARIANT and _variant_t: kinds, ownership of strings, copies.
#include "host/com/com.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace {

class VariantTest : public ::testing::Test {
protected:
    void SetUp() override { m_live = host::com::LiveBstrCount(); }
    void TearDown() override { EXPECT_EQ(host::com::LiveBstrCount(), m_live) << "a BSTR leaked"; }

private:
    std::ptrdiff_t m_live = 0;
};

TEST_F(VariantTest, TagValuesOfTheSupportedKinds) {
    EXPECT_EQ(VT_EMPTY, 0);
    EXPECT_EQ(VT_I4, 3);
    EXPECT_EQ(VT_R8, 5);
    EXPECT_EQ(VT_BSTR, 8);
    EXPECT_EQ(VT_BOOL, 11);
    EXPECT_EQ(VARIANT_TRUE, -1);
    EXPECT_EQ(VARIANT_FALSE, 0);
}

TEST_F(VariantTest, ConstructionPicksTheKind) {
    EXPECT_EQ(_variant_t().vt, VT_EMPTY);

    const _variant_t i(42);
    EXPECT_EQ(i.vt, VT_I4);
    EXPECT_EQ(i.lVal, 42);

    const _variant_t l(-7L);
    EXPECT_EQ(l.vt, VT_I4);
    EXPECT_EQ(l.lVal, -7);

    const _variant_t d(2.5);
    EXPECT_EQ(d.vt, VT_R8);
    EXPECT_EQ(d.dblVal, 2.5);

    const _variant_t t(true), f(false);
    EXPECT_EQ(t.vt, VT_BOOL);
    EXPECT_EQ(t.boolVal, VARIANT_TRUE);
    EXPECT_EQ(f.boolVal, VARIANT_FALSE);

    const _variant_t s(L"Ďábel");
    EXPECT_EQ(s.vt, VT_BSTR);
    EXPECT_EQ(std::wstring(s.bstrVal, SysStringLen(s.bstrVal)), L"Ďábel");
}

TEST_F(VariantTest, LongOutsideThirtyTwoBitsOverflows) {
    try {
        _variant_t v(static_cast<long>(std::numeric_limits<LONG>::max()) + 1);
        FAIL() << "no exception";
    } catch (const _com_error& error) {
        EXPECT_EQ(error.Error(), DISP_E_OVERFLOW);
    }
    EXPECT_EQ(_variant_t(static_cast<long>(std::numeric_limits<LONG>::min())).lVal,
              std::numeric_limits<LONG>::min());
}

TEST_F(VariantTest, NullTextGivesANullBstr) {
    const _variant_t v(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(v.vt, VT_BSTR);
    EXPECT_EQ(v.bstrVal, nullptr);
}

TEST_F(VariantTest, WstringKeepsEmbeddedZeros) {
    const std::wstring text(L"a\0b", 3);
    const _variant_t v(text);
    EXPECT_EQ(SysStringLen(v.bstrVal), 3u);
    EXPECT_EQ(std::wstring(v.bstrVal, 3), text);
}

TEST_F(VariantTest, CopyOwnsItsOwnString) {
    _variant_t a(L"text");
    const auto live = host::com::LiveBstrCount();
    _variant_t b(a);
    EXPECT_EQ(host::com::LiveBstrCount(), live + 1);
    EXPECT_NE(a.bstrVal, b.bstrVal);
    EXPECT_TRUE(a == b);
    a.Clear();
    EXPECT_EQ(a.vt, VT_EMPTY);
    EXPECT_EQ(std::wstring(b.bstrVal), L"text");
}

TEST_F(VariantTest, MoveTransfersTheString) {
    _variant_t a(L"moved");
    const BSTR text = a.bstrVal;
    const auto live = host::com::LiveBstrCount();
    _variant_t b(std::move(a));
    EXPECT_EQ(host::com::LiveBstrCount(), live);
    EXPECT_EQ(b.bstrVal, text);
    EXPECT_EQ(a.vt, VT_EMPTY); // NOLINT: the moved-from state is defined
}

TEST_F(VariantTest, AssignmentFreesTheOldString) {
    _variant_t v(L"first");
    const auto live = host::com::LiveBstrCount();
    v = 3.0;
    EXPECT_EQ(host::com::LiveBstrCount(), live - 1);
    EXPECT_EQ(v.vt, VT_R8);
    v = L"second";
    v = _variant_t(L"third");
    EXPECT_EQ(std::wstring(v.bstrVal), L"third");
    const _variant_t& self = v;
    v = self;
    EXPECT_EQ(std::wstring(v.bstrVal), L"third");
    v = true;
    EXPECT_EQ(v.boolVal, VARIANT_TRUE);
    v = 5;
    EXPECT_EQ(v.lVal, 5);
}

TEST_F(VariantTest, ClearOfATagThatOwnsNothingFreesNothing) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_DISPATCH; // a kind this library never fills; a reader may set such a tag
    v.llVal = 0x1234;
    EXPECT_EQ(VariantClear(&v), S_OK);
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(VariantClear(nullptr), E_POINTER);
}

TEST_F(VariantTest, DetachHandsTheStringOver) {
    _variant_t v(L"owned");
    VARIANT raw = v.Detach();
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(raw.vt, VT_BSTR);
    EXPECT_EQ(VariantClear(&raw), S_OK);
}

TEST_F(VariantTest, VariantCopyDeepCopiesAndChecksPointers) {
    const _variant_t source(L"deep");
    VARIANT target;
    VariantInit(&target);
    ASSERT_EQ(VariantCopy(&target, &source), S_OK);
    EXPECT_NE(target.bstrVal, source.bstrVal);
    EXPECT_EQ(VariantCopy(nullptr, &source), E_POINTER);
    EXPECT_EQ(VariantCopy(&target, nullptr), E_POINTER);
    VariantClear(&target);
}

TEST_F(VariantTest, EqualityByKindAndValue) {
    EXPECT_TRUE(_variant_t(1) == _variant_t(1));
    EXPECT_FALSE(_variant_t(1) == _variant_t(1.0));
    EXPECT_FALSE(_variant_t(L"a") == _variant_t(L"b"));
    EXPECT_TRUE(_variant_t(L"") == _variant_t(static_cast<const wchar_t*>(nullptr)));
    EXPECT_FALSE(_variant_t(std::nan("")) == _variant_t(std::nan("")));
    EXPECT_TRUE(_variant_t() == _variant_t());
}

} // namespace
