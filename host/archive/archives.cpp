#include "host/archive/archives.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace host::archive {
namespace {

using Byte = std::uint8_t;
using Item = IKQ_Archive::eItemType;

// ---------------------------------------------------------------------------------------------
// Little-endian encoding, independent of the machine's byte order.

template <typename U> void PutLE(Byte* out, U value) {
    for (std::size_t i = 0; i < sizeof(U); ++i)
        out[i] = static_cast<Byte>(static_cast<std::uint64_t>(value) >> (8 * i));
}

template <typename U> U GetLE(const Byte* in) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(U); ++i)
        value |= std::uint64_t{in[i]} << (8 * i);
    return static_cast<U>(value);
}

// Payload bytes of the fixed-size items; 0 for the items with a length (string, raw bytes) and
// for type bytes that no archive writes.
constexpr std::size_t FixedPayload(Byte tag) {
    switch (tag) {
    case Item::eItemByte:
        return 1;
    case Item::eItemShort:
        return 2;
    case Item::eItemUShort:
        return 2;
    case Item::eItemLong:
        return 4;
    case Item::eItemULong:
        return 4;
    case Item::eItemInt64:
        return 8;
    case Item::eItemUInt64:
        return 8;
    case Item::eItemFloat:
        return 4;
    case Item::eItemDouble:
        return 8;
    case Item::eItemGuid:
        return 16;
    case Item::eItemCount:
        return 8;
    default:
        return 0;
    }
}

constexpr bool IsKnownTag(Byte tag) {
    return tag >= Item::eItemByte && tag <= Item::eItemBytes;
}

std::array<Byte, kHeaderSize> MakeHeader(SHORT version) {
    std::array<Byte, kHeaderSize> header{};
    std::copy(kMagic.begin(), kMagic.end(), header.begin());
    PutLE<std::uint16_t>(header.data() + 8, kFormatVersion);
    PutLE<std::uint16_t>(header.data() + 10, static_cast<std::uint16_t>(version));
    PutLE<std::uint32_t>(header.data() + 12, 0);
    return header;
}

// Checks a header; answers the archive's version through version.
HRESULT ParseHeader(const Byte* header, std::size_t size, SHORT& version) {
    if (size < kHeaderSize || !std::equal(kMagic.begin(), kMagic.end(), header))
        return STG_E_INVALIDHEADER;
    if (GetLE<std::uint16_t>(header + 8) != kFormatVersion)
        return STG_E_OLDFORMAT;
    if (GetLE<std::uint32_t>(header + 12) != 0)
        return STG_E_INVALIDHEADER;
    version = static_cast<SHORT>(GetLE<std::uint16_t>(header + 10));
    return S_OK;
}

HRESULT OpenError(int error, bool storing) {
    switch (error) {
    case ENOENT:
        return storing ? STG_E_PATHNOTFOUND : STG_E_FILENOTFOUND;
    case ENOTDIR:
        return STG_E_PATHNOTFOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
        return STG_E_ACCESSDENIED;
    case ENOSPC:
    case EDQUOT:
        return STG_E_MEDIUMFULL;
    case ENOMEM:
        return E_OUTOFMEMORY;
    default:
        return storing ? STG_E_WRITEFAULT : STG_E_READFAULT;
    }
}

HRESULT WriteError(int error) {
    return error == ENOSPC || error == EDQUOT ? STG_E_MEDIUMFULL : STG_E_WRITEFAULT;
}

// ---------------------------------------------------------------------------------------------
// Media: where a storing archive puts its bytes and where a loading archive takes them from.

class Sink {
public:
    virtual ~Sink() = default;
    virtual HRESULT Write(const Byte* data, std::size_t size) = 0;
    virtual HRESULT SetVersion(SHORT version) = 0;
    virtual HRESULT Flush() = 0;
    virtual HRESULT Finish() = 0; // completes the archive on its medium
    virtual void Discard() = 0;   // gives the archive up
};

class Source {
public:
    virtual ~Source() = default;
    // Exactly size bytes, or a failure.
    virtual HRESULT Read(Byte* data, std::size_t size) = 0;
    virtual HRESULT Skip(std::uint64_t size) = 0;
    virtual void Close() = 0;
};

class FileSink final : public Sink {
public:
    FileSink(std::FILE* file, std::filesystem::path target, std::filesystem::path temporary)
        : m_file(file), m_target(std::move(target)), m_temporary(std::move(temporary)) {}
    ~FileSink() override { Discard(); }

    HRESULT Write(const Byte* data, std::size_t size) override {
        if (std::fwrite(data, 1, size, m_file) != size)
            return WriteError(errno);
        return S_OK;
    }
    HRESULT SetVersion(SHORT version) override {
        m_version = version;
        return S_OK;
    }
    HRESULT Flush() override { return std::fflush(m_file) == 0 ? S_OK : WriteError(errno); }

    HRESULT Finish() override {
        // The version goes into the header last, as it may be put at any time.
        const auto header = MakeHeader(m_version);
        HRESULT hr = S_OK;
        if (std::fseek(m_file, 0, SEEK_SET) != 0 ||
            std::fwrite(header.data(), 1, header.size(), m_file) != header.size() ||
            std::fflush(m_file) != 0)
            hr = WriteError(errno);
        const int closed = std::fclose(m_file);
        m_file = nullptr;
        if (SUCCEEDED(hr) && closed != 0)
            hr = WriteError(errno);
        if (SUCCEEDED(hr)) {
            std::error_code error;
            std::filesystem::rename(m_temporary, m_target, error);
            if (error)
                hr = OpenError(error.value(), true);
        }
        if (FAILED(hr)) {
            std::error_code ignored;
            std::filesystem::remove(m_temporary, ignored);
        }
        m_done = true;
        return hr;
    }

    void Discard() override {
        if (m_done)
            return;
        if (m_file != nullptr)
            std::fclose(m_file);
        m_file = nullptr;
        std::error_code ignored;
        std::filesystem::remove(m_temporary, ignored);
        m_done = true;
    }

private:
    std::FILE* m_file;
    std::filesystem::path m_target;
    std::filesystem::path m_temporary;
    SHORT m_version = 0;
    bool m_done = false;
};

class MemorySink final : public Sink {
public:
    explicit MemorySink(std::shared_ptr<std::vector<std::byte>> bytes)
        : m_bytes(std::move(bytes)) {}

    HRESULT Write(const Byte* data, std::size_t size) override {
        try {
            const auto* first = reinterpret_cast<const std::byte*>(data);
            m_bytes->insert(m_bytes->end(), first, first + size);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (const std::length_error&) {
            return E_OUTOFMEMORY;
        }
        return S_OK;
    }
    HRESULT SetVersion(SHORT version) override {
        if (m_bytes->size() < kHeaderSize)
            return E_UNEXPECTED; // the owner emptied the buffer under the archive
        Byte field[2];
        PutLE<std::uint16_t>(field, static_cast<std::uint16_t>(version));
        (*m_bytes)[10] = std::byte{field[0]};
        (*m_bytes)[11] = std::byte{field[1]};
        return S_OK;
    }
    HRESULT Flush() override { return S_OK; }
    HRESULT Finish() override { return S_OK; }
    void Discard() override { m_bytes->clear(); }

private:
    std::shared_ptr<std::vector<std::byte>> m_bytes;
};

class FileSource final : public Source {
public:
    explicit FileSource(std::FILE* file) : m_file(file) {}
    ~FileSource() override { Close(); }

    HRESULT Read(Byte* data, std::size_t size) override {
        if (m_file == nullptr)
            return E_UNEXPECTED;
        const long start = std::ftell(m_file);
        if (std::fread(data, 1, size, m_file) == size)
            return S_OK;
        // The file ended sooner than its size said (it shrank while open) or could not be read.
        // A refused read consumes nothing, as in memory: the next read starts where it did.
        const HRESULT hr = std::ferror(m_file) ? STG_E_READFAULT : IKQ_E_ARCHIVE_EOF;
        Rewind(start);
        return hr;
    }
    HRESULT Skip(std::uint64_t size) override {
        if (m_file == nullptr)
            return E_UNEXPECTED;
        const long start = std::ftell(m_file);
        Byte chunk[4096];
        while (size > 0) {
            const std::size_t step =
                static_cast<std::size_t>(std::min<std::uint64_t>(size, sizeof chunk));
            if (HRESULT hr = Read(chunk, step); FAILED(hr)) {
                Rewind(start);
                return hr;
            }
            size -= step;
        }
        return S_OK;
    }
    void Close() override {
        if (m_file != nullptr)
            std::fclose(m_file);
        m_file = nullptr;
    }

private:
    void Rewind(long position) {
        std::clearerr(m_file);
        if (position >= 0)
            std::fseek(m_file, position, SEEK_SET);
    }

    std::FILE* m_file;
};

class MemorySource final : public Source {
public:
    explicit MemorySource(std::vector<std::byte> bytes, std::size_t offset)
        : m_bytes(std::move(bytes)), m_offset(offset) {}

    HRESULT Read(Byte* data, std::size_t size) override {
        if (size > m_bytes.size() - m_offset)
            return IKQ_E_ARCHIVE_EOF;
        if (size > 0)
            std::memcpy(data, m_bytes.data() + m_offset, size);
        m_offset += size;
        return S_OK;
    }
    HRESULT Skip(std::uint64_t size) override {
        if (size > m_bytes.size() - m_offset)
            return IKQ_E_ARCHIVE_EOF;
        m_offset += static_cast<std::size_t>(size);
        return S_OK;
    }
    void Close() override {
        m_bytes.clear();
        m_bytes.shrink_to_fit();
        m_offset = 0;
    }

private:
    std::vector<std::byte> m_bytes;
    std::size_t m_offset;
};

// ---------------------------------------------------------------------------------------------
// One archive over a sink (storing) or a source (loading).

class StreamArchive final : public IKQ_Archive {
public:
    // Storing: the header is already on the sink.
    explicit StreamArchive(std::unique_ptr<Sink> sink)
        : m_sink(std::move(sink)), m_position(kHeaderSize) {}
    // Loading: the header (with version) has been read; size is the whole archive's.
    StreamArchive(std::unique_ptr<Source> source, std::uint64_t size, SHORT version)
        : m_source(std::move(source)), m_size(size), m_position(kHeaderSize), m_version(version) {}

    // IUnknown
    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr)
            return E_POINTER;
        if (iid == IID_IUnknown || iid == IID_IKQ_Archive) {
            *object = static_cast<IKQ_Archive*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return m_references.fetch_add(1, std::memory_order_relaxed) + 1; }
    ULONG Release() override {
        const ULONG left = m_references.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) {
            if (!m_closed)
                Close(); // no one is left to hear about a failure
            delete this;
        }
        return left;
    }

    // Direction
    HRESULT IsLoading(LONG* flag) override { return Flag(flag, Loading()); }
    HRESULT IsStoring(LONG* flag) override { return Flag(flag, !Loading()); }

    // Raw bytes
    HRESULT Read(void* buffer, ULONG count, ULONG* read) override {
        if (read != nullptr)
            *read = 0;
        if (HRESULT hr = ReadAllowed(count == 0 ? this : buffer); FAILED(hr))
            return hr;
        auto* out = static_cast<Byte*>(buffer);
        ULONG done = 0;
        HRESULT hr = S_OK;
        while (done < count) {
            if (m_rawLeft == 0) {
                // Continue into the next raw block, if the next item is one.
                if (Remaining() == 0)
                    break;
                Byte tag = 0;
                if (hr = PeekTag(tag); FAILED(hr) || tag != Item::eItemBytes)
                    break; // a failure, or the raw bytes end here (S_FALSE below)
                Byte length[4];
                if (Remaining() < 1 + sizeof length) {
                    hr = IKQ_E_ARCHIVE_EOF;
                    break;
                }
                ConsumePeeked();
                if (hr = Take(length, sizeof length); FAILED(hr))
                    break;
                m_rawLeft = GetLE<std::uint32_t>(length);
                if (m_rawLeft > Remaining()) {
                    hr = IKQ_E_ARCHIVE_EOF;
                    break;
                }
                continue;
            }
            const ULONG step = std::min(count - done, m_rawLeft);
            if (hr = Take(out + done, step); FAILED(hr))
                break;
            done += step;
            m_rawLeft -= step;
        }
        if (read != nullptr)
            *read = done;
        if (FAILED(hr))
            return hr;
        return done == count ? S_OK : S_FALSE;
    }

    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override {
        if (written != nullptr)
            *written = 0;
        if (HRESULT hr = WriteAllowed(); FAILED(hr))
            return hr;
        if (count == 0)
            return S_OK; // an empty block would only be noise
        if (buffer == nullptr)
            return E_POINTER;
        Byte head[5];
        head[0] = Item::eItemBytes;
        PutLE<std::uint32_t>(head + 1, count);
        if (HRESULT hr = Emit(head, sizeof head); FAILED(hr))
            return hr;
        if (HRESULT hr = Emit(static_cast<const Byte*>(buffer), count); FAILED(hr))
            return hr;
        if (written != nullptr)
            *written = count;
        return S_OK;
    }

    // Fixed-size values
    HRESULT ReadByte(BYTE* value) override {
        return ReadValue<std::uint8_t>(Item::eItemByte, value);
    }
    HRESULT WriteByte(BYTE value) override {
        return WriteValue<std::uint8_t>(Item::eItemByte, value);
    }
    HRESULT ReadShort(SHORT* value) override {
        return ReadValue<std::uint16_t>(Item::eItemShort, value);
    }
    HRESULT WriteShort(SHORT value) override {
        return WriteValue<std::uint16_t>(Item::eItemShort, value);
    }
    HRESULT ReadLong(LONG* value) override {
        return ReadValue<std::uint32_t>(Item::eItemLong, value);
    }
    HRESULT WriteLong(LONG value) override {
        return WriteValue<std::uint32_t>(Item::eItemLong, value);
    }
    HRESULT ReadFloat(float* value) override {
        return ReadValue<std::uint32_t>(Item::eItemFloat, value);
    }
    HRESULT WriteFloat(float value) override {
        return WriteValue<std::uint32_t>(Item::eItemFloat, value);
    }
    HRESULT ReadDouble(double* value) override {
        return ReadValue<std::uint64_t>(Item::eItemDouble, value);
    }
    HRESULT WriteDouble(double value) override {
        return WriteValue<std::uint64_t>(Item::eItemDouble, value);
    }
    HRESULT WriteULong(ULONG value) override {
        return WriteValue<std::uint32_t>(Item::eItemULong, value);
    }
    HRESULT ReadULong(ULONG* value) override {
        return ReadValue<std::uint32_t>(Item::eItemULong, value);
    }
    HRESULT ReadUShort(USHORT* value) override {
        return ReadValue<std::uint16_t>(Item::eItemUShort, value);
    }
    HRESULT WriteUShort(USHORT value) override {
        return WriteValue<std::uint16_t>(Item::eItemUShort, value);
    }
    HRESULT ReadInt64(LONGLONG* value) override {
        return ReadValue<std::uint64_t>(Item::eItemInt64, value);
    }
    HRESULT WriteInt64(LONGLONG value) override {
        return WriteValue<std::uint64_t>(Item::eItemInt64, value);
    }
    HRESULT ReadUInt64(ULONGLONG* value) override {
        return ReadValue<std::uint64_t>(Item::eItemUInt64, value);
    }
    HRESULT WriteUInt64(ULONGLONG value) override {
        return WriteValue<std::uint64_t>(Item::eItemUInt64, value);
    }

    // Strings
    HRESULT ReadString(BSTR* value) override { return ReadText(value); }
    HRESULT WriteString(BSTR value) override { return WriteText(value, SysStringLen(value)); }
    HRESULT ReadWideString(wchar_t** value) override { return ReadText(value); }
    HRESULT WriteWideString(wchar_t* value) override {
        if (HRESULT hr = WriteAllowed(); FAILED(hr))
            return hr;
        if (value == nullptr)
            return E_POINTER;
        return WriteText(value, std::wcslen(value));
    }

    // GUID: Data1, Data2, Data3 little-endian, then the eight bytes of Data4 as they are.
    HRESULT ReadGuid(GUID* value) override {
        Byte payload[16];
        if (HRESULT hr = ReadItem(Item::eItemGuid, value, payload); FAILED(hr))
            return hr;
        GUID guid;
        guid.Data1 = GetLE<std::uint32_t>(payload);
        guid.Data2 = GetLE<std::uint16_t>(payload + 4);
        guid.Data3 = GetLE<std::uint16_t>(payload + 6);
        std::memcpy(guid.Data4, payload + 8, 8);
        *value = guid;
        return S_OK;
    }
    HRESULT WriteGuid(const GUID& value) override {
        Byte item[17];
        item[0] = Item::eItemGuid;
        PutLE<std::uint32_t>(item + 1, value.Data1);
        PutLE<std::uint16_t>(item + 5, value.Data2);
        PutLE<std::uint16_t>(item + 7, value.Data3);
        std::memcpy(item + 9, value.Data4, 8);
        return EmitItem(item, sizeof item);
    }

    // Counts
    HRESULT ReadCount(ULONGLONG* count) override {
        Byte payload[8];
        if (HRESULT hr = ReadItem(Item::eItemCount, count, payload); FAILED(hr))
            return hr;
        const auto value = GetLE<std::uint64_t>(payload);
        if (value > Remaining())
            return IKQ_E_ARCHIVE_EOF; // so many items cannot follow
        *count = value;
        return S_OK;
    }
    HRESULT WriteCount(ULONGLONG count) override {
        return WriteValue<std::uint64_t>(Item::eItemCount, count);
    }

    // Navigation and life cycle
    HRESULT PeekItemType(LONG* type) override {
        if (HRESULT hr = ReadAllowed(type); FAILED(hr))
            return hr;
        if (m_rawLeft > 0) {
            *type = Item::eItemBytes;
            return S_OK;
        }
        if (Remaining() == 0) {
            *type = Item::eItemNone;
            return S_FALSE;
        }
        Byte tag = 0;
        if (HRESULT hr = PeekTag(tag); FAILED(hr))
            return hr;
        if (!IsKnownTag(tag))
            return STG_E_DOCFILECORRUPT;
        *type = tag;
        return S_OK;
    }

    HRESULT SkipItem() override {
        if (HRESULT hr = ReadAllowed(this); FAILED(hr))
            return hr;
        if (m_rawLeft > 0) {
            const ULONG left = std::exchange(m_rawLeft, 0);
            return Discard(left);
        }
        Byte tag = 0;
        if (HRESULT hr = PeekTag(tag); FAILED(hr))
            return hr;
        if (!IsKnownTag(tag))
            return STG_E_DOCFILECORRUPT;
        if (const std::size_t fixed = FixedPayload(tag); fixed > 0) {
            if (Remaining() < 1 + fixed)
                return IKQ_E_ARCHIVE_EOF;
            if (HRESULT hr = Discard(fixed); FAILED(hr))
                return hr;
            ConsumePeeked();
            return S_OK;
        }
        // A string (32-bit characters) or a raw block (bytes), after a 32-bit length.
        Byte length[4];
        if (Remaining() < 1 + sizeof length)
            return IKQ_E_ARCHIVE_EOF;
        ConsumePeeked();
        if (HRESULT hr = Take(length, sizeof length); FAILED(hr))
            return hr;
        const std::uint64_t bytes =
            std::uint64_t{GetLE<std::uint32_t>(length)} * (tag == Item::eItemString ? 4 : 1);
        if (bytes > Remaining())
            return IKQ_E_ARCHIVE_EOF;
        return Discard(bytes);
    }

    HRESULT GetPosition(ULONGLONG* position) override {
        if (m_closed)
            return E_UNEXPECTED;
        if (position == nullptr)
            return E_POINTER;
        *position = Loading() ? Consumed() : m_position;
        return S_OK;
    }

    HRESULT Flush() override {
        if (m_closed)
            return E_UNEXPECTED;
        if (Loading())
            return S_OK;
        if (FAILED(m_writeError))
            return m_writeError;
        return Remember(m_sink->Flush());
    }

    HRESULT Close() override {
        if (m_closed)
            return E_UNEXPECTED;
        m_closed = true;
        if (Loading()) {
            m_source->Close();
            return S_OK;
        }
        if (FAILED(m_writeError)) {
            m_sink->Discard();
            return m_writeError;
        }
        return m_sink->Finish();
    }

    HRESULT Abort() override {
        if (m_closed)
            return E_UNEXPECTED;
        m_closed = true;
        if (Loading())
            m_source->Close();
        else
            m_sink->Discard();
        return S_OK;
    }

    HRESULT GetVersion(SHORT* version) override {
        if (m_closed)
            return E_UNEXPECTED;
        if (version == nullptr)
            return E_POINTER;
        *version = m_version;
        return S_OK;
    }
    HRESULT PutVersion(SHORT version) override {
        if (m_closed)
            return E_UNEXPECTED;
        m_version = version;
        return Loading() ? S_OK : m_sink->SetVersion(version);
    }

private:
    ~StreamArchive() = default; // only Release destroys

    bool Loading() const { return m_source != nullptr; }

    HRESULT Flag(LONG* flag, bool value) const {
        if (m_closed)
            return E_UNEXPECTED;
        if (flag == nullptr)
            return E_POINTER;
        *flag = value ? 1 : 0;
        return S_OK;
    }

    // ----- storing

    HRESULT WriteAllowed() const {
        if (m_closed)
            return E_UNEXPECTED;
        if (Loading())
            return STG_E_ACCESSDENIED;
        return m_writeError; // a medium that failed once stays failed
    }

    HRESULT Remember(HRESULT hr) {
        if (FAILED(hr) && SUCCEEDED(m_writeError))
            m_writeError = hr;
        return hr;
    }

    HRESULT Emit(const Byte* data, std::size_t size) {
        if (HRESULT hr = Remember(m_sink->Write(data, size)); FAILED(hr))
            return hr;
        m_position += size;
        return S_OK;
    }

    HRESULT EmitItem(const Byte* item, std::size_t size) {
        if (HRESULT hr = WriteAllowed(); FAILED(hr))
            return hr;
        return Emit(item, size);
    }

    // Integers and floating-point values travel as their bits, two's complement and IEEE 754.
    template <typename Bits, typename T> HRESULT WriteValue(Item tag, T value) {
        Byte item[1 + sizeof(Bits)];
        item[0] = static_cast<Byte>(tag);
        if constexpr (std::is_floating_point_v<T>)
            PutLE<Bits>(item + 1, std::bit_cast<Bits>(value));
        else
            PutLE<Bits>(item + 1, static_cast<Bits>(value));
        return EmitItem(item, sizeof item);
    }

    HRESULT WriteText(const wchar_t* text, std::size_t length) {
        if (HRESULT hr = WriteAllowed(); FAILED(hr))
            return hr;
        if (length > std::numeric_limits<std::uint32_t>::max() / 4)
            return E_INVALIDARG;
        Byte head[5];
        head[0] = Item::eItemString;
        PutLE<std::uint32_t>(head + 1, static_cast<std::uint32_t>(length));
        if (HRESULT hr = Emit(head, sizeof head); FAILED(hr))
            return hr;
        // Each character as its 32-bit code, in chunks.
        Byte chunk[4 * 256];
        for (std::size_t first = 0; first < length; first += 256) {
            const std::size_t n = std::min<std::size_t>(256, length - first);
            for (std::size_t i = 0; i < n; ++i)
                PutLE<std::uint32_t>(chunk + 4 * i, static_cast<std::uint32_t>(text[first + i]));
            if (HRESULT hr = Emit(chunk, 4 * n); FAILED(hr))
                return hr;
        }
        return S_OK;
    }

    // ----- loading

    std::uint64_t Consumed() const { return m_position - (m_peeked ? 1 : 0); }
    std::uint64_t Remaining() const { return m_size - Consumed(); }

    HRESULT ReadAllowed(const void* out) const {
        if (m_closed)
            return E_UNEXPECTED;
        if (out == nullptr)
            return E_POINTER;
        if (!Loading())
            return STG_E_ACCESSDENIED;
        return S_OK;
    }

    // Exactly size bytes of the source.
    HRESULT Take(Byte* data, std::size_t size) {
        if (HRESULT hr = m_source->Read(data, size); FAILED(hr))
            return hr;
        m_position += size;
        return S_OK;
    }

    HRESULT Discard(std::uint64_t size) {
        if (HRESULT hr = m_source->Skip(size); FAILED(hr))
            return hr;
        m_position += size;
        return S_OK;
    }

    // The type byte of the next item, read once and kept until consumed.
    HRESULT PeekTag(Byte& tag) {
        if (!m_peeked) {
            if (Remaining() == 0)
                return IKQ_E_ARCHIVE_EOF;
            Byte byte = 0;
            if (HRESULT hr = Take(&byte, 1); FAILED(hr))
                return hr;
            m_peeked = byte;
        }
        tag = *m_peeked;
        return S_OK;
    }
    void ConsumePeeked() { m_peeked.reset(); }

    // Checks the next item's type and that its payload is there, then consumes the type byte
    // and reads the payload. A wrong type consumes nothing, so the caller may try another.
    template <std::size_t N> HRESULT ReadItem(Item expected, const void* out, Byte (&payload)[N]) {
        if (HRESULT hr = ReadAllowed(out); FAILED(hr))
            return hr;
        if (m_rawLeft > 0)
            return DISP_E_TYPEMISMATCH; // unread raw bytes come first
        Byte tag = 0;
        if (HRESULT hr = PeekTag(tag); FAILED(hr))
            return hr;
        if (!IsKnownTag(tag))
            return STG_E_DOCFILECORRUPT;
        if (tag != expected)
            return DISP_E_TYPEMISMATCH;
        if (Remaining() < 1 + N)
            return IKQ_E_ARCHIVE_EOF;
        // The type byte is consumed with its payload only: a refused read consumes nothing.
        if (HRESULT hr = Take(payload, N); FAILED(hr))
            return hr;
        ConsumePeeked();
        return S_OK;
    }

    template <typename Bits, typename T> HRESULT ReadValue(Item tag, T* value) {
        Byte payload[sizeof(Bits)];
        if (HRESULT hr = ReadItem(tag, value, payload); FAILED(hr))
            return hr;
        const Bits bits = GetLE<Bits>(payload);
        if constexpr (std::is_floating_point_v<T>)
            *value = std::bit_cast<T>(bits);
        else
            *value = static_cast<T>(bits);
        return S_OK;
    }

    // A string item into a new BSTR.
    HRESULT ReadText(wchar_t** value) {
        Byte head[4];
        if (HRESULT hr = ReadItem(Item::eItemString, value, head); FAILED(hr))
            return hr;
        const std::uint32_t length = GetLE<std::uint32_t>(head);
        if (std::uint64_t{length} * 4 > Remaining())
            return IKQ_E_ARCHIVE_EOF; // the string's length is bounded by what the archive holds
        BSTR text = SysAllocStringLen(nullptr, length);
        if (text == nullptr)
            return E_OUTOFMEMORY;
        Byte chunk[4 * 256];
        for (std::uint32_t first = 0; first < length; first += 256) {
            const std::uint32_t n = std::min<std::uint32_t>(256, length - first);
            if (HRESULT hr = Take(chunk, 4 * std::size_t{n}); FAILED(hr)) {
                SysFreeString(text);
                return hr;
            }
            for (std::uint32_t i = 0; i < n; ++i)
                text[first + i] = static_cast<wchar_t>(GetLE<std::uint32_t>(chunk + 4 * i));
        }
        *value = text;
        return S_OK;
    }

    std::atomic<ULONG> m_references{1};
    std::unique_ptr<Sink> m_sink;     // storing
    std::unique_ptr<Source> m_source; // loading
    std::uint64_t m_size = 0;         // loading: the whole archive, header included
    std::uint64_t m_position;         // bytes written, or taken from the source
    std::optional<Byte> m_peeked;     // loading: a type byte taken but not yet consumed
    ULONG m_rawLeft = 0;              // loading: bytes left in the raw block being read
    SHORT m_version = 0;
    HRESULT m_writeError = S_OK;
    bool m_closed = false;
};

template <typename Make> HRESULT Create(IKQ_Archive** archive, Make make) noexcept {
    if (archive == nullptr)
        return E_POINTER;
    *archive = nullptr;
    try {
        return make(archive);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

} // namespace

HRESULT CreateFileArchiveForStoring(const std::filesystem::path& path,
                                    IKQ_Archive** archive) noexcept {
    return Create(archive, [&](IKQ_Archive** out) {
        std::filesystem::path temporary = path;
        temporary += ".tmp";
        std::FILE* file = std::fopen(temporary.c_str(), "wb");
        if (file == nullptr)
            return OpenError(errno, true);
        auto sink = std::make_unique<FileSink>(file, path, temporary);
        const auto header = MakeHeader(0);
        if (HRESULT hr = sink->Write(header.data(), header.size()); FAILED(hr))
            return hr; // the sink removes the temporary file
        *out = new StreamArchive(std::move(sink));
        return S_OK;
    });
}

HRESULT CreateFileArchiveForLoading(const std::filesystem::path& path,
                                    IKQ_Archive** archive) noexcept {
    return Create(archive, [&](IKQ_Archive** out) {
        std::error_code error;
        if (std::filesystem::is_directory(path, error))
            return STG_E_ACCESSDENIED;
        std::FILE* file = std::fopen(path.c_str(), "rb");
        if (file == nullptr) {
            const int openError = errno;
            if (openError == ENOENT &&
                !std::filesystem::exists(path.parent_path().empty() ? std::filesystem::path(".")
                                                                    : path.parent_path(),
                                         error))
                return STG_E_PATHNOTFOUND;
            return OpenError(openError, false);
        }
        auto source = std::make_unique<FileSource>(file);
        const std::uintmax_t size = std::filesystem::file_size(path, error);
        if (error)
            return STG_E_READFAULT;
        Byte header[kHeaderSize];
        const std::size_t got = std::fread(header, 1, sizeof header, file);
        SHORT version = 0;
        if (HRESULT hr = ParseHeader(header, got, version); FAILED(hr))
            return hr;
        *out = new StreamArchive(std::move(source), size, version);
        return S_OK;
    });
}

HRESULT CreateMemoryArchiveForStoring(std::shared_ptr<std::vector<std::byte>> bytes,
                                      IKQ_Archive** archive) noexcept {
    return Create(archive, [&](IKQ_Archive** out) {
        if (bytes == nullptr)
            return E_POINTER;
        const auto header = MakeHeader(0);
        bytes->assign(reinterpret_cast<const std::byte*>(header.data()),
                      reinterpret_cast<const std::byte*>(header.data()) + header.size());
        *out = new StreamArchive(std::make_unique<MemorySink>(std::move(bytes)));
        return S_OK;
    });
}

HRESULT CreateMemoryArchiveForLoading(std::vector<std::byte> bytes,
                                      IKQ_Archive** archive) noexcept {
    return Create(archive, [&](IKQ_Archive** out) {
        SHORT version = 0;
        if (HRESULT hr =
                ParseHeader(reinterpret_cast<const Byte*>(bytes.data()), bytes.size(), version);
            FAILED(hr))
            return hr;
        const std::uint64_t size = bytes.size();
        *out = new StreamArchive(std::make_unique<MemorySource>(std::move(bytes), kHeaderSize),
                                 size, version);
        return S_OK;
    });
}

} // namespace host::archive
