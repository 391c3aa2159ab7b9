// HRESULT helpers and _com_error.
#include "host/com/com.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <type_traits>

namespace {

TEST(Hresult, FailureIsTheSignBit) {
    EXPECT_TRUE(SUCCEEDED(S_OK));
    EXPECT_TRUE(SUCCEEDED(S_FALSE));
    EXPECT_TRUE(FAILED(E_FAIL));
    EXPECT_TRUE(FAILED(E_POINTER));
    EXPECT_EQ(static_cast<std::uint32_t>(E_POINTER), 0x80004003u);
    EXPECT_EQ(static_cast<std::uint32_t>(E_NOTIMPL), 0x80004001u);
    EXPECT_EQ(static_cast<std::uint32_t>(E_FAIL), 0x80004005u);
    EXPECT_EQ(static_cast<std::uint32_t>(E_INVALIDARG), 0x80070057u);
    EXPECT_EQ(sizeof(HRESULT), 4u);
}

TEST(Hresult, FromWin32) {
    EXPECT_EQ(HRESULT_FROM_WIN32(0), S_OK);
    EXPECT_EQ(static_cast<std::uint32_t>(HRESULT_FROM_WIN32(2)), 0x80070002u);
    EXPECT_EQ(static_cast<std::uint32_t>(HRESULT_FROM_WIN32(38)), 0x80070026u);
    EXPECT_EQ(MAKE_HRESULT(1, 7, 5), E_ACCESSDENIED);
}

TEST(ComError, IssueErrorThrowsTheHresult) {
    try {
        _com_issue_error(E_POINTER);
        FAIL() << "no exception";
    } catch (const _com_error& error) {
        EXPECT_EQ(error.Error(), E_POINTER);
        EXPECT_EQ(std::wstring(error.ErrorMessage()), L"Invalid pointer.");
    }
}

TEST(ComError, IsNotAStandardException) {
    static_assert(!std::is_base_of_v<std::exception, _com_error>);
    bool caughtByName = false;
    try {
        try {
            _com_issue_error(E_FAIL);
        } catch (const std::exception&) {
            FAIL() << "caught as std::exception";
        }
    } catch (const _com_error& error) {
        caughtByName = error.Error() == E_FAIL;
    }
    EXPECT_TRUE(caughtByName);
}

TEST(ComError, UnknownCodesAreShownInHex) {
    const _com_error error(static_cast<HRESULT>(0x8badf00du));
    EXPECT_EQ(std::wstring(error.ErrorMessage()), L"Unknown error 0x8BADF00D");
    EXPECT_EQ(error.WCode(), 0);
}

TEST(ComError, CopiesKeepTheCodeAndMessage) {
    const _com_error original(STG_E_INVALIDHEADER);
    const _com_error copy = original;
    EXPECT_EQ(copy.Error(), STG_E_INVALIDHEADER);
    EXPECT_STREQ(copy.ErrorMessage(), original.ErrorMessage());
}

TEST(ComError, WCodeOfTheDispatchRange) {
    EXPECT_EQ(_com_error(static_cast<HRESULT>(0x80040201u)).WCode(), 1);
    EXPECT_EQ(_com_error(static_cast<HRESULT>(0x8004FFFFu)).WCode(), 0xFDFF);
    EXPECT_EQ(_com_error(static_cast<HRESULT>(0x800401FFu)).WCode(), 0);
}

// A counting object shows the IUnknown contract and ComPtr's references.
struct Counted final : IUnknown {
    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr)
            return E_POINTER;
        if (iid != IID_IUnknown) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override { return --references; }
    ULONG references = 0;
};

TEST(ComPtr, HoldsOneReference) {
    Counted object;
    {
        host::com::ComPtr<Counted> a(&object);
        EXPECT_EQ(object.references, 1u);
        host::com::ComPtr<Counted> b = a;
        EXPECT_EQ(object.references, 2u);
        host::com::ComPtr<Counted> c = std::move(b);
        EXPECT_EQ(object.references, 2u);
        EXPECT_FALSE(b);
        c.Reset();
        EXPECT_EQ(object.references, 1u);
    }
    EXPECT_EQ(object.references, 0u);
}

TEST(ComPtr, AdoptTakesOverAReference) {
    Counted object;
    void* raw = nullptr;
    ASSERT_EQ(object.QueryInterface(IID_IUnknown, &raw), S_OK);
    EXPECT_EQ(object.QueryInterface(GUID_NULL, &raw), E_NOINTERFACE);
    EXPECT_EQ(raw, nullptr);
    {
        auto held = host::com::ComPtr<Counted>::Adopt(&object);
        EXPECT_EQ(object.references, 1u);
    }
    EXPECT_EQ(object.references, 0u);
}

} // namespace
