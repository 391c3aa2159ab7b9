// Random and mutated archive files loaded through the wrapper: every load gives a value or a
// _com_error (a variant may also meet the invalid-argument exception its encoding defines),
// never a crash, a leak or anything undefined. Run under the sanitizers as part of the suite.
#include "adaptivity/archive/Archive.h"
#include "host/archive/archives.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using host::com::ComPtr;
using Bytes = std::vector<std::byte>;

// A valid archive holding one item of every kind, the seed of the mutations.
Bytes SeedArchive() {
    auto bytes = std::make_shared<Bytes>();
    ComPtr<IKQ_Archive> archive;
    EXPECT_EQ(host::archive::CreateMemoryArchiveForStoring(bytes, archive.Put()), S_OK);
    {
        _ar::archive ar(archive.Get());
        wchar_t wide[] = L"široký";
        ar.PutVersion(2);
        ar << true << static_cast<unsigned char>(200) << static_cast<short>(-3) << 4 << 5L << 6ul
           << static_cast<__int64>(-7) << static_cast<unsigned __int64>(8) << 9.5f << 10.5
           << IID_IKQ_Archive << CString(L"Příliš žluťoučký kůň") << std::wstring(L"ďábel") << wide;
        ar.Write("raw bytes", 9);
        ar << _variant_t(1.0) << _variant_t(L"text") << _variant_t(false) << _variant_t();
        archive->WriteCount(3);
        archive->WriteUShort(12);
    }
    EXPECT_EQ(archive->Close(), S_OK);
    return *bytes;
}

Bytes Mutate(const Bytes& seed, std::mt19937_64& random) {
    auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    Bytes bytes = seed;
    switch (pick(6)) {
    case 0: // bit flips
        for (std::size_t n = 1 + pick(8); n > 0 && !bytes.empty(); --n)
            bytes[pick(bytes.size())] ^= std::byte{static_cast<unsigned char>(1u << pick(8))};
        break;
    case 1: // random bytes overwritten, mostly after the header
        for (std::size_t n = 1 + pick(6); n > 0; --n)
            bytes[host::archive::kHeaderSize + pick(bytes.size() - host::archive::kHeaderSize)] =
                std::byte{static_cast<unsigned char>(random())};
        break;
    case 2: // truncated
        bytes.resize(pick(bytes.size() + 1));
        break;
    case 3: { // random bytes inserted
        const std::size_t at = pick(bytes.size() + 1);
        Bytes inserted(1 + pick(12));
        for (auto& b : inserted)
            b = std::byte{static_cast<unsigned char>(random())};
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), inserted.begin(),
                     inserted.end());
        break;
    }
    case 4: { // a valid header and a random body
        bytes.resize(host::archive::kHeaderSize + pick(200));
        for (std::size_t i = host::archive::kHeaderSize; i < bytes.size(); ++i)
            bytes[i] = std::byte{static_cast<unsigned char>(random())};
        // Type bytes that exist, now and then, so that the body reaches past the first item.
        for (std::size_t i = host::archive::kHeaderSize; i < bytes.size(); i += 1 + pick(9))
            if (random() % 2 == 0)
                bytes[i] = std::byte{static_cast<unsigned char>(1 + pick(13))};
        break;
    }
    default: // anything at all
        bytes.resize(pick(64));
        for (auto& b : bytes)
            b = std::byte{static_cast<unsigned char>(random())};
        break;
    }
    return bytes;
}

// One load of a random kind, or the kind the archive says comes next (so loads get deep).
// Answers false when the load raised.
bool LoadOne(_ar::archive& ar, std::mt19937_64& random) {
    int kind = static_cast<int>(random() % 19);
    if (random() % 4 != 0) {
        LONG next = 0;
        if (SUCCEEDED(ar->PeekItemType(&next)) && next > 0)
            kind = static_cast<int>(next) - 1; // the kinds below follow the item types
    }
    try {
        switch (kind) {
        case 0: {
            unsigned char v;
            ar >> v;
            break;
        }
        case 1: {
            short v;
            ar >> v;
            break;
        }
        case 2: { // the unsigned 16-bit and count items have no operator: through the interface
            USHORT v;
            ar.CheckError(ar->ReadUShort(&v));
            break;
        }
        case 3: {
            int v;
            ar >> v;
            break;
        }
        case 4: {
            unsigned long v;
            ar >> v;
            break;
        }
        case 5: {
            __int64 v;
            ar >> v;
            break;
        }
        case 6: {
            unsigned __int64 v;
            ar >> v;
            break;
        }
        case 7: {
            float v;
            ar >> v;
            break;
        }
        case 8: {
            double v;
            ar >> v;
            break;
        }
        case 9: {
            switch (random() % 3) {
            case 0: {
                CString v;
                ar >> v;
                break;
            }
            case 1: {
                std::wstring v;
                ar >> v;
                break;
            }
            default: {
                wchar_t* v = nullptr;
                ar >> &v;
                SysFreeString(v);
            }
            }
            break;
        }
        case 10: {
            GUID v;
            ar >> v;
            break;
        }
        case 11: {
            ULONGLONG count;
            ar.CheckError(ar->ReadCount(&count));
            break;
        }
        case 12: {
            char buffer[16];
            const unsigned long read = ar.Read(buffer, 1 + random() % 16);
            EXPECT_LE(read, 16u);
            break;
        }
        case 13: {
            _variant_t v;
            try {
                ar >> v;
            } catch (const CInvalidArgException&) {
                // an unsupported tag: its defined refusal
            }
            break;
        }
        case 14:
            ar.Version();
            break;
        case 15:
            ar.IsLoading();
            break;
        case 16: {
            long v;
            ar >> v;
            break;
        }
        case 17:
            ar.CheckError(ar->SkipItem());
            break;
        case 18: {
            bool v;
            ar >> v;
            break;
        }
        default: {
            double v;
            ar >> v;
            break;
        }
        }
    } catch (const _com_error& error) {
        EXPECT_TRUE(FAILED(error.Error()));
        return false;
    }
    return true;
}

TEST(ArchiveFuzz, RandomFilesGiveValuesOrComErrors) {
    const auto live = host::com::LiveBstrCount();
    const Bytes seed = SeedArchive();
    const fs::path path =
        fs::temp_directory_path() / ("slabadapt-fuzz-" + std::to_string(::getpid()) + ".kqa");
    std::mt19937_64 random(20240611);

    int opened = 0, values = 0, errors = 0;
    const auto start = std::chrono::steady_clock::now();
    constexpr int kFiles = 400, kMemory = 1600;
    for (int round = 0; round < kFiles + kMemory; ++round) {
        const Bytes bytes = Mutate(seed, random);
        ComPtr<IKQ_Archive> archive;
        HRESULT hr;
        if (round < kFiles) {
            std::ofstream(path, std::ios::binary | std::ios::trunc)
                .write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
            hr = host::archive::CreateFileArchiveForLoading(path, archive.Put());
        } else {
            hr = host::archive::CreateMemoryArchiveForLoading(bytes, archive.Put());
        }
        _ar::archive ar(archive.Get());
        try {
            ar.CheckError(hr);
        } catch (const _com_error& error) {
            EXPECT_TRUE(error.Error() == STG_E_INVALIDHEADER || error.Error() == STG_E_OLDFORMAT)
                << std::hex << error.Error();
            ++errors;
            continue;
        }
        ++opened;
        // Loads go on after an error too: a failed load must leave the archive usable.
        for (int load = 0; load < 40; ++load)
            (LoadOne(ar, random) ? values : errors)++;
    }
    const auto seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::error_code ignored;
    fs::remove(path, ignored);

    EXPECT_EQ(host::com::LiveBstrCount(), live) << "a BSTR leaked";
    // The mutations must reach past the header and yield both outcomes.
    EXPECT_GT(opened, (kFiles + kMemory) / 2);
    EXPECT_GT(values, 10000);
    EXPECT_GT(errors, 10000);
    RecordProperty("seconds", std::to_string(seconds));
    std::printf("fuzz: %d archives opened, %d values, %d errors, %.2f s\n", opened, values, errors,
                seconds);
}

} // namespace
