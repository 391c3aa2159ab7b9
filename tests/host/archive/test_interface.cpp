// The slot order of IKQ_Archive is part of the interface: every operation must sit in its slot.
#include "host/archive/IKQ_Archive.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

// The vtable slot of a virtual member function, read from its pointer-to-member
// representation under the Itanium C++ ABI that GCC and Clang use.
template <typename Member> std::ptrdiff_t SlotOf(Member member) {
    struct Representation {
        std::uintptr_t pointer;
        std::ptrdiff_t adjustment;
    };
    static_assert(sizeof(Member) == sizeof(Representation));
    Representation r;
    std::memcpy(&r, &member, sizeof r);
#if defined(__arm__) || defined(__aarch64__)
    // ARM keeps the virtual flag in the adjustment and the plain vtable offset in the pointer.
    EXPECT_EQ(r.adjustment & 1, 1) << "not a virtual function";
    return static_cast<std::ptrdiff_t>(r.pointer / sizeof(void*));
#else
    EXPECT_EQ(r.pointer & 1, 1u) << "not a virtual function";
    return static_cast<std::ptrdiff_t>((r.pointer - 1) / sizeof(void*));
#endif
}

TEST(ArchiveInterface, EverySlotInItsPlace) {
    EXPECT_EQ(SlotOf(&IKQ_Archive::QueryInterface), 0);
    EXPECT_EQ(SlotOf(&IKQ_Archive::AddRef), 1);
    EXPECT_EQ(SlotOf(&IKQ_Archive::Release), 2);
    EXPECT_EQ(SlotOf(&IKQ_Archive::IsLoading), 3);
    EXPECT_EQ(SlotOf(&IKQ_Archive::IsStoring), 4);
    EXPECT_EQ(SlotOf(&IKQ_Archive::Read), 5);
    EXPECT_EQ(SlotOf(&IKQ_Archive::Write), 6);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadByte), 7);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteByte), 8);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadShort), 9);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteShort), 10);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadLong), 11);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteLong), 12);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadFloat), 13);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteFloat), 14);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadDouble), 15);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteDouble), 16);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadString), 17);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteString), 18);
    // The unsigned 32-bit pair: write before read.
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteULong), 19);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadULong), 20);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadUShort), 21);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteUShort), 22);
    EXPECT_EQ(SlotOf(&IKQ_Archive::PeekItemType), 23);
    EXPECT_EQ(SlotOf(&IKQ_Archive::SkipItem), 24);
    EXPECT_EQ(SlotOf(&IKQ_Archive::GetPosition), 25);
    EXPECT_EQ(SlotOf(&IKQ_Archive::Flush), 26);
    EXPECT_EQ(SlotOf(&IKQ_Archive::Close), 27);
    EXPECT_EQ(SlotOf(&IKQ_Archive::Abort), 28);
    EXPECT_EQ(SlotOf(&IKQ_Archive::GetVersion), 29);
    EXPECT_EQ(SlotOf(&IKQ_Archive::PutVersion), 30);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadGuid), 31);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteGuid), 32);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadCount), 33);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteCount), 34);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadWideString), 35);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteWideString), 36);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadInt64), 37);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteInt64), 38);
    EXPECT_EQ(SlotOf(&IKQ_Archive::ReadUInt64), 39);
    EXPECT_EQ(SlotOf(&IKQ_Archive::WriteUInt64), 40);
}

TEST(ArchiveInterface, IsAPureInterface) {
    // An interface of pure virtual functions only: one vtable pointer, no data.
    EXPECT_EQ(sizeof(IKQ_Archive), sizeof(void*));
    EXPECT_FALSE(std::has_virtual_destructor_v<IKQ_Archive>);
}

TEST(ArchiveInterface, EndOfArchiveCodeIsTheWin32EndOfFile) {
    EXPECT_EQ(static_cast<std::uint32_t>(IKQ_E_ARCHIVE_EOF), 0x80070026u);
    EXPECT_TRUE(FAILED(IKQ_E_ARCHIVE_EOF));
}

} // namespace
