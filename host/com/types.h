#pragma once
// The scalar types and result codes of the COM support library, at their Windows widths.
//
// HRESULT is a signed 32-bit value: bit 31 set means failure, so every failing code is negative
// and every success code (S_OK, S_FALSE) is zero or positive.
#include "host/win32/types.h"

#include <cstdint>

using HRESULT = std::int32_t;
// Also declared by the Win32 types; repeating an alias of the same type is allowed.
using BYTE = std::uint8_t;
using UINT = unsigned int;
using SHORT = short;
using USHORT = unsigned short;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using OLECHAR = wchar_t;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;

// The 64-bit integer of the host's compiler. A macro, not an alias, so that
// "unsigned __int64" is well formed. It is long long, a type of its own beside the 64-bit long.
#ifndef __int64
#define __int64 long long
#endif

constexpr bool SUCCEEDED(HRESULT hr) {
    return hr >= 0;
}
constexpr bool FAILED(HRESULT hr) {
    return hr < 0;
}

// A failing HRESULT of the Win32 facility (7) for a Win32 error code; 0 stays S_OK.
constexpr HRESULT HRESULT_FROM_WIN32(std::uint32_t win32Error) {
    return win32Error == 0
               ? 0
               : static_cast<HRESULT>((win32Error & 0xFFFFu) | (7u << 16) | 0x80000000u);
}

constexpr HRESULT MAKE_HRESULT(std::uint32_t severity, std::uint32_t facility, std::uint32_t code) {
    return static_cast<HRESULT>((severity << 31) | ((facility & 0x1FFFu) << 16) | (code & 0xFFFFu));
}

namespace host::com::detail {
constexpr HRESULT Code(std::uint32_t bits) {
    return static_cast<HRESULT>(bits);
}
} // namespace host::com::detail

// Success codes.
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;

// General failures.
inline constexpr HRESULT E_NOTIMPL = host::com::detail::Code(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = host::com::detail::Code(0x80004002u);
inline constexpr HRESULT E_POINTER = host::com::detail::Code(0x80004003u);
inline constexpr HRESULT E_ABORT = host::com::detail::Code(0x80004004u);
inline constexpr HRESULT E_FAIL = host::com::detail::Code(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = host::com::detail::Code(0x8000FFFFu);
inline constexpr HRESULT E_ACCESSDENIED = host::com::detail::Code(0x80070005u);
inline constexpr HRESULT E_HANDLE = host::com::detail::Code(0x80070006u);
inline constexpr HRESULT E_OUTOFMEMORY = host::com::detail::Code(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = host::com::detail::Code(0x80070057u);

// Automation (variant) failures.
inline constexpr HRESULT DISP_E_TYPEMISMATCH = host::com::detail::Code(0x80020005u);
inline constexpr HRESULT DISP_E_BADVARTYPE = host::com::detail::Code(0x80020008u);
inline constexpr HRESULT DISP_E_OVERFLOW = host::com::detail::Code(0x8002000Au);

// Structured-storage failures, used by streams and archives.
inline constexpr HRESULT STG_E_FILENOTFOUND = host::com::detail::Code(0x80030002u);
inline constexpr HRESULT STG_E_PATHNOTFOUND = host::com::detail::Code(0x80030003u);
inline constexpr HRESULT STG_E_ACCESSDENIED = host::com::detail::Code(0x80030005u);
inline constexpr HRESULT STG_E_WRITEFAULT = host::com::detail::Code(0x8003001Du);
inline constexpr HRESULT STG_E_READFAULT = host::com::detail::Code(0x8003001Eu);
inline constexpr HRESULT STG_E_MEDIUMFULL = host::com::detail::Code(0x80030070u);
inline constexpr HRESULT STG_E_INVALIDHEADER = host::com::detail::Code(0x800300FBu);
inline constexpr HRESULT STG_E_OLDFORMAT = host::com::detail::Code(0x80030104u);
inline constexpr HRESULT STG_E_DOCFILECORRUPT = host::com::detail::Code(0x80030109u);
