#pragma once
// The archives of the host kit: IKQ_Archive over a binary file and over memory.
//
// Both write the same byte layout (docs/archive-format.md): a 16-byte header that names the
// format, its version and the archive's own version, then one tagged item per value, all
// little-endian. Every factory answers an HRESULT and, on success, *archive with one reference
// that the caller releases; on failure *archive is nullptr. Loading validates the header at
// once, so a file that is no archive never yields an archive object.
#include "host/archive/IKQ_Archive.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace host::archive {

inline constexpr std::array<std::uint8_t, 8> kMagic = {0x89, 'K', 'Q', 'A', 'R', 0x0D, 0x0A, 0x1A};
inline constexpr std::uint16_t kFormatVersion = 1;
inline constexpr std::size_t kHeaderSize = 16;

// Storing writes "<path>.tmp" beside the target and renames it to path when the archive is
// closed (Close or the last Release) without a failure before; so a reader never sees half an
// archive and an aborted or failed archive leaves an earlier file of that name untouched.
HRESULT CreateFileArchiveForStoring(const std::filesystem::path& path,
                                    IKQ_Archive** archive) noexcept;
HRESULT CreateFileArchiveForLoading(const std::filesystem::path& path,
                                    IKQ_Archive** archive) noexcept;

// Storing into memory: *bytes is replaced by the header at once and grows by every item
// written; PutVersion updates the header in place, so *bytes is a complete archive at any
// time. Abort empties it. E_POINTER when bytes is null.
HRESULT CreateMemoryArchiveForStoring(std::shared_ptr<std::vector<std::byte>> bytes,
                                      IKQ_Archive** archive) noexcept;
// Loading from a copy of bytes, which must start with the header.
HRESULT CreateMemoryArchiveForLoading(std::vector<std::byte> bytes, IKQ_Archive** archive) noexcept;

} // namespace host::archive
