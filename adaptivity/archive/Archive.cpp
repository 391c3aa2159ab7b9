#include "adaptivity/archive/Archive.h"

#include <limits>

namespace _ar {
namespace {

// Frees a BSTR that the interface handed over, whether or not the call that gave it failed.
class OwnedBstr {
public:
    OwnedBstr() = default;
    explicit OwnedBstr(BSTR text) : m_text(text) {}
    OwnedBstr(const OwnedBstr&) = delete;
    OwnedBstr& operator=(const OwnedBstr&) = delete;
    ~OwnedBstr() { SysFreeString(m_text); }

    BSTR* Out() { return &m_text; }
    BSTR Get() const { return m_text; }
    BSTR Release() {
        BSTR text = m_text;
        m_text = nullptr;
        return text;
    }

private:
    BSTR m_text = nullptr;
};

using host::com::CopyToBstr;

// The 32-bit slots cannot carry a wider value.
ULONG To32(unsigned long value) {
    if (value > std::numeric_limits<ULONG>::max())
        _com_issue_error(DISP_E_OVERFLOW);
    return static_cast<ULONG>(value);
}

LONG To32(long value) {
    if (value < std::numeric_limits<LONG>::min() || value > std::numeric_limits<LONG>::max())
        _com_issue_error(DISP_E_OVERFLOW);
    return static_cast<LONG>(value);
}

} // namespace

archive::archive(IKQ_Archive* pArchive) : m_pArchive(pArchive) {
    if (m_pArchive != nullptr)
        m_pArchive->AddRef();
}

archive::archive(const archive& other) : archive(other.m_pArchive) {}

archive& archive::operator=(const archive& other) {
    if (m_pArchive == other.m_pArchive)
        return *this;
    // The new reference first, so that assigning a wrapper whose object only the old pointer
    // keeps alive cannot destroy it on the way.
    IKQ_Archive* old = m_pArchive;
    m_pArchive = other.m_pArchive;
    if (m_pArchive != nullptr)
        m_pArchive->AddRef();
    if (old != nullptr)
        old->Release();
    return *this;
}

archive::~archive() {
    if (m_pArchive != nullptr)
        m_pArchive->Release();
}

bool archive::IsLoading() {
    LONG flag = 0;
    (*this)->IsLoading(&flag);
    return flag != 0;
}

bool archive::IsStoring() {
    LONG flag = 0;
    (*this)->IsStoring(&flag);
    return flag != 0;
}

short archive::Version() {
    SHORT version = 0;
    (*this)->GetVersion(&version);
    return version;
}

void archive::PutVersion(short version) {
    (*this)->PutVersion(version);
}

unsigned long archive::Read(void* buffer, unsigned long count) {
    IKQ_Archive* pArchive = operator->();
    ULONG read = 0;
    CheckError(pArchive->Read(buffer, To32(count), &read));
    return read;
}

void archive::Write(const void* buffer, unsigned long count) {
    IKQ_Archive* pArchive = operator->();
    ULONG written = 0;
    CheckError(pArchive->Write(buffer, To32(count), &written));
}

void archive::CheckError(long hr) {
    if (hr >= 0)
        return;
    // A failing HRESULT from the interface arrives sign-extended and is raised as it is. A
    // negative value below the 32-bit range is no HRESULT at all; it still fails.
    if (hr < std::numeric_limits<HRESULT>::min())
        _com_issue_error(E_UNEXPECTED);
    _com_issue_error(static_cast<HRESULT>(hr));
}

bool archive::operator==(int null) const {
    if (null != 0)
        _com_issue_error(E_POINTER);
    return m_pArchive == nullptr;
}

bool archive::operator!=(int null) const {
    return !(*this == null);
}

archive::operator bool() const {
    return m_pArchive != nullptr;
}

archive::operator IKQ_Archive*() const {
    return m_pArchive;
}

IKQ_Archive* archive::operator->() const {
    if (m_pArchive == nullptr)
        _com_issue_error(E_POINTER);
    return m_pArchive;
}

archive::operator IUnknown*() const {
    IUnknown* pUnknown = nullptr;
    const HRESULT hr = operator->()->QueryInterface(IID_IUnknown,
                                                    reinterpret_cast<void**>(&pUnknown));
    if (FAILED(hr) || pUnknown == nullptr)
        _com_issue_error(FAILED(hr) ? hr : E_NOINTERFACE);
    pUnknown->Release();
    return pUnknown;
}

// ----- storing

archive& archive::operator<<(bool value) {
    CheckError((*this)->WriteByte(static_cast<BYTE>(value)));
    return *this;
}

archive& archive::operator<<(unsigned char value) {
    CheckError((*this)->WriteByte(value));
    return *this;
}

archive& archive::operator<<(short value) {
    CheckError((*this)->WriteShort(value));
    return *this;
}

archive& archive::operator<<(int value) {
    CheckError((*this)->WriteLong(value));
    return *this;
}

archive& archive::operator<<(long value) {
    IKQ_Archive* pArchive = operator->();
    CheckError(pArchive->WriteLong(To32(value)));
    return *this;
}

archive& archive::operator<<(unsigned long value) {
    IKQ_Archive* pArchive = operator->();
    CheckError(pArchive->WriteULong(To32(value)));
    return *this;
}

archive& archive::operator<<(__int64 value) {
    CheckError((*this)->WriteInt64(value));
    return *this;
}

archive& archive::operator<<(unsigned __int64 value) {
    CheckError((*this)->WriteUInt64(value));
    return *this;
}

archive& archive::operator<<(float value) {
    CheckError((*this)->WriteFloat(value));
    return *this;
}

archive& archive::operator<<(double value) {
    CheckError((*this)->WriteDouble(value));
    return *this;
}

archive& archive::operator<<(const GUID& value) {
    CheckError((*this)->WriteGuid(value));
    return *this;
}

archive& archive::operator<<(const CString& value) {
    IKQ_Archive* pArchive = operator->();
    OwnedBstr text(CopyToBstr(value.GetString(), static_cast<std::size_t>(value.GetLength())));
    CheckError(pArchive->WriteString(text.Get()));
    return *this;
}

archive& archive::operator<<(const std::wstring& value) {
    IKQ_Archive* pArchive = operator->();
    OwnedBstr text(CopyToBstr(value.data(), value.size()));
    CheckError(pArchive->WriteString(text.Get()));
    return *this;
}

archive& archive::operator<<(const wchar_t* value) {
    return *this << CString(value);
}

archive& archive::operator<<(wchar_t* value) {
    CheckError((*this)->WriteWideString(value));
    return *this;
}

// A variant travels as its type tag (a 32-bit integer) and then its value. A boolean goes as
// the low byte of its VARIANT_BOOL, so true is stored as 0xFF.
archive& archive::operator<<(const _variant_t& value) {
    *this << static_cast<int>(value.vt);
    switch (value.vt) {
    case VT_EMPTY:
        break;
    case VT_R8:
        *this << value.dblVal;
        break;
    case VT_BSTR:
        CheckError((*this)->WriteString(value.bstrVal));
        break;
    case VT_BOOL:
        *this << static_cast<unsigned char>(value.boolVal & 0xFF);
        break;
    default:
        // The tag is already written: readers of such an archive meet the same refusal.
        AfxThrowInvalidArgException();
    }
    return *this;
}

// ----- loading: each value comes into a local first, so a failing read leaves the target as it
// was.

archive& archive::operator>>(bool& value) {
    BYTE byte = 0;
    CheckError((*this)->ReadByte(&byte));
    value = byte != 0;
    return *this;
}

archive& archive::operator>>(unsigned char& value) {
    BYTE byte = 0;
    CheckError((*this)->ReadByte(&byte));
    value = byte;
    return *this;
}

archive& archive::operator>>(short& value) {
    SHORT read = 0;
    CheckError((*this)->ReadShort(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(int& value) {
    LONG read = 0;
    CheckError((*this)->ReadLong(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(long& value) {
    LONG read = 0;
    CheckError((*this)->ReadLong(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(unsigned long& value) {
    ULONG read = 0;
    CheckError((*this)->ReadULong(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(__int64& value) {
    LONGLONG read = 0;
    CheckError((*this)->ReadInt64(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(unsigned __int64& value) {
    ULONGLONG read = 0;
    CheckError((*this)->ReadUInt64(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(float& value) {
    float read = 0;
    CheckError((*this)->ReadFloat(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(double& value) {
    double read = 0;
    CheckError((*this)->ReadDouble(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(GUID& value) {
    GUID read = GUID_NULL;
    CheckError((*this)->ReadGuid(&read));
    value = read;
    return *this;
}

archive& archive::operator>>(GUID* value) {
    IKQ_Archive* pArchive = operator->();
    if (value == nullptr)
        _com_issue_error(E_POINTER);
    GUID read = GUID_NULL;
    CheckError(pArchive->ReadGuid(&read));
    *value = read;
    return *this;
}

archive& archive::operator>>(CString& value) {
    IKQ_Archive* pArchive = operator->();
    OwnedBstr text;
    CheckError(pArchive->ReadString(text.Out()));
    value = CString(std::wstring_view(text.Get(), SysStringLen(text.Get())));
    return *this;
}

archive& archive::operator>>(std::wstring& value) {
    IKQ_Archive* pArchive = operator->();
    OwnedBstr text;
    CheckError(pArchive->ReadString(text.Out()));
    value.assign(text.Get(), SysStringLen(text.Get()));
    return *this;
}

archive& archive::operator>>(wchar_t** value) {
    IKQ_Archive* pArchive = operator->();
    if (value == nullptr)
        _com_issue_error(E_POINTER);
    OwnedBstr text;
    CheckError(pArchive->ReadWideString(text.Out()));
    *value = text.Release();
    return *this;
}

// The tag is read and put into vt at once; only then the value. A boolean loads as 1 or 0, not
// as VARIANT_TRUE: readers test it as nonzero. A tag other than those stored raises the
// framework's invalid-argument exception with vt already set (cut to the 16 bits of vt; the
// test is on the whole 32-bit tag, so 0x10005 is refused, not read as VT_R8).
archive& archive::operator>>(_variant_t& value) {
    LONG tag = 0;
    CheckError((*this)->ReadLong(&tag));

    // A string the variant owns is freed when the tag changes, so that it neither leaks nor is
    // read as another kind; a string read into a string variant replaces the old one only when
    // it has arrived.
    const VARTYPE old = value.vt;
    if (old == VT_BSTR && tag != VT_BSTR) {
        SysFreeString(value.bstrVal);
        value.bstrVal = nullptr;
    }
    value.vt = static_cast<VARTYPE>(tag);
    if (old != VT_BSTR && value.vt == VT_BSTR)
        value.bstrVal = nullptr;

    switch (tag) {
    case VT_EMPTY:
        break;
    case VT_R8: {
        double read = 0;
        CheckError((*this)->ReadDouble(&read));
        value.dblVal = read;
        break;
    }
    case VT_BSTR: {
        OwnedBstr text;
        CheckError((*this)->ReadString(text.Out()));
        SysFreeString(value.bstrVal);
        value.bstrVal = text.Release();
        break;
    }
    case VT_BOOL: {
        BYTE byte = 0;
        CheckError((*this)->ReadByte(&byte));
        value.boolVal = byte != 0 ? 1 : 0;
        break;
    }
    default:
        AfxThrowInvalidArgException();
    }
    return *this;
}

} // namespace _ar
