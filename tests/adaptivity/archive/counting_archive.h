#pragma once
// A test double of IKQ_Archive that counts references, records every slot called with the
// value passed, answers reads from preset values and fails any slot on request.
#include "host/archive/IKQ_Archive.h"

#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace archive_test {

struct Call {
    int slot = -1;
    long long integer = 0; // signed integers, bytes and the raw byte count
    unsigned long long unsignedValue = 0;
    double real = 0;       // float and double
    std::wstring text;     // strings
    bool nullText = false; // a null BSTR or wchar_t* was passed
    GUID guid = GUID_NULL;
};

class CountingArchive final : public IKQ_Archive {
public:
    // References: the double lives on the stack; only the counts matter.
    int addRefs = 0;
    int releases = 0;
    int References() const { return addRefs - releases; }
    std::vector<std::string>* events = nullptr; // optional shared log of AddRef/Release

    std::vector<Call> calls;
    std::vector<int> Slots() const {
        std::vector<int> slots;
        for (const Call& call : calls)
            slots.push_back(call.slot);
        return slots;
    }

    // Answers: S_OK unless a slot is set to fail. A failing read scribbles on its out argument
    // (and hands out a string) unless scribble is false, to show that the wrapper neither
    // trusts nor leaks what a failing call left behind.
    std::map<int, HRESULT> answers;
    bool scribble = true;

    LONG loadingFlag = 0;
    LONG storingFlag = 0;
    ULONG bytesRead = 0;
    BYTE byteValue = 0;
    SHORT shortValue = 0;
    LONG longValue = 0;
    float floatValue = 0;
    double doubleValue = 0;
    std::wstring stringValue;
    ULONG ulongValue = 0;
    SHORT version = 0;
    GUID guidValue = GUID_NULL;
    LONGLONG int64Value = 0;
    ULONGLONG uint64Value = 0;
    HRESULT queryAnswer = S_OK;

    HRESULT QueryInterface(REFIID iid, void** object) override {
        Record(0).guid = iid;
        if (FAILED(queryAnswer)) {
            *object = nullptr;
            return queryAnswer;
        }
        *object = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override {
        ++addRefs;
        if (events != nullptr)
            events->push_back("AddRef");
        return static_cast<ULONG>(References());
    }
    ULONG Release() override {
        ++releases;
        if (events != nullptr)
            events->push_back("Release");
        return static_cast<ULONG>(References());
    }

    HRESULT IsLoading(LONG* flag) override { return Answer(3, flag, loadingFlag); }
    HRESULT IsStoring(LONG* flag) override { return Answer(4, flag, storingFlag); }
    HRESULT Read(void* buffer, ULONG count, ULONG* read) override {
        Record(5).integer = count;
        if (buffer != nullptr && count > 0)
            static_cast<unsigned char*>(buffer)[0] = 0x5A;
        *read = bytesRead;
        return AnswerOf(5);
    }
    HRESULT Write(const void* buffer, ULONG count, ULONG* written) override {
        Call& call = Record(6);
        call.integer = count;
        call.text.assign(static_cast<const char*>(buffer),
                         static_cast<const char*>(buffer) + count);
        if (written != nullptr)
            *written = count;
        return AnswerOf(6);
    }
    HRESULT ReadByte(BYTE* value) override { return Answer(7, value, byteValue); }
    HRESULT WriteByte(BYTE value) override { return Written(8, value); }
    HRESULT ReadShort(SHORT* value) override { return Answer(9, value, shortValue); }
    HRESULT WriteShort(SHORT value) override { return Written(10, value); }
    HRESULT ReadLong(LONG* value) override { return Answer(11, value, longValue); }
    HRESULT WriteLong(LONG value) override { return Written(12, value); }
    HRESULT ReadFloat(float* value) override { return Answer(13, value, floatValue); }
    HRESULT WriteFloat(float value) override {
        Record(14).real = value;
        return AnswerOf(14);
    }
    HRESULT ReadDouble(double* value) override { return Answer(15, value, doubleValue); }
    HRESULT WriteDouble(double value) override {
        Record(16).real = value;
        return AnswerOf(16);
    }
    HRESULT ReadString(BSTR* value) override { return AnswerString(17, value); }
    HRESULT WriteString(BSTR value) override {
        Call& call = Record(18);
        call.nullText = value == nullptr;
        call.text.assign(value == nullptr ? L"" : value, SysStringLen(value));
        return AnswerOf(18);
    }
    HRESULT WriteULong(ULONG value) override {
        Record(19).unsignedValue = value;
        return AnswerOf(19);
    }
    HRESULT ReadULong(ULONG* value) override { return Answer(20, value, ulongValue); }
    HRESULT ReadUShort(USHORT*) override { return Unused(21); }
    HRESULT WriteUShort(USHORT) override { return Unused(22); }
    HRESULT PeekItemType(LONG*) override { return Unused(23); }
    HRESULT SkipItem() override { return Unused(24); }
    HRESULT GetPosition(ULONGLONG*) override { return Unused(25); }
    HRESULT Flush() override { return Unused(26); }
    HRESULT Close() override { return Unused(27); }
    HRESULT Abort() override { return Unused(28); }
    HRESULT GetVersion(SHORT* value) override { return Answer(29, value, version); }
    HRESULT PutVersion(SHORT value) override { return Written(30, value); }
    HRESULT ReadGuid(GUID* value) override { return Answer(31, value, guidValue); }
    HRESULT WriteGuid(const GUID& value) override {
        Record(32).guid = value;
        return AnswerOf(32);
    }
    HRESULT ReadCount(ULONGLONG*) override { return Unused(33); }
    HRESULT WriteCount(ULONGLONG) override { return Unused(34); }
    HRESULT ReadWideString(wchar_t** value) override { return AnswerString(35, value); }
    HRESULT WriteWideString(wchar_t* value) override {
        Call& call = Record(36);
        call.nullText = value == nullptr;
        call.text = value == nullptr ? L"" : value;
        return AnswerOf(36);
    }
    HRESULT ReadInt64(LONGLONG* value) override { return Answer(37, value, int64Value); }
    HRESULT WriteInt64(LONGLONG value) override { return Written(38, value); }
    HRESULT ReadUInt64(ULONGLONG* value) override { return Answer(39, value, uint64Value); }
    HRESULT WriteUInt64(ULONGLONG value) override {
        Record(40).unsignedValue = value;
        return AnswerOf(40);
    }

    // Slots the wrapper never calls.
    int unusedCalls = 0;

private:
    Call& Record(int slot) {
        calls.push_back(Call{});
        calls.back().slot = slot;
        return calls.back();
    }
    HRESULT AnswerOf(int slot) const {
        const auto found = answers.find(slot);
        return found == answers.end() ? S_OK : found->second;
    }
    template <typename T> HRESULT Answer(int slot, T* out, const T& value) {
        Record(slot);
        const HRESULT hr = AnswerOf(slot);
        if (SUCCEEDED(hr))
            *out = value;
        else if (scribble)
            std::memset(static_cast<void*>(out), 0xA5, sizeof(T));
        return hr;
    }
    template <typename T> HRESULT Written(int slot, T value) {
        Record(slot).integer = static_cast<long long>(value);
        return AnswerOf(slot);
    }
    HRESULT AnswerString(int slot, wchar_t** out) {
        Record(slot);
        const HRESULT hr = AnswerOf(slot);
        if (SUCCEEDED(hr))
            *out = SysAllocStringLen(stringValue.data(), static_cast<UINT>(stringValue.size()));
        else if (scribble)
            *out = SysAllocString(L"left behind by a failing call");
        return hr;
    }
    HRESULT Unused(int slot) {
        Record(slot);
        ++unusedCalls;
        return E_NOTIMPL;
    }
};

} // namespace archive_test
