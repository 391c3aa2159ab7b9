// The host kit's archives, loading: the file archive and the memory archive read the same
// bytes through the same calls and must answer alike, value for value and position for
// position. The input is the archive after its header; its own bytes also choose the calls.
#include "fuzz/fuzz_support.h"
#include "host/archive/archives.h"
#include "host/com/bstr.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

using host::com::ComPtr;

struct Answer {
    HRESULT hr = S_OK;
    std::uint64_t value = 0;
    std::uint64_t position = 0;
    bool operator==(const Answer&) const = default;
};

Answer Call(IKQ_Archive* a, std::uint8_t op) {
    Answer answer;
    switch (op % 12) {
    case 0: {
        BYTE v = 0;
        answer.hr = a->ReadByte(&v);
        answer.value = v;
        break;
    }
    case 1: {
        SHORT v = 0;
        answer.hr = a->ReadShort(&v);
        answer.value = static_cast<std::uint16_t>(v);
        break;
    }
    case 2: {
        LONG v = 0;
        answer.hr = a->ReadLong(&v);
        answer.value = static_cast<std::uint32_t>(v);
        break;
    }
    case 3: {
        double v = 0;
        answer.hr = a->ReadDouble(&v);
        std::memcpy(&answer.value, &v, sizeof v);
        break;
    }
    case 4: {
        BSTR v = nullptr;
        answer.hr = a->ReadString(&v);
        answer.value = v != nullptr ? SysStringLen(v) : 0;
        SysFreeString(v);
        break;
    }
    case 5: {
        std::vector<std::uint8_t> buffer(1 + op % 64);
        ULONG read = 0;
        answer.hr = a->Read(buffer.data(), static_cast<ULONG>(buffer.size()), &read);
        answer.value = read;
        break;
    }
    case 6: {
        LONG type = 0;
        answer.hr = a->PeekItemType(&type);
        answer.value = static_cast<std::uint32_t>(type);
        break;
    }
    case 7:
        answer.hr = a->SkipItem();
        break;
    case 8: {
        ULONGLONG v = 0;
        answer.hr = a->ReadCount(&v);
        answer.value = v;
        break;
    }
    case 9: {
        GUID v{};
        answer.hr = a->ReadGuid(&v);
        answer.value = v.Data1;
        break;
    }
    case 10: {
        wchar_t* v = nullptr;
        answer.hr = a->ReadWideString(&v);
        answer.value = v != nullptr ? SysStringLen(v) : 0;
        SysFreeString(v);
        break;
    }
    default: {
        LONGLONG v = 0;
        answer.hr = a->ReadInt64(&v);
        answer.value = static_cast<std::uint64_t>(v);
        break;
    }
    }
    ULONGLONG position = 0;
    a->GetPosition(&position);
    answer.position = position;
    return answer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace slabadapt::fuzz;
    // A valid header (version from the input's first byte), then the input.
    std::vector<std::byte> bytes(host::archive::kHeaderSize);
    std::memcpy(bytes.data(), host::archive::kMagic.data(), host::archive::kMagic.size());
    bytes[8] = std::byte{1};
    bytes[10] = std::byte{size > 0 ? data[0] : std::uint8_t{0}};
    for (std::size_t i = 0; i < size; ++i)
        bytes.push_back(static_cast<std::byte>(data[i]));
    const std::filesystem::path file = ScratchFolder() / "object.kqa";
    WriteBytes(file, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());

    ComPtr<IKQ_Archive> fromFile;
    ComPtr<IKQ_Archive> fromMemory;
    const HRESULT fileOpen = host::archive::CreateFileArchiveForLoading(file, fromFile.Put());
    const HRESULT memoryOpen =
        host::archive::CreateMemoryArchiveForLoading(bytes, fromMemory.Put());
    if (fileOpen != memoryOpen)
        Finding("the archives disagree on opening", "");
    if (FAILED(fileOpen))
        return 0;
    // At most 64 calls, chosen by the input's bytes from the back.
    for (std::size_t i = 0; i < std::min<std::size_t>(size, 64); ++i) {
        const std::uint8_t op = data[size - 1 - i];
        const Answer a = Call(fromFile.Get(), op);
        const Answer b = Call(fromMemory.Get(), op);
        if (!(a == b)) {
            char detail[160];
            std::snprintf(detail, sizeof detail,
                          "call %u: file hr %08x value %llu at %llu, memory hr %08x value %llu "
                          "at %llu",
                          op % 12, static_cast<unsigned>(a.hr),
                          static_cast<unsigned long long>(a.value),
                          static_cast<unsigned long long>(a.position), static_cast<unsigned>(b.hr),
                          static_cast<unsigned long long>(b.value),
                          static_cast<unsigned long long>(b.position));
            Finding("the file and memory archives answer differently", detail);
        }
    }
    return 0;
}
