#pragma once
// The Win32 scalar types the module's code is written against, at their Windows widths.
#include <cstdint>

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using HANDLE = void*;
using WCHAR = wchar_t;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
// The module is built as a Unicode program: TCHAR is the wide character.
using TCHAR = wchar_t;
using LPTSTR = wchar_t*;
using LPCTSTR = const wchar_t*;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#ifndef _T
#define _T(text) L##text
#endif

inline HANDLE const INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
