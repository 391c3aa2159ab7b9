#pragma once
// BSTR: the length-prefixed wide string of COM.
//
// Lifetime rules, as in COM:
// - SysAllocString / SysAllocStringLen return a new string that the receiver owns and frees
//   exactly once with SysFreeString; they return nullptr when given nullptr (SysAllocString)
//   or when memory runs out.
// - A null BSTR is a valid empty string: SysStringLen(nullptr) is 0, SysFreeString(nullptr)
//   does nothing.
// - The length is stored before the characters, so a BSTR may hold embedded L'\0'; it is also
//   terminated by L'\0', so it can be read as a C string.
// - A callee that hands out a BSTR through an out argument allocates it; the caller frees it.
#include "host/com/types.h"

#include <cstddef>

using BSTR = OLECHAR*;

BSTR SysAllocString(const OLECHAR* text);
// length characters copied from text; when text is nullptr, length zero characters.
BSTR SysAllocStringLen(const OLECHAR* text, UINT length);
// Frees the old string of *target and puts a copy of text there. FALSE when out of memory
// (the old string is then kept).
BOOL SysReAllocString(BSTR* target, const OLECHAR* text);
void SysFreeString(BSTR text);
UINT SysStringLen(BSTR text);     // in characters, embedded zeros included
UINT SysStringByteLen(BSTR text); // in bytes, without the terminator

namespace host::com {
// The number of BSTRs allocated and not yet freed in this process; lets tests prove that
// every string handed over was released.
std::ptrdiff_t LiveBstrCount();
} // namespace host::com
