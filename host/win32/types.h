#pragma once
// The Win32 scalar types the module's code is written against, at their Windows widths.
#include <cstdint>

using BOOL = int;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using HANDLE = void*;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

inline HANDLE const INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
