// GUID comparison, parsing and formatting.
#include "host/com/com.h"

#include <gtest/gtest.h>

#include <map>

namespace {

constexpr GUID kAdaptivity = {
    0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};

TEST(Guid, FormatsInRegistryForm) {
    EXPECT_EQ(host::com::ToString(kAdaptivity), "{AC98000C-E79E-4365-877E-0A3F95AA42F4}");
    EXPECT_EQ(host::com::ToWString(kAdaptivity), L"{AC98000C-E79E-4365-877E-0A3F95AA42F4}");
    EXPECT_EQ(host::com::ToString(GUID_NULL), "{00000000-0000-0000-0000-000000000000}");
}

TEST(Guid, ParsesWithAndWithoutBracesInEitherCase) {
    EXPECT_EQ(host::com::ParseGuid(L"{AC98000C-E79E-4365-877E-0A3F95AA42F4}"), kAdaptivity);
    EXPECT_EQ(host::com::ParseGuid("ac98000c-e79e-4365-877e-0a3f95aa42f4"), kAdaptivity);
    EXPECT_EQ(host::com::ParseGuid(host::com::ToString(IID_IUnknown)), IID_IUnknown);
}

TEST(Guid, RejectsMalformedText) {
    EXPECT_FALSE(host::com::ParseGuid(""));
    EXPECT_FALSE(host::com::ParseGuid("{AC98000C-E79E-4365-877E-0A3F95AA42F4"));
    EXPECT_FALSE(host::com::ParseGuid("AC98000C-E79E-4365-877E-0A3F95AA42F4}"));
    EXPECT_FALSE(host::com::ParseGuid("{AC98000CXE79E-4365-877E-0A3F95AA42F4}"));
    EXPECT_FALSE(host::com::ParseGuid("{AC98000C-E79E-4365-877E-0A3F95AA42FG}"));
    EXPECT_FALSE(host::com::ParseGuid(" {AC98000C-E79E-4365-877E-0A3F95AA42F4}"));
    EXPECT_FALSE(host::com::ParseGuid(L"{AC98000C-E79E-4365-877E-0A3F95AA42F\u0664}"));
}

TEST(Guid, ComparesFieldByField) {
    GUID other = kAdaptivity;
    EXPECT_TRUE(IsEqualGUID(other, kAdaptivity));
    other.Data4[7] ^= 1;
    EXPECT_FALSE(other == kAdaptivity);
    EXPECT_TRUE(kAdaptivity < other); // 0xF4 < 0xF5 in the last byte
    EXPECT_TRUE(GUID_NULL < IID_IUnknown);

    std::map<GUID, int> byGuid{{kAdaptivity, 1}, {IID_IUnknown, 2}};
    EXPECT_EQ(byGuid.at(kAdaptivity), 1);
}

} // namespace
