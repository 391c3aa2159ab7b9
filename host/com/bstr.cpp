#include "host/com/bstr.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>

namespace {

// Layout of one allocation: the byte length (uint32), then the characters, then L'\0'.
// The prefix is as wide as a wchar_t, so the characters stay aligned.
constexpr std::size_t kPrefix = sizeof(std::uint32_t);
static_assert(kPrefix % alignof(OLECHAR) == 0);

std::atomic<std::ptrdiff_t> g_live{0};

std::uint32_t* PrefixOf(BSTR text) {
    return reinterpret_cast<std::uint32_t*>(reinterpret_cast<unsigned char*>(text) - kPrefix);
}

} // namespace

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
    // The byte length must fit its 32-bit prefix.
    constexpr std::size_t kMaxLength =
        (std::numeric_limits<std::uint32_t>::max() - kPrefix) / sizeof(OLECHAR) - 1;
    if (length > kMaxLength)
        return nullptr;
    const std::size_t bytes = std::size_t{length} * sizeof(OLECHAR);
    void* block = std::malloc(kPrefix + bytes + sizeof(OLECHAR));
    if (block == nullptr)
        return nullptr;
    auto* prefix = static_cast<std::uint32_t*>(block);
    *prefix = static_cast<std::uint32_t>(bytes);
    auto* chars = reinterpret_cast<OLECHAR*>(static_cast<unsigned char*>(block) + kPrefix);
    if (text != nullptr && length > 0)
        std::memcpy(chars, text, bytes);
    else
        std::memset(chars, 0, bytes);
    chars[length] = L'\0';
    g_live.fetch_add(1, std::memory_order_relaxed);
    return chars;
}

BSTR SysAllocString(const OLECHAR* text) {
    if (text == nullptr)
        return nullptr;
    const std::size_t length = std::wcslen(text);
    if (length > std::numeric_limits<UINT>::max())
        return nullptr;
    return SysAllocStringLen(text, static_cast<UINT>(length));
}

BOOL SysReAllocString(BSTR* target, const OLECHAR* text) {
    if (target == nullptr)
        return FALSE;
    BSTR copy = SysAllocString(text);
    if (copy == nullptr && text != nullptr)
        return FALSE;
    SysFreeString(*target);
    *target = copy;
    return TRUE;
}

void SysFreeString(BSTR text) {
    if (text == nullptr)
        return;
    g_live.fetch_sub(1, std::memory_order_relaxed);
    std::free(PrefixOf(text));
}

UINT SysStringByteLen(BSTR text) {
    return text == nullptr ? 0 : *PrefixOf(text);
}

UINT SysStringLen(BSTR text) {
    return static_cast<UINT>(SysStringByteLen(text) / sizeof(OLECHAR));
}

namespace host::com {
std::ptrdiff_t LiveBstrCount() {
    return g_live.load(std::memory_order_relaxed);
}
} // namespace host::com
