#include "host/com/variant.h"

#include "host/com/error.h"

#include <cstring>
#include <cwchar>
#include <limits>

void VariantInit(VARIANT* variant) {
    if (variant == nullptr)
        return;
    std::memset(static_cast<void*>(variant), 0, sizeof(VARIANT));
    variant->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANT* variant) {
    if (variant == nullptr)
        return E_POINTER;
    if (variant->vt == VT_BSTR)
        SysFreeString(variant->bstrVal);
    VariantInit(variant);
    return S_OK;
}

HRESULT VariantCopy(VARIANT* target, const VARIANT* source) {
    if (target == nullptr || source == nullptr)
        return E_POINTER;
    if (target == source)
        return S_OK;
    VariantClear(target);
    if (source->vt == VT_BSTR && source->bstrVal != nullptr) {
        BSTR copy = SysAllocStringLen(source->bstrVal, SysStringLen(source->bstrVal));
        if (copy == nullptr)
            return E_OUTOFMEMORY;
        std::memcpy(static_cast<void*>(target), source, sizeof(VARIANT));
        target->bstrVal = copy;
        return S_OK;
    }
    std::memcpy(static_cast<void*>(target), source, sizeof(VARIANT));
    return S_OK;
}

namespace {

LONG CheckedLong(long value) {
    if (value < std::numeric_limits<LONG>::min() || value > std::numeric_limits<LONG>::max())
        _com_issue_error(DISP_E_OVERFLOW);
    return static_cast<LONG>(value);
}

} // namespace

BSTR host::com::CopyToBstr(const wchar_t* text, std::size_t length) {
    if (length > std::numeric_limits<UINT>::max())
        _com_issue_error(E_OUTOFMEMORY);
    BSTR copy = SysAllocStringLen(text, static_cast<UINT>(length));
    if (copy == nullptr)
        _com_issue_error(E_OUTOFMEMORY);
    return copy;
}

_variant_t::_variant_t(const VARIANT& other) {
    VariantInit(this);
    const HRESULT hr = VariantCopy(this, &other);
    if (FAILED(hr))
        _com_issue_error(hr);
}

_variant_t::_variant_t(const _variant_t& other) : _variant_t(static_cast<const VARIANT&>(other)) {}

_variant_t::_variant_t(_variant_t&& other) noexcept {
    std::memcpy(static_cast<void*>(static_cast<VARIANT*>(this)),
                static_cast<const VARIANT*>(&other), sizeof(VARIANT));
    VariantInit(&other);
}

_variant_t::_variant_t(int value) noexcept {
    VariantInit(this);
    vt = VT_I4;
    lVal = value;
}

_variant_t::_variant_t(long value) {
    VariantInit(this);
    lVal = CheckedLong(value);
    vt = VT_I4;
}

_variant_t::_variant_t(double value) noexcept {
    VariantInit(this);
    vt = VT_R8;
    dblVal = value;
}

_variant_t::_variant_t(bool value) noexcept {
    VariantInit(this);
    vt = VT_BOOL;
    boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
}

_variant_t::_variant_t(const wchar_t* text) {
    VariantInit(this);
    bstrVal = text == nullptr ? nullptr : host::com::CopyToBstr(text, std::wcslen(text));
    vt = VT_BSTR;
}

_variant_t::_variant_t(std::wstring_view text) {
    VariantInit(this);
    bstrVal = host::com::CopyToBstr(text.data(), text.size());
    vt = VT_BSTR;
}

_variant_t& _variant_t::operator=(const _variant_t& other) {
    if (this != &other) {
        _variant_t copy(other);
        *this = std::move(copy);
    }
    return *this;
}

_variant_t& _variant_t::operator=(_variant_t&& other) noexcept {
    if (this != &other) {
        Clear();
        std::memcpy(static_cast<void*>(static_cast<VARIANT*>(this)),
                    static_cast<const VARIANT*>(&other), sizeof(VARIANT));
        VariantInit(&other);
    }
    return *this;
}

_variant_t& _variant_t::operator=(int value) noexcept {
    return *this = _variant_t(value);
}
_variant_t& _variant_t::operator=(long value) {
    return *this = _variant_t(value);
}
_variant_t& _variant_t::operator=(double value) noexcept {
    return *this = _variant_t(value);
}
_variant_t& _variant_t::operator=(bool value) noexcept {
    return *this = _variant_t(value);
}
_variant_t& _variant_t::operator=(const wchar_t* text) {
    return *this = _variant_t(text);
}

VARIANT _variant_t::Detach() noexcept {
    VARIANT result;
    std::memcpy(static_cast<void*>(&result), static_cast<const VARIANT*>(this), sizeof(VARIANT));
    VariantInit(this);
    return result;
}

bool operator==(const _variant_t& a, const _variant_t& b) noexcept {
    if (a.vt != b.vt)
        return false;
    switch (a.vt) {
    case VT_EMPTY:
    case VT_NULL:
        return true;
    case VT_I4:
        return a.lVal == b.lVal;
    case VT_R8:
        return a.dblVal == b.dblVal;
    case VT_BOOL:
        return a.boolVal == b.boolVal;
    case VT_BSTR: {
        const UINT length = SysStringLen(a.bstrVal);
        return length == SysStringLen(b.bstrVal) &&
               (length == 0 || std::wmemcmp(a.bstrVal, b.bstrVal, length) == 0);
    }
    default:
        return std::memcmp(&a.llVal, &b.llVal, sizeof a.llVal) == 0;
    }
}
