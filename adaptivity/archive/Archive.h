#pragma once
// _ar::archive: the host's serialization stream IKQ_Archive with the feel of a stream.
//
//     ar << value;   // stores
//     ar >> value;   // loads
//
// Every failing HRESULT of the interface becomes a _com_error carrying it. The wrapper holds
// one counted reference to the interface, or none (an empty wrapper, which raises E_POINTER
// on any use). Direction and version live in the interface, not here.
//
// On this platform long is 64-bit while the interface's long slots carry 32 bits: a long or
// unsigned long outside the 32-bit range is not stored but raises DISP_E_OVERFLOW, so that no
// value is cut silently. The same holds for Read/Write byte counts beyond 32 bits.
#include "host/archive/IKQ_Archive.h"
#include "host/com/com.h"
#include "host/framework/framework.h"

#include <string>

namespace _ar {

class archive {
public:
    // Takes a reference of its own; nullptr makes an empty wrapper.
    archive(IKQ_Archive* pArchive = nullptr); // NOLINT: implicit, as host code passes pointers
    archive(const archive& other);            // shares the interface, one more reference
    archive& operator=(const archive& other);
    ~archive();

    // The direction; the interface's HRESULT is not checked (a failure reads as false).
    bool IsLoading();
    bool IsStoring();
    // The archive's version; the interface's HRESULT is not checked (a failure reads as 0).
    short Version();
    void PutVersion(short version);

    // Raw bytes. Read answers the number of bytes the interface read.
    unsigned long Read(void* buffer, unsigned long count);
    void Write(const void* buffer, unsigned long count);

    // Raises _com_error(hr) for any negative hr; returns for 0 and every positive value, S_FALSE
    // included. long is 64-bit here, so a literal such as 0x80004005L is positive and passes:
    // pass HRESULTs, which arrive sign-extended. A negative value below the 32-bit range, which
    // no HRESULT can carry, raises E_UNEXPECTED.
    void CheckError(long hr);

    // Only 0 may be compared with: == 0 tests for an empty wrapper; any other number raises
    // E_POINTER.
    bool operator==(int null) const;
    bool operator!=(int null) const;

    operator bool() const;           // NOLINT: a pointer is held
    operator IKQ_Archive*() const;   // NOLINT: the raw pointer, no reference added
    IKQ_Archive* operator->() const; // the raw pointer; E_POINTER when empty
    // The object's IUnknown. The reference QueryInterface gave is released again, so the caller
    // gets no reference of its own (the wrapper's keeps the object alive).
    operator IUnknown*() const; // NOLINT

    archive& operator<<(bool value);
    archive& operator<<(unsigned char value);
    archive& operator<<(short value);
    archive& operator<<(int value);
    archive& operator<<(long value);
    archive& operator<<(unsigned long value);
    archive& operator<<(__int64 value);
    archive& operator<<(unsigned __int64 value);
    archive& operator<<(float value);
    archive& operator<<(double value);
    archive& operator<<(const GUID& value);
    archive& operator<<(const CString& value);
    archive& operator<<(const std::wstring& value);
    archive& operator<<(const wchar_t* value); // stored as a CString (nullptr as empty)
    archive& operator<<(wchar_t* value);       // as a wide C string
    archive& operator<<(const _variant_t& value);
    // Narrow text would otherwise become a pointer-to-bool conversion and store one byte.
    archive& operator<<(const char* value) = delete;

    archive& operator>>(bool& value);
    archive& operator>>(unsigned char& value);
    archive& operator>>(short& value);
    archive& operator>>(int& value);
    archive& operator>>(long& value);
    archive& operator>>(unsigned long& value);
    archive& operator>>(__int64& value);
    archive& operator>>(unsigned __int64& value);
    archive& operator>>(float& value);
    archive& operator>>(double& value);
    archive& operator>>(GUID& value);
    archive& operator>>(GUID* value);
    archive& operator>>(CString& value);
    archive& operator>>(std::wstring& value);
    // The callee allocates the string as a BSTR; free it with SysFreeString.
    archive& operator>>(wchar_t** value);
    archive& operator>>(_variant_t& value);

private:
    IKQ_Archive* m_pArchive = nullptr; // null or one reference of ours
};

} // namespace _ar
