// Every type the wrapper streams, stored and loaded again through the kit's file archive and
// its memory archive; truncated archives and wrong headers end in _com_error.
#include "adaptivity/archive/Archive.h"
#include "host/archive/archives.h"

#include "tests/support/com_error.h"

#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using host::com::ComPtr;
using Bytes = std::vector<std::byte>;

enum class Medium { File, Memory };

const std::wstring kCzech = L"Příliš žluťoučký kůň úpěl ďábelské ódy";
const std::wstring kMixed = L"\U0001F600 \u4E2D\u6587 \u00DF\u00E9 \u0416 \u200D";
constexpr GUID kAdaptivity = {
    0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};
constexpr GUID kAllOnes = {
    0xFFFFFFFF, 0xFFFF, 0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

template <typename T> auto Bits(T value) {
    if constexpr (sizeof(T) == 4)
        return std::bit_cast<std::uint32_t>(value);
    else
        return std::bit_cast<std::uint64_t>(value);
}

using slabadapt::test::ComErrorOf;

class RoundTrip : public ::testing::TestWithParam<Medium> {
protected:
    void SetUp() override { m_live = host::com::LiveBstrCount(); }
    void TearDown() override { EXPECT_EQ(host::com::LiveBstrCount(), m_live) << "a BSTR leaked"; }

    // Stores through the wrapper and answers the archive's bytes.
    Bytes Store(const std::function<void(_ar::archive&)>& store) {
        const fs::path path = m_dir / "stored.kqa";
        auto memory = std::make_shared<Bytes>();
        ComPtr<IKQ_Archive> archive;
        if (GetParam() == Medium::File)
            EXPECT_EQ(host::archive::CreateFileArchiveForStoring(path, archive.Put()), S_OK);
        else
            EXPECT_EQ(host::archive::CreateMemoryArchiveForStoring(memory, archive.Put()), S_OK);
        {
            _ar::archive ar(archive.Get());
            EXPECT_TRUE(ar.IsStoring());
            EXPECT_FALSE(ar.IsLoading());
            store(ar);
        }
        EXPECT_EQ(archive->Close(), S_OK);
        return GetParam() == Medium::File ? ReadFile(path) : *memory;
    }

    // Opens bytes for loading; the failing HRESULT of the archive when they are no archive.
    HRESULT Open(const Bytes& bytes, ComPtr<IKQ_Archive>& archive) {
        if (GetParam() == Medium::File) {
            const fs::path path = m_dir / "loaded.kqa";
            WriteFile(path, bytes);
            return host::archive::CreateFileArchiveForLoading(path, archive.Put());
        }
        return host::archive::CreateMemoryArchiveForLoading(bytes, archive.Put());
    }

    void Load(const Bytes& bytes, const std::function<void(_ar::archive&)>& load) {
        ComPtr<IKQ_Archive> archive;
        ASSERT_EQ(Open(bytes, archive), S_OK);
        _ar::archive ar(archive.Get());
        EXPECT_TRUE(ar.IsLoading());
        load(ar);
        LONG type = -1;
        EXPECT_EQ(archive->PeekItemType(&type), S_FALSE) << "items left unread";
    }

    void Both(const std::function<void(_ar::archive&)>& store,
              const std::function<void(_ar::archive&)>& load) {
        Load(Store(store), load);
    }

    static Bytes ReadFile(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        std::vector<char> chars((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        Bytes bytes(chars.size());
        std::memcpy(bytes.data(), chars.data(), chars.size());
        return bytes;
    }
    static void WriteFile(const fs::path& path, const Bytes& bytes) {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }

    slabadapt::test::TempDir m_dir{"roundtrip"};

private:
    std::ptrdiff_t m_live = 0;
};

INSTANTIATE_TEST_SUITE_P(BothArchives, RoundTrip, ::testing::Values(Medium::File, Medium::Memory),
                         [](const auto& info) {
                             return info.param == Medium::File ? "File" : "Memory";
                         });

TEST_P(RoundTrip, IntegersAtTheirExtremes) {
    using L = std::numeric_limits<std::int32_t>;
    Both(
        [](_ar::archive& ar) {
            ar << true << false << static_cast<unsigned char>(0) << static_cast<unsigned char>(255);
            ar << std::numeric_limits<short>::min() << std::numeric_limits<short>::max();
            ar << std::numeric_limits<int>::min() << std::numeric_limits<int>::max() << 0;
            ar << static_cast<long>(L::min()) << static_cast<long>(L::max());
            ar << 0ul << 0xFFFFFFFFul;
            ar << std::numeric_limits<__int64>::min() << std::numeric_limits<__int64>::max();
            ar << static_cast<unsigned __int64>(0) << std::numeric_limits<unsigned __int64>::max();
        },
        [](_ar::archive& ar) {
            bool t = false, f = true;
            unsigned char c0 = 1, c255 = 0;
            short smin = 0, smax = 0;
            int imin = 0, imax = 0, zero = 1;
            long lmin = 0, lmax = 0;
            unsigned long u0 = 1, umax = 0;
            __int64 llmin = 0, llmax = 0;
            unsigned __int64 ull0 = 1, ullmax = 0;
            ar >> t >> f >> c0 >> c255 >> smin >> smax >> imin >> imax >> zero >> lmin >> lmax >>
                u0 >> umax >> llmin >> llmax >> ull0 >> ullmax;
            EXPECT_TRUE(t);
            EXPECT_FALSE(f);
            EXPECT_EQ(c0, 0);
            EXPECT_EQ(c255, 255);
            EXPECT_EQ(smin, std::numeric_limits<short>::min());
            EXPECT_EQ(smax, std::numeric_limits<short>::max());
            EXPECT_EQ(imin, std::numeric_limits<int>::min());
            EXPECT_EQ(imax, std::numeric_limits<int>::max());
            EXPECT_EQ(zero, 0);
            EXPECT_EQ(lmin, L::min());
            EXPECT_EQ(lmax, L::max());
            EXPECT_EQ(u0, 0u);
            EXPECT_EQ(umax, 0xFFFFFFFFul);
            EXPECT_EQ(llmin, std::numeric_limits<__int64>::min());
            EXPECT_EQ(llmax, std::numeric_limits<__int64>::max());
            EXPECT_EQ(ull0, 0u);
            EXPECT_EQ(ullmax, std::numeric_limits<unsigned __int64>::max());
        });
}

TEST_P(RoundTrip, FloatingPointBitForBit) {
    // NaNs (with a payload and a sign), infinities, signed zero, subnormals and the limits come
    // back with every bit.
    const std::vector<double> doubles = {std::bit_cast<double>(0x7FF8000000000123ull),
                                         std::bit_cast<double>(0xFFF8000000000000ull),
                                         std::numeric_limits<double>::infinity(),
                                         -std::numeric_limits<double>::infinity(),
                                         -0.0,
                                         0.0,
                                         std::numeric_limits<double>::denorm_min(),
                                         std::numeric_limits<double>::max(),
                                         std::numeric_limits<double>::lowest(),
                                         std::numeric_limits<double>::min(),
                                         0.1,
                                         -1e-300};
    const std::vector<float> floats = {
        std::bit_cast<float>(0x7FC00042u),        std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(),  -0.0f,
        std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::max(),
        std::numeric_limits<float>::lowest(),     0.1f};
    Both(
        [&](_ar::archive& ar) {
            for (double d : doubles)
                ar << d;
            for (float f : floats)
                ar << f;
        },
        [&](_ar::archive& ar) {
            for (double expected : doubles) {
                double d = 12345;
                ar >> d;
                EXPECT_EQ(Bits(d), Bits(expected)) << expected;
            }
            for (float expected : floats) {
                float f = 12345;
                ar >> f;
                EXPECT_EQ(Bits(f), Bits(expected)) << expected;
            }
        });
}

TEST_P(RoundTrip, Guids) {
    Both([](_ar::archive& ar) { ar << kAdaptivity << GUID_NULL << kAllOnes << IID_IKQ_Archive; },
         [](_ar::archive& ar) {
             GUID a = GUID_NULL, b = kAllOnes, c = GUID_NULL, d = GUID_NULL;
             ar >> a >> b >> &c >> &d;
             EXPECT_EQ(a, kAdaptivity);
             EXPECT_EQ(b, GUID_NULL);
             EXPECT_EQ(c, kAllOnes);
             EXPECT_EQ(d, IID_IKQ_Archive);
         });
}

TEST_P(RoundTrip, StringsWithNonAsciiCharactersEmbeddedZerosAndNothing) {
    const std::wstring withZero(L"před\0po", 7);
    wchar_t wide[] = L"široký \U0001F600";
    Both(
        [&](_ar::archive& ar) {
            ar << CString(kCzech.c_str()) << CString() << CString(kMixed) << CString(withZero);
            ar << kCzech << std::wstring() << withZero;
            ar << L"konstantní" << static_cast<const wchar_t*>(nullptr);
            ar << wide;
            ar << CString(L"as CString") << std::wstring(L"as wstring"); // read crosswise
        },
        [&](_ar::archive& ar) {
            CString czech, empty(L"not empty"), mixed, zero;
            ar >> czech >> empty >> mixed >> zero;
            EXPECT_EQ(czech, CString(kCzech.c_str()));
            EXPECT_TRUE(empty.IsEmpty());
            EXPECT_EQ(mixed.Str(), kMixed);
            EXPECT_EQ(zero.GetLength(), 7);
            EXPECT_EQ(zero.Str(), withZero);

            std::wstring s1, s2(L"not empty"), s3;
            ar >> s1 >> s2 >> s3;
            EXPECT_EQ(s1, kCzech);
            EXPECT_TRUE(s2.empty());
            EXPECT_EQ(s3, withZero);

            CString literal, null(L"x");
            ar >> literal >> null;
            EXPECT_EQ(literal, CString(L"konstantní"));
            EXPECT_TRUE(null.IsEmpty());

            wchar_t* loaded = nullptr;
            ar >> &loaded;
            ASSERT_NE(loaded, nullptr);
            EXPECT_EQ(std::wstring(loaded), std::wstring(wide));
            SysFreeString(loaded);

            std::wstring asWstring;
            CString asCString;
            ar >> asWstring >> asCString;
            EXPECT_EQ(asWstring, L"as CString");
            EXPECT_EQ(asCString, CString(L"as wstring"));
        });
}

TEST_P(RoundTrip, EverySupportedVariant) {
    Both(
        [](_ar::archive& ar) {
            ar << _variant_t() << _variant_t(2.75) << _variant_t(std::nan(""))
               << _variant_t(-std::numeric_limits<double>::infinity()) << _variant_t(kCzech)
               << _variant_t(L"") << _variant_t(static_cast<const wchar_t*>(nullptr))
               << _variant_t(true) << _variant_t(false);
        },
        [](_ar::archive& ar) {
            _variant_t empty(1.0), real, nan, inf, text, blank, null, yes, no;
            ar >> empty >> real >> nan >> inf >> text >> blank >> null >> yes >> no;
            EXPECT_EQ(empty.vt, VT_EMPTY);
            EXPECT_EQ(real.vt, VT_R8);
            EXPECT_EQ(real.dblVal, 2.75);
            EXPECT_EQ(nan.vt, VT_R8);
            EXPECT_TRUE(std::isnan(nan.dblVal));
            EXPECT_EQ(inf.dblVal, -std::numeric_limits<double>::infinity());
            EXPECT_EQ(text.vt, VT_BSTR);
            EXPECT_EQ(std::wstring(text.bstrVal, SysStringLen(text.bstrVal)), kCzech);
            EXPECT_EQ(blank.vt, VT_BSTR);
            EXPECT_EQ(SysStringLen(blank.bstrVal), 0u);
            EXPECT_EQ(null.vt, VT_BSTR); // a null string loads as an empty one
            ASSERT_NE(null.bstrVal, nullptr);
            EXPECT_EQ(SysStringLen(null.bstrVal), 0u);
            EXPECT_EQ(yes.vt, VT_BOOL);
            EXPECT_EQ(yes.boolVal, 1); // not VARIANT_TRUE: test booleans as nonzero
            EXPECT_EQ(no.vt, VT_BOOL);
            EXPECT_EQ(no.boolVal, 0);
        });
}

TEST_P(RoundTrip, VariantOfUnsupportedTypeLeavesItsTagInTheArchive) {
    const Bytes bytes =
        Store([](_ar::archive& ar) { EXPECT_THROW(ar << _variant_t(3), CInvalidArgException); });
    ComPtr<IKQ_Archive> archive;
    ASSERT_EQ(Open(bytes, archive), S_OK);
    _ar::archive ar(archive.Get());
    _variant_t v;
    EXPECT_THROW(ar >> v, CInvalidArgException);
    EXPECT_EQ(v.vt, VT_I4);
}

TEST_P(RoundTrip, RawBytesAndVersion) {
    std::vector<unsigned char> all(256);
    for (int i = 0; i < 256; ++i)
        all[static_cast<std::size_t>(i)] = static_cast<unsigned char>(i);
    Both(
        [&](_ar::archive& ar) {
            ar.PutVersion(-7);
            EXPECT_EQ(ar.Version(), -7);
            ar.Write(all.data(), 256);
            ar.Write(all.data(), 0);
            ar << 5;
        },
        [&](_ar::archive& ar) {
            EXPECT_EQ(ar.Version(), -7);
            std::vector<unsigned char> in(300);
            EXPECT_EQ(ar.Read(in.data(), 0), 0u);
            EXPECT_EQ(ar.Read(in.data(), 100), 100u);
            EXPECT_EQ(ar.Read(in.data() + 100, 200), 156u); // the raw bytes end before 200
            in.resize(256);
            EXPECT_EQ(in, all);
            int five = 0;
            ar >> five;
            EXPECT_EQ(five, 5);
        });
}

TEST_P(RoundTrip, WrongTypeRaisesTypeMismatchAndConsumesNothing) {
    const Bytes bytes = Store([](_ar::archive& ar) { ar << 42 << 1.5; });
    Load(bytes, [](_ar::archive& ar) {
        double d = -1;
        EXPECT_EQ(ComErrorOf([&] { ar >> d; }), DISP_E_TYPEMISMATCH);
        EXPECT_EQ(d, -1);
        unsigned long u = 0; // same width, another type
        EXPECT_EQ(ComErrorOf([&] { ar >> u; }), DISP_E_TYPEMISMATCH);
        int i = 0;
        ar >> i >> d;
        EXPECT_EQ(i, 42);
        EXPECT_EQ(d, 1.5);
        EXPECT_EQ(ComErrorOf([&] { ar >> d; }), IKQ_E_ARCHIVE_EOF);
        EXPECT_EQ(d, 1.5);
    });
}

TEST_P(RoundTrip, WritingToALoadingArchiveIsRefused) {
    const Bytes bytes = Store([](_ar::archive& ar) { ar << 1; });
    ComPtr<IKQ_Archive> archive;
    ASSERT_EQ(Open(bytes, archive), S_OK);
    _ar::archive ar(archive.Get());
    EXPECT_EQ(ComErrorOf([&] { ar << 2; }), STG_E_ACCESSDENIED);
}

// A sequence of every kind, stored once and cut at every length.
void StoreEverything(_ar::archive& ar) {
    wchar_t wide[] = L"čtyři";
    ar << true << static_cast<unsigned char>(7) << static_cast<short>(-8) << 9 << 10L << 11ul
       << static_cast<__int64>(-12) << static_cast<unsigned __int64>(13) << 14.5f << 15.5
       << kAdaptivity << CString(kCzech.c_str()) << std::wstring(L"šestnáct") << wide;
    ar.Write("raw", 3);
    ar << _variant_t(1.25) << _variant_t(L"věta") << _variant_t(true) << _variant_t() << 99;
}

void LoadEverything(_ar::archive& ar) {
    bool b = false;
    unsigned char c = 0;
    short s = 0;
    int i = 0;
    long l = 0;
    unsigned long ul = 0;
    __int64 ll = 0;
    unsigned __int64 ull = 0;
    float f = 0;
    double d = 0;
    GUID g = GUID_NULL;
    CString cs;
    std::wstring ws;
    wchar_t* wide = nullptr;
    ar >> b >> c >> s >> i >> l >> ul >> ll >> ull >> f >> d >> g >> cs >> ws >> &wide;
    SysFreeString(wide);
    char raw[3];
    if (ar.Read(raw, 3) != 3)
        _com_issue_error(IKQ_E_ARCHIVE_EOF); // the caller treats a short read as the end
    _variant_t v1, v2, v3, v4;
    int last = 0;
    ar >> v1 >> v2 >> v3 >> v4 >> last;
    EXPECT_EQ(last, 99);
}

TEST_P(RoundTrip, EverythingLoadsFromTheWholeArchive) {
    Both(StoreEverything, LoadEverything);
}

TEST_P(RoundTrip, TruncatedArchiveRaisesEndOfArchiveAtEveryCut) {
    const Bytes whole = Store(StoreEverything);
    ASSERT_GT(whole.size(), host::archive::kHeaderSize);
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        const Bytes truncated(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
        ComPtr<IKQ_Archive> archive;
        const HRESULT opened = Open(truncated, archive);
        if (cut < host::archive::kHeaderSize) {
            // Too short to be an archive: the archive's answer, raised as the wrapper raises.
            EXPECT_EQ(opened, STG_E_INVALIDHEADER) << "cut at " << cut;
            EXPECT_EQ(ComErrorOf([&] { _ar::archive().CheckError(opened); }), STG_E_INVALIDHEADER);
            continue;
        }
        ASSERT_EQ(opened, S_OK) << "cut at " << cut;
        _ar::archive ar(archive.Get());
        EXPECT_EQ(ComErrorOf([&] { LoadEverything(ar); }), IKQ_E_ARCHIVE_EOF) << "cut at " << cut;
    }
}

TEST_P(RoundTrip, WrongHeaderRaisesTheArchivesError) {
    Bytes bytes = Store([](_ar::archive& ar) { ar << 1; });
    bytes[0] = std::byte{'P'}; // not our magic
    ComPtr<IKQ_Archive> archive;
    HRESULT hr = Open(bytes, archive);
    EXPECT_EQ(ComErrorOf([&] { _ar::archive(archive.Get()).CheckError(hr); }), STG_E_INVALIDHEADER);

    bytes = Store([](_ar::archive& ar) { ar << 1; });
    bytes[8] = std::byte{9}; // a format version from the future
    hr = Open(bytes, archive);
    EXPECT_EQ(ComErrorOf([&] { _ar::archive(archive.Get()).CheckError(hr); }), STG_E_OLDFORMAT);
    EXPECT_FALSE(archive);

    const Bytes text = {std::byte{'#'}, std::byte{' '}, std::byte{'t'},  std::byte{'e'},
                        std::byte{'x'}, std::byte{'t'}, std::byte{'\n'}, std::byte{'1'},
                        std::byte{' '}, std::byte{'2'}, std::byte{'\n'}, std::byte{'3'},
                        std::byte{' '}, std::byte{'4'}, std::byte{'\n'}, std::byte{'5'},
                        std::byte{'\n'}};
    hr = Open(text, archive);
    EXPECT_EQ(ComErrorOf([&] { _ar::archive().CheckError(hr); }), STG_E_INVALIDHEADER);
}

TEST(RoundTripAcrossMedia, FileAndMemoryArchivesShareOneLayout) {
    const fs::path path =
        fs::temp_directory_path() / ("slabadapt-cross-" + std::to_string(::getpid()) + ".kqa");
    auto memory = std::make_shared<Bytes>();
    {
        ComPtr<IKQ_Archive> file, mem;
        ASSERT_EQ(host::archive::CreateFileArchiveForStoring(path, file.Put()), S_OK);
        ASSERT_EQ(host::archive::CreateMemoryArchiveForStoring(memory, mem.Put()), S_OK);
        _ar::archive a(file.Get()), b(mem.Get());
        a.PutVersion(3);
        b.PutVersion(3);
        StoreEverything(a);
        StoreEverything(b);
    } // the last Release closes both
    ComPtr<IKQ_Archive> loading;
    ASSERT_EQ(host::archive::CreateFileArchiveForLoading(path, loading.Put()), S_OK);
    ULONGLONG size = 0;
    {
        _ar::archive ar(loading.Get());
        LoadEverything(ar);
        loading->GetPosition(&size);
    }
    EXPECT_EQ(size, memory->size());
    std::ifstream in(path, std::ios::binary);
    std::vector<char> chars((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_EQ(chars.size(), memory->size());
    EXPECT_EQ(std::memcmp(chars.data(), memory->data(), chars.size()), 0);
    loading.Reset();
    fs::remove(path);
}

} // namespace
