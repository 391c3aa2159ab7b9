// _ar::archive over a counting test double: references, checks, comparisons, conversions, the
// slot every operator calls and the variant encoding.
#include "adaptivity/archive/Archive.h"

#include "counting_archive.h"

#include "tests/support/com_error.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using archive_test::CountingArchive;

using slabadapt::test::ComErrorOf;

class WrapperTest : public ::testing::Test {
protected:
    void SetUp() override { m_live = host::com::LiveBstrCount(); }
    void TearDown() override {
        EXPECT_EQ(host::com::LiveBstrCount(), m_live) << "a BSTR leaked";
        EXPECT_EQ(m_double.unusedCalls, 0) << "the wrapper called a slot it must not use";
    }

    CountingArchive m_double;

private:
    std::ptrdiff_t m_live = 0;
};

// ----- empty wrapper and comparisons

TEST_F(WrapperTest, EmptyWrapperEqualsZero) {
    EXPECT_TRUE(_ar::archive(nullptr) == 0);
    EXPECT_FALSE(_ar::archive(nullptr) != 0);
    EXPECT_FALSE(static_cast<bool>(_ar::archive(nullptr)));
    EXPECT_EQ(static_cast<IKQ_Archive*>(_ar::archive(nullptr)), nullptr);
    EXPECT_TRUE(_ar::archive() == 0);
}

TEST_F(WrapperTest, ComparingWithNonzeroRaisesInvalidPointer) {
    EXPECT_EQ(ComErrorOf([] { (void)(_ar::archive(nullptr) == 1); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([] { (void)(_ar::archive(nullptr) != 1); }), E_POINTER);
    const _ar::archive held(&m_double);
    EXPECT_EQ(ComErrorOf([&] { (void)(held == 1); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { (void)(held != -1); }), E_POINTER);
    EXPECT_FALSE(held == 0);
    EXPECT_TRUE(held != 0);
    EXPECT_TRUE(static_cast<bool>(held));
}

TEST_F(WrapperTest, EveryUseOfAnEmptyWrapperRaisesInvalidPointer) {
    _ar::archive ar(nullptr);
    int i = 0;
    double d = 0;
    CString s;
    _variant_t v;
    char buffer[4];
    EXPECT_EQ(static_cast<std::uint32_t>(ComErrorOf([&] { ar.IsLoading(); })), 0x80004003u);
    EXPECT_EQ(ComErrorOf([&] { ar.IsStoring(); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar.Version(); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar.PutVersion(1); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar.Read(buffer, 4); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar.Write(buffer, 4); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar << 1; }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar << 5000000000L; }), E_POINTER); // emptiness before range
    EXPECT_EQ(ComErrorOf([&] { ar << CString(L"x"); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar << _variant_t(1.0); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar >> i; }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar >> d; }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar >> s; }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar >> v; }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { (void)ar.operator->(); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { (void)static_cast<IUnknown*>(ar); }), E_POINTER);
}

// ----- references

TEST_F(WrapperTest, ConstructionTakesAReferenceAndDestructionReleasesIt) {
    {
        _ar::archive ar(&m_double);
        EXPECT_EQ(m_double.addRefs, 1);
        EXPECT_EQ(m_double.releases, 0);
    }
    EXPECT_EQ(m_double.releases, 1);
    EXPECT_EQ(m_double.References(), 0);
}

TEST_F(WrapperTest, CopyAndDestroyBothReleasesExactlyTwice) {
    {
        _ar::archive first(&m_double);
        _ar::archive second(first);
        EXPECT_EQ(m_double.addRefs, 2);
        EXPECT_EQ(static_cast<IKQ_Archive*>(second), &m_double);
    }
    EXPECT_EQ(m_double.releases, 2);
    EXPECT_EQ(m_double.References(), 0);
}

TEST_F(WrapperTest, AssigningTheSamePointerDoesNothing) {
    _ar::archive a(&m_double);
    _ar::archive b(&m_double);
    ASSERT_EQ(m_double.addRefs, 2);
    a = b;
    const _ar::archive& self = a;
    a = self;
    EXPECT_EQ(m_double.addRefs, 2);
    EXPECT_EQ(m_double.releases, 0);
}

TEST_F(WrapperTest, AssignmentTakesTheNewReferenceBeforeReleasingTheOld) {
    std::vector<std::string> events;
    CountingArchive other;
    m_double.events = &events;
    other.events = &events;
    {
        _ar::archive a(&m_double);
        const _ar::archive b(&other);
        events.clear();
        a = b;
        EXPECT_EQ(events, (std::vector<std::string>{"AddRef", "Release"}));
        EXPECT_EQ(m_double.References(), 0);
        EXPECT_EQ(other.References(), 2);
        a = _ar::archive(nullptr);
        EXPECT_EQ(other.References(), 1);
        EXPECT_TRUE(a == 0);
        _ar::archive c;
        c = b; // from empty
        EXPECT_EQ(other.References(), 2);
    }
    EXPECT_EQ(other.References(), 0);
    EXPECT_EQ(m_double.References(), 0);
}

TEST_F(WrapperTest, RawPointerAccessAddsNoReference) {
    _ar::archive ar(&m_double);
    EXPECT_EQ(static_cast<IKQ_Archive*>(ar), &m_double);
    EXPECT_EQ(ar.operator->(), &m_double);
    EXPECT_EQ(m_double.References(), 1);
}

TEST_F(WrapperTest, IUnknownConversionAsksForIUnknownAndGivesNoReference) {
    _ar::archive ar(&m_double);
    IUnknown* unknown = ar;
    EXPECT_EQ(unknown, static_cast<IUnknown*>(&m_double));
    ASSERT_EQ(m_double.calls.size(), 1u);
    EXPECT_EQ(m_double.calls[0].slot, 0);
    EXPECT_EQ(m_double.calls[0].guid, IID_IUnknown);
    EXPECT_EQ(m_double.References(), 1); // the reference QueryInterface gave went back

    m_double.queryAnswer = E_NOINTERFACE;
    EXPECT_EQ(ComErrorOf([&] { (void)static_cast<IUnknown*>(ar); }), E_NOINTERFACE);
    EXPECT_EQ(m_double.References(), 1);
}

// ----- unchecked and checked queries

TEST_F(WrapperTest, DirectionIsANonzeroFlag) {
    _ar::archive ar(&m_double);
    m_double.loadingFlag = 7;
    m_double.storingFlag = 0;
    EXPECT_TRUE(ar.IsLoading());
    EXPECT_FALSE(ar.IsStoring());
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{3, 4}));
}

TEST_F(WrapperTest, DirectionAndVersionDoNotCheckTheirHresult) {
    _ar::archive ar(&m_double);
    m_double.scribble = false;
    m_double.answers = {{3, E_FAIL}, {4, E_FAIL}, {29, E_FAIL}, {30, E_FAIL}};
    EXPECT_NO_THROW(EXPECT_FALSE(ar.IsLoading()));
    EXPECT_NO_THROW(EXPECT_FALSE(ar.IsStoring()));
    EXPECT_NO_THROW(EXPECT_EQ(ar.Version(), 0));
    EXPECT_NO_THROW(ar.PutVersion(4));
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{3, 4, 29, 30}));
}

TEST_F(WrapperTest, VersionSlots) {
    _ar::archive ar(&m_double);
    m_double.version = -3;
    EXPECT_EQ(ar.Version(), -3);
    ar.PutVersion(12);
    ASSERT_EQ(m_double.Slots(), (std::vector<int>{29, 30}));
    EXPECT_EQ(m_double.calls[1].integer, 12);
}

TEST_F(WrapperTest, ReadAnswersWhatTheInterfaceReports) {
    _ar::archive ar(&m_double);
    char buffer[8] = {};
    m_double.bytesRead = 0;
    EXPECT_EQ(ar.Read(buffer, 0), 0u);
    m_double.bytesRead = 5;
    EXPECT_EQ(ar.Read(buffer, 8), 5u);
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{5, 5}));
    EXPECT_EQ(m_double.calls[1].integer, 8);

    m_double.answers[5] = STG_E_READFAULT;
    EXPECT_EQ(ComErrorOf([&] { ar.Read(buffer, 8); }), STG_E_READFAULT);
    // A short read is a success code and passes the check.
    m_double.answers[5] = S_FALSE;
    m_double.bytesRead = 2;
    EXPECT_EQ(ar.Read(buffer, 8), 2u);
}

TEST_F(WrapperTest, WriteIsChecked) {
    _ar::archive ar(&m_double);
    ar.Write("abc", 3);
    ASSERT_EQ(m_double.Slots(), (std::vector<int>{6}));
    EXPECT_EQ(m_double.calls[0].text, L"abc");
    m_double.answers[6] = STG_E_MEDIUMFULL;
    EXPECT_EQ(ComErrorOf([&] { ar.Write("abc", 3); }), STG_E_MEDIUMFULL);
}

TEST_F(WrapperTest, ByteCountsBeyondThirtyTwoBitsOverflow) {
    _ar::archive ar(&m_double);
    char buffer[1];
    const unsigned long tooMany = 0x100000000ul;
    EXPECT_EQ(ComErrorOf([&] { ar.Read(buffer, tooMany); }), DISP_E_OVERFLOW);
    EXPECT_EQ(ComErrorOf([&] { ar.Write(buffer, tooMany); }), DISP_E_OVERFLOW);
    EXPECT_TRUE(m_double.calls.empty());
}

// ----- CheckError

TEST_F(WrapperTest, CheckErrorRaisesForNegativeOnly) {
    _ar::archive ar(&m_double);
    EXPECT_NO_THROW(ar.CheckError(0));
    EXPECT_NO_THROW(ar.CheckError(1));
    EXPECT_NO_THROW(ar.CheckError(0x7FFFFFFF));
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(E_FAIL); }), E_FAIL);
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(-1); }), -1);
    _ar::archive empty(nullptr);
    EXPECT_EQ(ComErrorOf([&] { empty.CheckError(STG_E_INVALIDHEADER); }), STG_E_INVALIDHEADER);
    EXPECT_NO_THROW(empty.CheckError(S_OK)); // needs no interface
}

TEST_F(WrapperTest, CheckErrorReturnsForEveryPositiveLong) {
    _ar::archive ar(&m_double);
    // long is 64-bit here: these are positive values, not failing HRESULTs, and pass.
    EXPECT_NO_THROW(ar.CheckError(S_FALSE));
    EXPECT_NO_THROW(ar.CheckError(0x80004005L));
    EXPECT_NO_THROW(ar.CheckError(0xFFFFFFFFL));
    EXPECT_NO_THROW(ar.CheckError(0x100000000L));
    EXPECT_NO_THROW(ar.CheckError(std::numeric_limits<long>::max()));
}

TEST_F(WrapperTest, CheckErrorRaisesEveryNegativeLong) {
    _ar::archive ar(&m_double);
    // Each failing HRESULT, as the interface answers it, travels unchanged.
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(static_cast<long>(E_FAIL)); }), E_FAIL);
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(std::numeric_limits<std::int32_t>::min()); }),
              std::numeric_limits<std::int32_t>::min());
    // Below the HRESULT range no code can carry the value: E_UNEXPECTED, whatever its low bits.
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(-0x100000000L); }), E_UNEXPECTED);
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(-0x100000000L + 1); }), E_UNEXPECTED);
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(-0x100000000L + static_cast<long>(E_FAIL)); }),
              E_UNEXPECTED);
    EXPECT_EQ(ComErrorOf([&] { ar.CheckError(std::numeric_limits<long>::min()); }), E_UNEXPECTED);
}

// ----- storing: slots and values

TEST_F(WrapperTest, EachStoreOperatorCallsItsSlot) {
    _ar::archive ar(&m_double);
    const GUID guid = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    wchar_t wide[] = L"wide";
    ar << true << static_cast<unsigned char>(200) << static_cast<short>(-300) << -70000
       << static_cast<long>(-80000) << 4000000000ul << static_cast<__int64>(-5)
       << static_cast<unsigned __int64>(6) << 1.5f << 2.5 << guid << CString(L"cs")
       << std::wstring(L"ws") << L"literal" << wide;

    EXPECT_EQ(m_double.Slots(),
              (std::vector<int>{8, 8, 10, 12, 12, 19, 38, 40, 14, 16, 32, 18, 18, 18, 36}));
    const auto& c = m_double.calls;
    EXPECT_EQ(c[0].integer, 1);
    EXPECT_EQ(c[1].integer, 200);
    EXPECT_EQ(c[2].integer, -300);
    EXPECT_EQ(c[3].integer, -70000);
    EXPECT_EQ(c[4].integer, -80000);
    EXPECT_EQ(c[5].unsignedValue, 4000000000u);
    EXPECT_EQ(c[6].integer, -5);
    EXPECT_EQ(c[7].unsignedValue, 6u);
    EXPECT_EQ(c[8].real, 1.5);
    EXPECT_EQ(c[9].real, 2.5);
    EXPECT_EQ(c[10].guid, guid);
    EXPECT_EQ(c[11].text, L"cs");
    EXPECT_EQ(c[12].text, L"ws");
    EXPECT_EQ(c[13].text, L"literal");
    EXPECT_EQ(c[14].text, L"wide");
}

TEST_F(WrapperTest, StringsTravelAsTemporaryBstrsThatAreFreed) {
    _ar::archive ar(&m_double);
    const std::wstring withZero(L"a\0b", 3);
    ar << CString(withZero) << withZero << CString();
    ASSERT_EQ(m_double.Slots(), (std::vector<int>{18, 18, 18}));
    EXPECT_EQ(m_double.calls[0].text, withZero); // embedded zeros kept
    EXPECT_EQ(m_double.calls[1].text, withZero);
    EXPECT_EQ(m_double.calls[2].text, L"");
    // The leak check of the fixture proves the temporaries were freed.
}

TEST_F(WrapperTest, NullConstTextIsStoredAsAnEmptyCString) {
    _ar::archive ar(&m_double);
    ar << static_cast<const wchar_t*>(nullptr);
    ASSERT_EQ(m_double.Slots(), (std::vector<int>{18}));
    EXPECT_EQ(m_double.calls[0].text, L"");
}

TEST_F(WrapperTest, LongsOutsideThirtyTwoBitsOverflowAndWriteNothing) {
    _ar::archive ar(&m_double);
    EXPECT_EQ(ComErrorOf([&] { ar << 0x80000000L; }), DISP_E_OVERFLOW);
    EXPECT_EQ(ComErrorOf([&] { ar << -0x80000001L; }), DISP_E_OVERFLOW);
    EXPECT_EQ(ComErrorOf([&] { ar << 0x100000000ul; }), DISP_E_OVERFLOW);
    EXPECT_TRUE(m_double.calls.empty());
    ar << static_cast<long>(std::numeric_limits<std::int32_t>::min()) << 0xFFFFFFFFul;
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{12, 19}));
}

TEST_F(WrapperTest, EveryStoreChecksItsHresult) {
    _ar::archive ar(&m_double);
    const HRESULT failure = STG_E_WRITEFAULT;
    for (int slot : {6, 8, 10, 12, 14, 16, 18, 19, 32, 36, 38, 40})
        m_double.answers[slot] = failure;
    wchar_t wide[] = L"w";
    const std::vector<std::function<void()>> stores = {
        [&] { ar << true; },
        [&] { ar << static_cast<unsigned char>(1); },
        [&] { ar << static_cast<short>(1); },
        [&] { ar << 1; },
        [&] { ar << 1L; },
        [&] { ar << 1ul; },
        [&] { ar << static_cast<__int64>(1); },
        [&] { ar << static_cast<unsigned __int64>(1); },
        [&] { ar << 1.0f; },
        [&] { ar << 1.0; },
        [&] { ar << GUID_NULL; },
        [&] { ar << CString(L"x"); },
        [&] { ar << std::wstring(L"x"); },
        [&] { ar << L"x"; },
        [&] { ar << wide; },
        [&] { ar.Write("x", 1); },
    };
    for (std::size_t i = 0; i < stores.size(); ++i)
        EXPECT_EQ(ComErrorOf(stores[i]), failure) << "store #" << i;
}

// ----- loading: slots, values and the old value kept on failure

TEST_F(WrapperTest, EachLoadOperatorCallsItsSlot) {
    _ar::archive ar(&m_double);
    m_double.byteValue = 0x80;
    m_double.shortValue = -2;
    m_double.longValue = -3;
    m_double.ulongValue = 0xFFFFFFFFu;
    m_double.int64Value = std::numeric_limits<LONGLONG>::min();
    m_double.uint64Value = std::numeric_limits<ULONGLONG>::max();
    m_double.floatValue = 0.25f;
    m_double.doubleValue = -0.5;
    m_double.guidValue = {9, 8, 7, {6, 5, 4, 3, 2, 1, 0, 255}};
    m_double.stringValue = L"Příliš žluťoučký kůň";

    bool b = false;
    unsigned char uc = 0;
    short s = 0;
    int i = 0;
    long l = 0;
    unsigned long ul = 0;
    __int64 ll = 0;
    unsigned __int64 ull = 0;
    float f = 0;
    double d = 0;
    GUID g1 = GUID_NULL, g2 = GUID_NULL;
    CString cs;
    std::wstring ws;
    wchar_t* wide = nullptr;
    ar >> b >> uc >> s >> i >> l >> ul >> ll >> ull >> f >> d >> g1 >> &g2 >> cs >> ws >> &wide;

    EXPECT_EQ(m_double.Slots(),
              (std::vector<int>{7, 7, 9, 11, 11, 20, 37, 39, 13, 15, 31, 31, 17, 17, 35}));
    EXPECT_TRUE(b);
    EXPECT_EQ(uc, 0x80);
    EXPECT_EQ(s, -2);
    EXPECT_EQ(i, -3);
    EXPECT_EQ(l, -3); // sign-extended into the 64-bit long
    EXPECT_EQ(ul, 0xFFFFFFFFul);
    EXPECT_EQ(ll, std::numeric_limits<LONGLONG>::min());
    EXPECT_EQ(ull, std::numeric_limits<ULONGLONG>::max());
    EXPECT_EQ(f, 0.25f);
    EXPECT_EQ(d, -0.5);
    EXPECT_EQ(g1, m_double.guidValue);
    EXPECT_EQ(g2, m_double.guidValue);
    EXPECT_EQ(cs, CString(L"Příliš žluťoučký kůň"));
    EXPECT_EQ(ws, L"Příliš žluťoučký kůň");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(std::wstring(wide), L"Příliš žluťoučký kůň");
    SysFreeString(wide); // the caller owns what slot 35 provided
}

TEST_F(WrapperTest, BoolLoadsTrueForAnyNonzeroByte) {
    _ar::archive ar(&m_double);
    bool b = false;
    m_double.byteValue = 0xFF;
    ar >> b;
    EXPECT_TRUE(b);
    m_double.byteValue = 0;
    ar >> b;
    EXPECT_FALSE(b);
}

TEST_F(WrapperTest, FailingLoadRaisesAndKeepsTheTarget) {
    _ar::archive ar(&m_double);
    const HRESULT failure = IKQ_E_ARCHIVE_EOF;
    for (int slot : {5, 7, 9, 11, 13, 15, 17, 20, 31, 35, 37, 39})
        m_double.answers[slot] = failure;

    bool b = true;
    unsigned char uc = 1;
    short s = 2;
    int i = 3;
    long l = 4;
    unsigned long ul = 5;
    __int64 ll = 6;
    unsigned __int64 ull = 7;
    float f = 8;
    double d = 9;
    const GUID before = {1, 1, 1, {1, 1, 1, 1, 1, 1, 1, 1}};
    GUID g1 = before, g2 = before;
    CString cs(L"old");
    std::wstring ws(L"old");
    wchar_t* wide = nullptr;

    EXPECT_EQ(ComErrorOf([&] { ar >> b; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> uc; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> s; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> i; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> l; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> ul; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> ll; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> ull; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> f; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> d; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> g1; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> &g2; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> cs; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> ws; }), failure);
    EXPECT_EQ(ComErrorOf([&] { ar >> &wide; }), failure);

    EXPECT_TRUE(b);
    EXPECT_EQ(uc, 1);
    EXPECT_EQ(s, 2);
    EXPECT_EQ(i, 3);
    EXPECT_EQ(l, 4);
    EXPECT_EQ(ul, 5u);
    EXPECT_EQ(ll, 6);
    EXPECT_EQ(ull, 7u);
    EXPECT_EQ(f, 8);
    EXPECT_EQ(d, 9);
    EXPECT_EQ(g1, before);
    EXPECT_EQ(g2, before);
    EXPECT_EQ(cs, CString(L"old"));
    EXPECT_EQ(ws, L"old");
    EXPECT_EQ(wide, nullptr);
    // The strings the failing calls left behind were freed (fixture's leak check).
}

TEST_F(WrapperTest, NullGuidPointerAndNullStringSlot) {
    _ar::archive ar(&m_double);
    EXPECT_EQ(ComErrorOf([&] { ar >> static_cast<GUID*>(nullptr); }), E_POINTER);
    EXPECT_EQ(ComErrorOf([&] { ar >> static_cast<wchar_t**>(nullptr); }), E_POINTER);
    EXPECT_TRUE(m_double.calls.empty());
}

TEST_F(WrapperTest, OperatorsChainOnTheSameArchive) {
    _ar::archive ar(&m_double);
    _ar::archive& result = (ar << 1 << 2.0);
    EXPECT_EQ(&result, &ar);
    int i = 0;
    EXPECT_EQ(&(ar >> i), &ar);
}

// ----- variants

TEST_F(WrapperTest, VariantStoreWritesTheTagThenTheValue) {
    _ar::archive ar(&m_double);
    ar << _variant_t() << _variant_t(2.5) << _variant_t(L"ř") << _variant_t(true)
       << _variant_t(false);
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{12, 12, 16, 12, 18, 12, 8, 12, 8}));
    const auto& c = m_double.calls;
    EXPECT_EQ(c[0].integer, VT_EMPTY);
    EXPECT_EQ(c[1].integer, VT_R8);
    EXPECT_EQ(c[2].real, 2.5);
    EXPECT_EQ(c[3].integer, VT_BSTR);
    EXPECT_EQ(c[4].text, L"ř");
    EXPECT_EQ(c[5].integer, VT_BOOL);
    EXPECT_EQ(c[6].integer, 0xFF); // the low byte of VARIANT_TRUE
    EXPECT_EQ(c[8].integer, 0);
}

TEST_F(WrapperTest, VariantOfTypeI4WritesItsTagThenRaisesInvalidArgument) {
    _ar::archive ar(&m_double);
    EXPECT_THROW(ar << _variant_t(7), CInvalidArgException);
    ASSERT_EQ(m_double.Slots(), (std::vector<int>{12}));
    EXPECT_EQ(m_double.calls[0].integer, 3);
}

TEST_F(WrapperTest, StoredTrueLoadsAsOneNotMinusOne) {
    _ar::archive ar(&m_double);
    ar << _variant_t(true);
    m_double.longValue = static_cast<LONG>(m_double.calls[0].integer);
    m_double.byteValue = static_cast<BYTE>(m_double.calls[1].integer);
    m_double.calls.clear();

    _variant_t loaded;
    ar >> loaded;
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{11, 7}));
    EXPECT_EQ(loaded.vt, VT_BOOL);
    EXPECT_EQ(loaded.boolVal, 1);
    EXPECT_NE(loaded.boolVal, VARIANT_TRUE);
}

TEST_F(WrapperTest, VariantLoadOfEachSupportedTag) {
    _ar::archive ar(&m_double);
    _variant_t v(L"to be replaced");

    m_double.longValue = VT_R8;
    m_double.doubleValue = -4.0;
    ar >> v; // the string is freed when the tag changes
    EXPECT_EQ(v.vt, VT_R8);
    EXPECT_EQ(v.dblVal, -4.0);

    m_double.longValue = VT_BSTR;
    m_double.stringValue = L"nový";
    ar >> v;
    EXPECT_EQ(v.vt, VT_BSTR);
    EXPECT_EQ(std::wstring(v.bstrVal), L"nový");
    m_double.stringValue = L"další";
    ar >> v; // string over string
    EXPECT_EQ(std::wstring(v.bstrVal), L"další");

    m_double.longValue = VT_BOOL;
    m_double.byteValue = 0;
    ar >> v;
    EXPECT_EQ(v.vt, VT_BOOL);
    EXPECT_EQ(v.boolVal, 0);

    m_double.longValue = VT_EMPTY;
    ar >> v;
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{11, 15, 11, 17, 11, 17, 11, 7, 11}));
}

TEST_F(WrapperTest, UnsupportedTagIsSetThenRaisesInvalidArgument) {
    _ar::archive ar(&m_double);
    _variant_t v(1.0);
    m_double.longValue = VT_I4;
    EXPECT_THROW(ar >> v, CInvalidArgException);
    EXPECT_EQ(v.vt, VT_I4);
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{11}));

    // The whole 32-bit tag is tested: 0x10005 is not VT_R8, though vt keeps its low 16 bits.
    _variant_t s(L"owned");
    m_double.longValue = 0x10005;
    EXPECT_THROW(ar >> s, CInvalidArgException);
    EXPECT_EQ(s.vt, VT_R8);
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{11, 11}));
}

TEST_F(WrapperTest, FailingTagReadLeavesTheVariantAlone) {
    _ar::archive ar(&m_double);
    _variant_t v(L"kept");
    m_double.answers[11] = STG_E_READFAULT;
    EXPECT_EQ(ComErrorOf([&] { ar >> v; }), STG_E_READFAULT);
    EXPECT_EQ(v.vt, VT_BSTR);
    EXPECT_EQ(std::wstring(v.bstrVal), L"kept");
}

TEST_F(WrapperTest, FailingValueReadKeepsTheValueButNotTheTag) {
    _ar::archive ar(&m_double);
    _variant_t v(3.0);
    m_double.longValue = VT_R8;
    m_double.answers[15] = IKQ_E_ARCHIVE_EOF;
    EXPECT_EQ(ComErrorOf([&] { ar >> v; }), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(v.vt, VT_R8);
    EXPECT_EQ(v.dblVal, 3.0);

    _variant_t s(L"kept");
    m_double.longValue = VT_BSTR;
    m_double.answers[17] = IKQ_E_ARCHIVE_EOF;
    EXPECT_EQ(ComErrorOf([&] { ar >> s; }), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(std::wstring(s.bstrVal), L"kept");

    // From a double to a string whose read fails: a null string, never the double's bits.
    _variant_t d(5.0);
    EXPECT_EQ(ComErrorOf([&] { ar >> d; }), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(d.vt, VT_BSTR);
    EXPECT_EQ(d.bstrVal, nullptr);

    _variant_t b(true);
    m_double.longValue = VT_BOOL;
    m_double.answers[7] = IKQ_E_ARCHIVE_EOF;
    EXPECT_EQ(ComErrorOf([&] { ar >> b; }), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(b.vt, VT_BOOL);
    EXPECT_EQ(b.boolVal, VARIANT_TRUE);
}

TEST_F(WrapperTest, VariantStoreChecksEveryCall) {
    _ar::archive ar(&m_double);
    m_double.answers[12] = STG_E_WRITEFAULT;
    EXPECT_EQ(ComErrorOf([&] { ar << _variant_t(1.0); }), STG_E_WRITEFAULT);
    EXPECT_EQ(m_double.Slots(), (std::vector<int>{12})); // nothing after a failed tag
    m_double.answers.clear();
    m_double.answers[18] = STG_E_WRITEFAULT;
    EXPECT_EQ(ComErrorOf([&] { ar << _variant_t(L"x"); }), STG_E_WRITEFAULT);
}

} // namespace
