#pragma once
// Conversions between the host's wide text and this platform's UTF-8 text and paths.
#include <filesystem>
#include <string>
#include <string_view>

namespace host::win32 {
// UTF-32 wide text to UTF-8. Code points that cannot be encoded become U+FFFD.
std::string WideToUtf8(std::wstring_view text);

// UTF-8 to wide text. A byte that does not start a valid UTF-8 sequence is taken as Latin-1,
// so text in an older single-byte encoding still arrives readable.
std::wstring Utf8ToWide(std::string_view text);

// A host path as a path of this platform. Host paths follow Windows rules, where "\" and "/"
// both separate components, so every "\" becomes "/" (no file name here can hold a "\").
std::filesystem::path ToNativePath(std::wstring_view hostPath);
} // namespace host::win32
