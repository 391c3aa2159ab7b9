// The file and memory archives of the host kit, through IKQ_Archive itself: byte layout,
// answers for every misuse, raw blocks, navigation and the life cycle of the file.
#include "host/archive/archives.h"

#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using host::com::ComPtr;
using Bytes = std::vector<std::byte>;

Bytes B(std::initializer_list<int> values) {
    Bytes bytes;
    for (int v : values)
        bytes.push_back(static_cast<std::byte>(v));
    return bytes;
}

Bytes ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> chars((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Bytes bytes(chars.size());
    std::memcpy(bytes.data(), chars.data(), chars.size());
    return bytes;
}

void WriteFile(const fs::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

Bytes Header(int versionLow = 0, int versionHigh = 0) {
    return B({0x89, 'K', 'Q', 'A', 'R', 0x0D, 0x0A, 0x1A, 0x01, 0x00, versionLow, versionHigh, 0, 0,
              0, 0});
}

Bytes Concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

enum class Medium { File, Memory };

// Creates a storing archive on the medium and, once it is closed, a loading one over the same
// bytes.
class ArchiveTest : public ::testing::TestWithParam<Medium> {
protected:
    void SetUp() override {
        m_live = host::com::LiveBstrCount();
        m_path = m_dir / "object.kqa";
    }
    void TearDown() override { EXPECT_EQ(host::com::LiveBstrCount(), m_live) << "a BSTR leaked"; }

    ComPtr<IKQ_Archive> Storing() {
        ComPtr<IKQ_Archive> archive;
        if (GetParam() == Medium::File)
            EXPECT_EQ(host::archive::CreateFileArchiveForStoring(m_path, archive.Put()), S_OK);
        else
            EXPECT_EQ(host::archive::CreateMemoryArchiveForStoring(m_memory, archive.Put()), S_OK);
        return archive;
    }

    // The bytes of the stored archive (closed by now).
    Bytes Stored() const { return GetParam() == Medium::File ? ReadFile(m_path) : *m_memory; }

    ComPtr<IKQ_Archive> Loading(const Bytes& bytes) {
        ComPtr<IKQ_Archive> archive;
        EXPECT_EQ(Open(bytes, archive.Put()), S_OK);
        return archive;
    }
    ComPtr<IKQ_Archive> Loading() { return Loading(Stored()); }

    HRESULT Open(const Bytes& bytes, IKQ_Archive** archive) {
        if (GetParam() == Medium::File) {
            const fs::path path = m_dir / "input.kqa";
            WriteFile(path, bytes);
            return host::archive::CreateFileArchiveForLoading(path, archive);
        }
        return host::archive::CreateMemoryArchiveForLoading(bytes, archive);
    }

    // Stores with store, closes and answers the item bytes after the header.
    template <typename Store> Bytes Items(Store store) {
        auto archive = Storing();
        store(archive.Get());
        EXPECT_EQ(archive->Close(), S_OK);
        const Bytes bytes = Stored();
        EXPECT_GE(bytes.size(), host::archive::kHeaderSize);
        return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(host::archive::kHeaderSize),
                     bytes.end());
    }

    slabadapt::test::TempDir m_dir{"archive"};
    fs::path m_path;
    std::shared_ptr<Bytes> m_memory = std::make_shared<Bytes>();

private:
    std::ptrdiff_t m_live = 0;
};

INSTANTIATE_TEST_SUITE_P(BothMedia, ArchiveTest, ::testing::Values(Medium::File, Medium::Memory),
                         [](const auto& info) {
                             return info.param == Medium::File ? "File" : "Memory";
                         });

// ----- layout

TEST_P(ArchiveTest, EmptyArchiveIsTheHeaderAlone) {
    auto archive = Storing();
    ASSERT_EQ(archive->Close(), S_OK);
    EXPECT_EQ(Stored(), Header());
}

TEST_P(ArchiveTest, VersionIsKeptInTheHeader) {
    auto archive = Storing();
    EXPECT_EQ(archive->PutVersion(0x1234), S_OK);
    SHORT version = 0;
    EXPECT_EQ(archive->GetVersion(&version), S_OK);
    EXPECT_EQ(version, 0x1234);
    ASSERT_EQ(archive->Close(), S_OK);
    EXPECT_EQ(Stored(), Header(0x34, 0x12));

    auto negative = Storing();
    negative->PutVersion(-2);
    ASSERT_EQ(negative->Close(), S_OK);
    auto loading = Loading();
    EXPECT_EQ(loading->GetVersion(&version), S_OK);
    EXPECT_EQ(version, -2);
    // A reader may put the version it read for nested readers.
    EXPECT_EQ(loading->PutVersion(7), S_OK);
    EXPECT_EQ(loading->GetVersion(&version), S_OK);
    EXPECT_EQ(version, 7);
}

TEST_P(ArchiveTest, FixedSizeItemsAreTaggedLittleEndian) {
    const Bytes items = Items([](IKQ_Archive* a) {
        a->WriteByte(0xAB);
        a->WriteShort(-2);
        a->WriteUShort(0xBEEF);
        a->WriteLong(0x01020304);
        a->WriteULong(0xFFFFFFFEu);
        a->WriteInt64(std::numeric_limits<LONGLONG>::min());
        a->WriteUInt64(0x0102030405060708ull);
        a->WriteFloat(1.0f);
        a->WriteDouble(-2.0);
        a->WriteCount(3);
    });
    EXPECT_EQ(items, B({0x01, 0xAB, 0x02, 0xFE, 0xFF, 0x03, 0xEF, 0xBE, 0x04, 0x04, 0x03, 0x02,
                        0x01, 0x05, 0xFE, 0xFF, 0xFF, 0xFF, 0x06, 0,    0,    0,    0,    0,
                        0,    0,    0x80, 0x07, 0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,
                        0x08, 0x00, 0x00, 0x80, 0x3F, 0x09, 0,    0,    0,    0,    0,    0,
                        0x00, 0xC0, 0x0C, 3,    0,    0,    0,    0,    0,    0,    0}));
}

TEST_P(ArchiveTest, GuidStringAndRawLayout) {
    const GUID guid = {
        0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};
    const Bytes items = Items([&](IKQ_Archive* a) {
        a->WriteGuid(guid);
        BSTR text = SysAllocString(L"Ž\U0001F600");
        a->WriteString(text);
        SysFreeString(text);
        wchar_t wide[] = L"a";
        a->WriteWideString(wide);
        const unsigned char raw[] = {1, 2, 3};
        ULONG written = 0;
        a->Write(raw, 3, &written);
        EXPECT_EQ(written, 3u);
    });
    EXPECT_EQ(items, B({0x0B, 0x0C, 0x00, 0x98, 0xAC, 0x9E, 0xE7, 0x65, 0x43, 0x87, 0x7E, 0x0A,
                        0x3F, 0x95, 0xAA, 0x42, 0xF4, 0x0A, 2,    0,    0,    0,    0x7D, 0x01,
                        0,    0,    0x00, 0xF6, 0x01, 0x00, 0x0A, 1,    0,    0,    0,    'a',
                        0,    0,    0,    0x0D, 3,    0,    0,    0,    1,    2,    3}));
}

TEST_P(ArchiveTest, NullBstrIsStoredAsEmptyAndEmptyWriteOfRawIsNothing) {
    const Bytes items = Items([](IKQ_Archive* a) {
        EXPECT_EQ(a->WriteString(nullptr), S_OK);
        ULONG written = 9;
        EXPECT_EQ(a->Write(nullptr, 0, &written), S_OK);
        EXPECT_EQ(written, 0u);
    });
    EXPECT_EQ(items, B({0x0A, 0, 0, 0, 0}));
}

// ----- answers

TEST_P(ArchiveTest, DirectionFlagsAndWrongDirection) {
    auto storing = Storing();
    LONG flag = -1;
    EXPECT_EQ(storing->IsStoring(&flag), S_OK);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(storing->IsLoading(&flag), S_OK);
    EXPECT_EQ(flag, 0);
    LONG value = 5;
    EXPECT_EQ(storing->ReadLong(&value), STG_E_ACCESSDENIED);
    EXPECT_EQ(value, 5);
    LONG type = 0;
    EXPECT_EQ(storing->PeekItemType(&type), STG_E_ACCESSDENIED);
    EXPECT_EQ(storing->SkipItem(), STG_E_ACCESSDENIED);
    ASSERT_EQ(storing->Close(), S_OK);

    auto loading = Loading();
    EXPECT_EQ(loading->IsLoading(&flag), S_OK);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(loading->IsStoring(&flag), S_OK);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(loading->WriteLong(1), STG_E_ACCESSDENIED);
    EXPECT_EQ(loading->Write("x", 1, nullptr), STG_E_ACCESSDENIED);
    EXPECT_EQ(loading->Flush(), S_OK);
}

TEST_P(ArchiveTest, NullOutArgumentsAnswerEPointer) {
    auto storing = Storing();
    storing->WriteLong(1);
    EXPECT_EQ(storing->IsLoading(nullptr), E_POINTER);
    EXPECT_EQ(storing->GetVersion(nullptr), E_POINTER);
    EXPECT_EQ(storing->GetPosition(nullptr), E_POINTER);
    EXPECT_EQ(storing->WriteWideString(nullptr), E_POINTER);
    EXPECT_EQ(storing->Write(nullptr, 1, nullptr), E_POINTER);
    ASSERT_EQ(storing->Close(), S_OK);
    auto loading = Loading();
    EXPECT_EQ(loading->ReadByte(nullptr), E_POINTER);
    EXPECT_EQ(loading->ReadLong(nullptr), E_POINTER);
    EXPECT_EQ(loading->ReadDouble(nullptr), E_POINTER);
    EXPECT_EQ(loading->ReadString(nullptr), E_POINTER);
    EXPECT_EQ(loading->ReadWideString(nullptr), E_POINTER);
    EXPECT_EQ(loading->ReadGuid(nullptr), E_POINTER);
    EXPECT_EQ(loading->ReadCount(nullptr), E_POINTER);
    EXPECT_EQ(loading->PeekItemType(nullptr), E_POINTER);
    EXPECT_EQ(loading->Read(nullptr, 4, nullptr), E_POINTER);
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), S_OK); // nothing was consumed by the refusals
    EXPECT_EQ(value, 1);
}

TEST_P(ArchiveTest, ReadingPastTheEndLeavesTheValue) {
    auto storing = Storing();
    storing->WriteDouble(1.5);
    ASSERT_EQ(storing->Close(), S_OK);
    auto loading = Loading();
    double value = 0;
    ASSERT_EQ(loading->ReadDouble(&value), S_OK);
    EXPECT_EQ(value, 1.5);
    EXPECT_EQ(loading->ReadDouble(&value), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(value, 1.5);
    BSTR text = nullptr;
    EXPECT_EQ(loading->ReadString(&text), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(loading->SkipItem(), IKQ_E_ARCHIVE_EOF);
}

TEST_P(ArchiveTest, WrongTypeConsumesNothing) {
    auto storing = Storing();
    storing->WriteLong(42);
    ASSERT_EQ(storing->Close(), S_OK);
    auto loading = Loading();
    double d = 7;
    EXPECT_EQ(loading->ReadDouble(&d), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(d, 7);
    ULONG u = 0;
    EXPECT_EQ(loading->ReadULong(&u), DISP_E_TYPEMISMATCH); // same width, other type
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), S_OK);
    EXPECT_EQ(value, 42);
}

TEST_P(ArchiveTest, UnknownTypeByteIsCorruption) {
    auto loading = Loading(Concat(Header(), B({0x7F, 1, 2, 3})));
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), STG_E_DOCFILECORRUPT);
    LONG type = 0;
    EXPECT_EQ(loading->PeekItemType(&type), STG_E_DOCFILECORRUPT);
    EXPECT_EQ(loading->SkipItem(), STG_E_DOCFILECORRUPT);
    auto zero = Loading(Concat(Header(), B({0x00})));
    EXPECT_EQ(zero->ReadLong(&value), STG_E_DOCFILECORRUPT);
}

TEST_P(ArchiveTest, TruncatedItemIsEndOfArchive) {
    auto loading = Loading(Concat(Header(), B({0x09, 0, 0, 0})));
    double value = 3;
    EXPECT_EQ(loading->ReadDouble(&value), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(value, 3);
}

TEST_P(ArchiveTest, StringLengthIsBoundedByTheArchive) {
    // A string that claims four billion characters in a nine-byte archive body.
    auto loading = Loading(Concat(Header(), B({0x0A, 0xFF, 0xFF, 0xFF, 0xFF, 'a', 0, 0, 0})));
    BSTR text = nullptr;
    EXPECT_EQ(loading->ReadString(&text), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(text, nullptr);
}

TEST_P(ArchiveTest, CountIsBoundedByTheArchive) {
    auto storing = Storing();
    storing->WriteCount(2);
    storing->WriteByte(1);
    storing->WriteByte(2);
    storing->WriteCount(100);
    ASSERT_EQ(storing->Close(), S_OK);
    auto loading = Loading();
    ULONGLONG count = 0;
    ASSERT_EQ(loading->ReadCount(&count), S_OK);
    EXPECT_EQ(count, 2u);
    BYTE b = 0;
    loading->ReadByte(&b);
    loading->ReadByte(&b);
    count = 9;
    EXPECT_EQ(loading->ReadCount(&count), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(count, 9u);
}

TEST_P(ArchiveTest, LongStringsCrossTheChunkSize) {
    std::wstring text;
    for (int i = 0; i < 1000; ++i)
        text += static_cast<wchar_t>(0x100 + i);
    auto storing = Storing();
    BSTR out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    ASSERT_EQ(storing->WriteString(out), S_OK);
    SysFreeString(out);
    ASSERT_EQ(storing->Close(), S_OK);
    auto loading = Loading();
    BSTR in = nullptr;
    ASSERT_EQ(loading->ReadString(&in), S_OK);
    EXPECT_EQ(std::wstring(in, SysStringLen(in)), text);
    SysFreeString(in);
}

TEST_P(ArchiveTest, StringsReadBackEitherWayAndEmptyIsNotNull) {
    auto storing = Storing();
    BSTR withZero = SysAllocStringLen(L"a\0b", 3);
    storing->WriteString(withZero);
    SysFreeString(withZero);
    storing->WriteString(nullptr);
    wchar_t wide[] = L"wide";
    storing->WriteWideString(wide);
    ASSERT_EQ(storing->Close(), S_OK);

    auto loading = Loading();
    wchar_t* asWide = nullptr;
    ASSERT_EQ(loading->ReadWideString(&asWide), S_OK);
    EXPECT_EQ(SysStringLen(asWide), 3u); // all characters arrive; as a C string it ends at L'\0'
    EXPECT_EQ(std::wstring(asWide), L"a");
    SysFreeString(asWide);
    BSTR empty = nullptr;
    ASSERT_EQ(loading->ReadString(&empty), S_OK);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(SysStringLen(empty), 0u);
    SysFreeString(empty);
    BSTR asBstr = nullptr;
    ASSERT_EQ(loading->ReadString(&asBstr), S_OK);
    EXPECT_EQ(std::wstring(asBstr), L"wide");
    SysFreeString(asBstr);
}

// ----- raw bytes

TEST_P(ArchiveTest, RawBytesReadAcrossBlocksAndStopAtOtherItems) {
    auto storing = Storing();
    storing->Write("abc", 3, nullptr);
    storing->Write("de", 2, nullptr);
    storing->WriteLong(9);
    ASSERT_EQ(storing->Close(), S_OK);

    auto loading = Loading();
    char buffer[8] = {};
    ULONG read = 0;
    EXPECT_EQ(loading->Read(buffer, 0, &read), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(loading->Read(buffer, 2, &read), S_OK);
    EXPECT_EQ(read, 2u);
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), DISP_E_TYPEMISMATCH); // inside a raw block
    LONG type = 0;
    EXPECT_EQ(loading->PeekItemType(&type), S_OK);
    EXPECT_EQ(type, IKQ_Archive::eItemBytes);
    EXPECT_EQ(loading->Read(buffer + 2, 6, &read), S_FALSE);
    EXPECT_EQ(read, 3u);
    EXPECT_EQ(std::string(buffer, 5), "abcde");
    EXPECT_EQ(loading->ReadLong(&value), S_OK);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(loading->Read(buffer, 4, &read), S_FALSE);
    EXPECT_EQ(read, 0u);
}

TEST_P(ArchiveTest, RawBlockLongerThanTheArchiveIsEndOfArchive) {
    auto loading = Loading(Concat(Header(), B({0x0D, 0xFF, 0, 0, 0, 1, 2})));
    char buffer[4];
    ULONG read = 9;
    EXPECT_EQ(loading->Read(buffer, 4, &read), IKQ_E_ARCHIVE_EOF);
    EXPECT_EQ(read, 0u);
}

// ----- navigation

TEST_P(ArchiveTest, PeekAndSkipEveryKindOfItem) {
    auto storing = Storing();
    storing->WriteByte(1);
    storing->WriteShort(2);
    storing->WriteUShort(3);
    storing->WriteLong(4);
    storing->WriteULong(5);
    storing->WriteInt64(6);
    storing->WriteUInt64(7);
    storing->WriteFloat(8);
    storing->WriteDouble(9);
    BSTR text = SysAllocString(L"ten");
    storing->WriteString(text);
    SysFreeString(text);
    storing->WriteGuid(IID_IUnknown);
    storing->WriteCount(0);
    storing->Write("raw", 3, nullptr);
    storing->WriteLong(99);
    ASSERT_EQ(storing->Close(), S_OK);

    auto loading = Loading();
    for (LONG expected = IKQ_Archive::eItemByte; expected <= IKQ_Archive::eItemBytes; ++expected) {
        LONG type = -1;
        ASSERT_EQ(loading->PeekItemType(&type), S_OK);
        EXPECT_EQ(type, expected);
        ASSERT_EQ(loading->SkipItem(), S_OK) << "item type " << expected;
    }
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), S_OK);
    EXPECT_EQ(value, 99);
    LONG type = -1;
    EXPECT_EQ(loading->PeekItemType(&type), S_FALSE);
    EXPECT_EQ(type, IKQ_Archive::eItemNone);
}

TEST_P(ArchiveTest, SkipInsideARawBlockSkipsItsRest) {
    auto storing = Storing();
    storing->Write("abcd", 4, nullptr);
    storing->WriteByte(7);
    ASSERT_EQ(storing->Close(), S_OK);
    auto loading = Loading();
    char c = 0;
    ULONG read = 0;
    ASSERT_EQ(loading->Read(&c, 1, &read), S_OK);
    ASSERT_EQ(loading->SkipItem(), S_OK);
    BYTE b = 0;
    EXPECT_EQ(loading->ReadByte(&b), S_OK);
    EXPECT_EQ(b, 7);
}

TEST_P(ArchiveTest, PositionCountsTheHeaderAndEveryByte) {
    auto storing = Storing();
    ULONGLONG position = 0;
    EXPECT_EQ(storing->GetPosition(&position), S_OK);
    EXPECT_EQ(position, 16u);
    storing->WriteLong(1);
    storing->Write("ab", 2, nullptr);
    EXPECT_EQ(storing->GetPosition(&position), S_OK);
    EXPECT_EQ(position, 16u + 5u + 7u);
    ASSERT_EQ(storing->Close(), S_OK);

    auto loading = Loading();
    LONG type = 0;
    loading->PeekItemType(&type); // peeking consumes nothing
    EXPECT_EQ(loading->GetPosition(&position), S_OK);
    EXPECT_EQ(position, 16u);
    LONG value = 0;
    loading->ReadLong(&value);
    EXPECT_EQ(loading->GetPosition(&position), S_OK);
    EXPECT_EQ(position, 21u);
}

// ----- life cycle

TEST_P(ArchiveTest, NothingAnswersAfterClose) {
    auto storing = Storing();
    EXPECT_EQ(storing->Flush(), S_OK);
    ASSERT_EQ(storing->Close(), S_OK);
    EXPECT_EQ(storing->Close(), E_UNEXPECTED);
    EXPECT_EQ(storing->Abort(), E_UNEXPECTED);
    EXPECT_EQ(storing->WriteLong(1), E_UNEXPECTED);
    EXPECT_EQ(storing->Flush(), E_UNEXPECTED);
    LONG flag = 0;
    EXPECT_EQ(storing->IsStoring(&flag), E_UNEXPECTED);
    SHORT version = 0;
    EXPECT_EQ(storing->GetVersion(&version), E_UNEXPECTED);
    EXPECT_EQ(storing->PutVersion(1), E_UNEXPECTED);

    auto loading = Loading();
    ASSERT_EQ(loading->Close(), S_OK);
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), E_UNEXPECTED);
    ULONGLONG position = 0;
    EXPECT_EQ(loading->GetPosition(&position), E_UNEXPECTED);
}

TEST_P(ArchiveTest, ReferenceCountingAndInterfaces) {
    auto archive = Storing();
    EXPECT_EQ(archive->AddRef(), 2u);
    EXPECT_EQ(archive->Release(), 1u);
    void* object = nullptr;
    ASSERT_EQ(archive->QueryInterface(IID_IUnknown, &object), S_OK);
    EXPECT_EQ(object, static_cast<void*>(archive.Get()));
    EXPECT_EQ(archive->Release(), 1u);
    ASSERT_EQ(archive->QueryInterface(IID_IKQ_Archive, &object), S_OK);
    EXPECT_EQ(archive->Release(), 1u);
    EXPECT_EQ(archive->QueryInterface(GUID_NULL, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(archive->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_P(ArchiveTest, LastReleaseClosesTheArchive) {
    {
        auto archive = Storing();
        archive->PutVersion(3);
        archive->WriteLong(5);
    }
    auto loading = Loading();
    SHORT version = 0;
    loading->GetVersion(&version);
    EXPECT_EQ(version, 3);
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), S_OK);
    EXPECT_EQ(value, 5);
}

TEST_P(ArchiveTest, HeaderIsChecked) {
    ComPtr<IKQ_Archive> archive;
    EXPECT_EQ(Open(Bytes{}, archive.Put()), STG_E_INVALIDHEADER);
    EXPECT_FALSE(archive);
    Bytes shortHeader = Header();
    shortHeader.pop_back();
    EXPECT_EQ(Open(shortHeader, archive.Put()), STG_E_INVALIDHEADER);
    Bytes magic = Header();
    magic[1] = std::byte{'X'};
    EXPECT_EQ(Open(magic, archive.Put()), STG_E_INVALIDHEADER);
    Bytes textMode = Header();
    textMode.erase(textMode.begin() + 5); // a transfer that turned "\r\n" into "\n"
    textMode.push_back(std::byte{0});
    EXPECT_EQ(Open(textMode, archive.Put()), STG_E_INVALIDHEADER);
    Bytes newer = Header();
    newer[8] = std::byte{2};
    EXPECT_EQ(Open(newer, archive.Put()), STG_E_OLDFORMAT);
    Bytes reserved = Header();
    reserved[15] = std::byte{1};
    EXPECT_EQ(Open(reserved, archive.Put()), STG_E_INVALIDHEADER);
    EXPECT_FALSE(archive);
    EXPECT_EQ(Open(Header(), archive.Put()), S_OK);
    EXPECT_TRUE(archive);
}

// ----- the file archive's own behaviour

class FileArchiveTest : public ArchiveTest {};
INSTANTIATE_TEST_SUITE_P(File, FileArchiveTest, ::testing::Values(Medium::File),
                         [](const auto&) { return std::string("File"); });

TEST_P(FileArchiveTest, FileAppearsOnlyWhenClosed) {
    auto archive = Storing();
    archive->WriteLong(1);
    EXPECT_EQ(archive->Flush(), S_OK);
    EXPECT_FALSE(fs::exists(m_path));
    EXPECT_TRUE(fs::exists(m_path.string() + ".tmp"));
    ASSERT_EQ(archive->Close(), S_OK);
    EXPECT_TRUE(fs::exists(m_path));
    EXPECT_FALSE(fs::exists(m_path.string() + ".tmp"));
}

TEST_P(FileArchiveTest, AbortKeepsAnEarlierFile) {
    WriteFile(m_path, B({'o', 'l', 'd'}));
    auto archive = Storing();
    archive->WriteLong(1);
    ASSERT_EQ(archive->Abort(), S_OK);
    EXPECT_EQ(ReadFile(m_path), B({'o', 'l', 'd'}));
    EXPECT_FALSE(fs::exists(m_path.string() + ".tmp"));
}

TEST_P(FileArchiveTest, OpenErrors) {
    ComPtr<IKQ_Archive> archive;
    EXPECT_EQ(host::archive::CreateFileArchiveForLoading(m_dir / "missing.kqa", archive.Put()),
              STG_E_FILENOTFOUND);
    EXPECT_EQ(host::archive::CreateFileArchiveForLoading(m_dir / "no" / "x.kqa", archive.Put()),
              STG_E_PATHNOTFOUND);
    EXPECT_EQ(host::archive::CreateFileArchiveForStoring(m_dir / "no" / "x.kqa", archive.Put()),
              STG_E_PATHNOTFOUND);
    EXPECT_EQ(host::archive::CreateFileArchiveForLoading(m_dir.path(), archive.Put()),
              STG_E_ACCESSDENIED);
    EXPECT_FALSE(archive);
    EXPECT_EQ(host::archive::CreateFileArchiveForLoading(m_path, nullptr), E_POINTER);
    EXPECT_EQ(host::archive::CreateFileArchiveForStoring(m_path, nullptr), E_POINTER);
}

TEST_P(FileArchiveTest, FullMediumFailsAndLeavesNoFile) {
    // The temporary file is a link to a device that is always full.
    fs::create_symlink("/dev/full", m_path.string() + ".tmp");
    ComPtr<IKQ_Archive> archive;
    ASSERT_EQ(host::archive::CreateFileArchiveForStoring(m_path, archive.Put()), S_OK);
    const std::vector<char> block(64 * 1024, 'x');
    HRESULT hr = S_OK;
    for (int i = 0; i < 4 && SUCCEEDED(hr); ++i)
        hr = archive->Write(block.data(), static_cast<ULONG>(block.size()), nullptr);
    if (SUCCEEDED(hr))
        hr = archive->Flush();
    EXPECT_EQ(hr, STG_E_MEDIUMFULL);
    EXPECT_EQ(archive->WriteLong(1), STG_E_MEDIUMFULL); // a failed medium stays failed
    EXPECT_EQ(archive->Close(), STG_E_MEDIUMFULL);
    EXPECT_FALSE(fs::exists(m_path));
}

// ----- the memory archive's own behaviour

TEST(MemoryArchive, BytesAreACompleteArchiveAtAnyTime) {
    auto bytes = std::make_shared<Bytes>(B({1, 2, 3}));
    ComPtr<IKQ_Archive> archive;
    ASSERT_EQ(host::archive::CreateMemoryArchiveForStoring(bytes, archive.Put()), S_OK);
    EXPECT_EQ(*bytes, Header());
    archive->PutVersion(1);
    archive->WriteByte(9);
    EXPECT_EQ(*bytes, Concat(Header(1), B({0x01, 9})));
    ComPtr<IKQ_Archive> reader;
    ASSERT_EQ(host::archive::CreateMemoryArchiveForLoading(*bytes, reader.Put()), S_OK);
    BYTE b = 0;
    EXPECT_EQ(reader->ReadByte(&b), S_OK);
    EXPECT_EQ(b, 9);
    EXPECT_EQ(archive->Abort(), S_OK);
    EXPECT_TRUE(bytes->empty());
    EXPECT_EQ(host::archive::CreateMemoryArchiveForStoring(nullptr, archive.Put()), E_POINTER);
}

TEST(MemoryArchive, UnsignedShortAndCountRoundTrip) {
    auto bytes = std::make_shared<std::vector<std::byte>>();
    host::com::ComPtr<IKQ_Archive> storing;
    ASSERT_EQ(host::archive::CreateMemoryArchiveForStoring(bytes, storing.Put()), S_OK);
    ASSERT_EQ(storing->WriteUShort(0xFFFF), S_OK);
    ASSERT_EQ(storing->WriteUShort(0), S_OK);
    ASSERT_EQ(storing->WriteCount(0), S_OK);
    ASSERT_EQ(storing->Close(), S_OK);

    host::com::ComPtr<IKQ_Archive> loading;
    ASSERT_EQ(host::archive::CreateMemoryArchiveForLoading(*bytes, loading.Put()), S_OK);
    USHORT a = 1, b = 1;
    SHORT wrong = 5;
    EXPECT_EQ(loading->ReadShort(&wrong), DISP_E_TYPEMISMATCH); // signed and unsigned differ
    EXPECT_EQ(wrong, 5);
    EXPECT_EQ(loading->ReadUShort(&a), S_OK);
    EXPECT_EQ(loading->ReadUShort(&b), S_OK);
    EXPECT_EQ(a, 0xFFFF);
    EXPECT_EQ(b, 0);
    ULONGLONG count = 9;
    EXPECT_EQ(loading->ReadCount(&count), S_OK);
    EXPECT_EQ(count, 0u);
}

// A read the file cannot serve (the file shrank while open) consumes nothing, as a read past
// the end of a memory archive: once the bytes are back, the same read gives the same item.
TEST_P(FileArchiveTest, ARefusedReadConsumesNothingOfTheFile) {
    const std::vector<char> block(20000, 'r');
    auto storing = Storing();
    storing->Write(block.data(), static_cast<ULONG>(block.size()), nullptr);
    storing->WriteLong(42);
    ASSERT_EQ(storing->Close(), S_OK);
    const Bytes whole = ReadFile(m_path);

    ComPtr<IKQ_Archive> loading;
    ASSERT_EQ(host::archive::CreateFileArchiveForLoading(m_path, loading.Put()), S_OK);
    fs::resize_file(m_path, whole.size() - 2); // the long loses its last two bytes
    std::vector<char> back(block.size());
    ULONG read = 0;
    ASSERT_EQ(loading->Read(back.data(), static_cast<ULONG>(back.size()), &read), S_OK);
    ULONGLONG before = 0;
    loading->GetPosition(&before);
    LONG value = 0;
    EXPECT_EQ(loading->ReadLong(&value), IKQ_E_ARCHIVE_EOF);
    ULONGLONG after = 0;
    loading->GetPosition(&after);
    EXPECT_EQ(after, before);
    WriteFile(m_path, whole);
    EXPECT_EQ(loading->ReadLong(&value), S_OK);
    EXPECT_EQ(value, 42);
}

} // namespace
