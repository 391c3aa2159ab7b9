#pragma once
// IKQ_Archive: the host's serialization stream, a COM-style interface.
//
// Every operation answers an HRESULT and writes an out value through its last argument, and
// only on success: a failing read leaves the caller's variable as it was. The slot order (the
// declaration order below, after the three of IUnknown) is part of the interface and must not
// change; note that the unsigned 32-bit pair has its write before its read.
//
// The archives of this kit (host/archive/archives.h) answer these failing codes:
//   E_POINTER               a null out argument (or a null C string to write)
//   STG_E_ACCESSDENIED      a read on a storing archive or a write on a loading one
//   E_UNEXPECTED            any operation after Close or Abort
//   IKQ_E_ARCHIVE_EOF       reading past the end: a truncated archive
//   DISP_E_TYPEMISMATCH     the next item is of another type than the one asked for
//   STG_E_DOCFILECORRUPT    the next item has a type byte that no archive writes
//   STG_E_WRITEFAULT, STG_E_MEDIUMFULL, STG_E_READFAULT   the medium failed
// and, when an archive file is opened, STG_E_FILENOTFOUND, STG_E_PATHNOTFOUND,
// STG_E_ACCESSDENIED, STG_E_INVALIDHEADER (not an archive) and STG_E_OLDFORMAT (a format
// version this program cannot read).
#include "host/com/bstr.h"
#include "host/com/guid.h"
#include "host/com/types.h"
#include "host/com/unknown.h"

// {CFDD8F3E-F153-4DAF-B1BA-E736C61C69F9}
inline constexpr IID IID_IKQ_Archive = {
    0xCFDD8F3E, 0xF153, 0x4DAF, {0xB1, 0xBA, 0xE7, 0x36, 0xC6, 0x1C, 0x69, 0xF9}};

// Reading past the end of an archive: the Win32 "reached the end of the file" code (38).
inline constexpr HRESULT IKQ_E_ARCHIVE_EOF = HRESULT_FROM_WIN32(38);

struct IKQ_Archive : public IUnknown {
    // The kind of the next item of a loading archive, as PeekItemType answers it. The values
    // are the item type bytes of the archive format (docs/archive-format.md).
    enum eItemType : LONG {
        eItemNone = 0x00, // end of the archive
        eItemByte = 0x01,
        eItemShort = 0x02,
        eItemUShort = 0x03,
        eItemLong = 0x04,
        eItemULong = 0x05,
        eItemInt64 = 0x06,
        eItemUInt64 = 0x07,
        eItemFloat = 0x08,
        eItemDouble = 0x09,
        eItemString = 0x0A, // a BSTR or a wide C string
        eItemGuid = 0x0B,
        eItemCount = 0x0C,
        eItemBytes = 0x0D, // a block of raw bytes
    };

    // 3, 4: the direction; *flag is nonzero for yes.
    virtual HRESULT IsLoading(LONG* flag) = 0;
    virtual HRESULT IsStoring(LONG* flag) = 0;
    // 5: up to count raw bytes. S_OK when all count bytes were read; S_FALSE, with *read
    // smaller, when the raw bytes that follow run out first (as a sequential stream answers).
    virtual HRESULT Read(void* buffer, ULONG count, ULONG* read) = 0;
    // 6: count raw bytes; *written (may be nullptr) gets the number written.
    virtual HRESULT Write(const void* buffer, ULONG count, ULONG* written) = 0;
    // 7 to 16: bytes (also carrying bool), 16- and 32-bit integers, float and double.
    virtual HRESULT ReadByte(BYTE* value) = 0;
    virtual HRESULT WriteByte(BYTE value) = 0;
    virtual HRESULT ReadShort(SHORT* value) = 0;
    virtual HRESULT WriteShort(SHORT value) = 0;
    virtual HRESULT ReadLong(LONG* value) = 0;
    virtual HRESULT WriteLong(LONG value) = 0;
    virtual HRESULT ReadFloat(float* value) = 0;
    virtual HRESULT WriteFloat(float value) = 0;
    virtual HRESULT ReadDouble(double* value) = 0;
    virtual HRESULT WriteDouble(double value) = 0;
    // 17: a string; the callee allocates *value (never nullptr on success, L"" when empty) and
    // the caller frees it with SysFreeString. 18: a null BSTR is written as the empty string.
    virtual HRESULT ReadString(BSTR* value) = 0;
    virtual HRESULT WriteString(BSTR value) = 0;
    // 19, 20: unsigned 32-bit, write first.
    virtual HRESULT WriteULong(ULONG value) = 0;
    virtual HRESULT ReadULong(ULONG* value) = 0;

    // 21 to 28 are not used by the stream wrapper; they complete the archive for host code.
    // 21, 22: unsigned 16-bit.
    virtual HRESULT ReadUShort(USHORT* value) = 0;
    virtual HRESULT WriteUShort(USHORT value) = 0;
    // 23: the eItemType of the next item without consuming it: eItemNone and S_FALSE at the
    // end; eItemBytes inside a raw block that Read has not finished. Loading archives only.
    virtual HRESULT PeekItemType(LONG* type) = 0;
    // 24: skips the next item whatever its type (the rest of a raw block, when inside one), so
    // a reader can pass over what a newer writer added. Loading archives only.
    virtual HRESULT SkipItem() = 0;
    // 25: bytes written or consumed so far, the format's header included.
    virtual HRESULT GetPosition(ULONGLONG* position) = 0;
    // 26: pushes buffered bytes to the medium (storing); nothing to do when loading.
    virtual HRESULT Flush() = 0;
    // 27: finishes the archive: a storing file archive writes its header's version, flushes
    // and only then puts the file in place. Every later call answers E_UNEXPECTED. The last
    // Release closes an archive that is still open, but can report no error.
    virtual HRESULT Close() = 0;
    // 28: ends the archive without finishing it: a storing file archive leaves no file (an
    // existing file of that name is kept as it was). Every later call answers E_UNEXPECTED.
    virtual HRESULT Abort() = 0;

    // 29, 30: the version of what the archive holds (the writer's schema number), kept in the
    // archive's header. A reader may put another version to tell nested readers what it read.
    virtual HRESULT GetVersion(SHORT* version) = 0;
    virtual HRESULT PutVersion(SHORT version) = 0;
    // 31, 32: a GUID.
    virtual HRESULT ReadGuid(GUID* value) = 0;
    virtual HRESULT WriteGuid(const GUID& value) = 0;

    // 33, 34 are not used by the stream wrapper: the element count of a collection that
    // follows. A count read never exceeds the bytes left in the archive (each item takes at
    // least one byte), so a reader may size a container by it without trusting the file.
    virtual HRESULT ReadCount(ULONGLONG* count) = 0;
    virtual HRESULT WriteCount(ULONGLONG count) = 0;

    // 35: a wide C string; the callee allocates *value as a BSTR, which the caller frees with
    // SysFreeString. 36: text up to its terminator; nullptr answers E_POINTER.
    virtual HRESULT ReadWideString(wchar_t** value) = 0;
    virtual HRESULT WriteWideString(wchar_t* value) = 0;
    // 37 to 40: signed and unsigned 64-bit integers.
    virtual HRESULT ReadInt64(LONGLONG* value) = 0;
    virtual HRESULT WriteInt64(LONGLONG value) = 0;
    virtual HRESULT ReadUInt64(ULONGLONG* value) = 0;
    virtual HRESULT WriteUInt64(ULONGLONG value) = 0;

protected:
    ~IKQ_Archive() = default;
};
