#include "host/framework/wtoi.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cmath>
#include <string>

namespace {

TEST(WtoiTest, LeadingBlanksSignAndTrailingText) {
    EXPECT_EQ(_wtoi(L"       7"), 7);
    EXPECT_EQ(_wtoi(L"  -12abc"), -12);
    EXPECT_EQ(_wtoi(L"+3"), 3);
    EXPECT_EQ(_wtoi(L"\t 42 17"), 42);
    EXPECT_EQ(_wtoi(L"12.9"), 12);
}

TEST(WtoiTest, NothingParsableGivesZero) {
    EXPECT_EQ(_wtoi(L""), 0);
    EXPECT_EQ(_wtoi(L"   "), 0);
    EXPECT_EQ(_wtoi(L"abc"), 0);
    EXPECT_EQ(_wtoi(L"- 5"), 0);
    EXPECT_EQ(_wtoi(nullptr), 0);
}

TEST(WtoiTest, OverflowIsClampedToInt) {
    EXPECT_EQ(_wtoi(L"99999999999"), INT_MAX);
    EXPECT_EQ(_wtoi(L"-99999999999"), INT_MIN);
    EXPECT_EQ(_wtoi(L"2147483647"), INT_MAX);
    EXPECT_EQ(_wtoi(L"-2147483648"), INT_MIN);
}

TEST(WtofTest, ParsesLikeTheRuntime) {
    EXPECT_DOUBLE_EQ(_wtof(L"   1.5"), 1.5);
    EXPECT_DOUBLE_EQ(_wtof(L"-2.5e-3xyz"), -2.5e-3);
    EXPECT_DOUBLE_EQ(_wtof(L"+.25"), 0.25);
    EXPECT_DOUBLE_EQ(_wtof(L"1E+02"), 100.0);
    EXPECT_DOUBLE_EQ(_wtof(L"3"), 3.0);
    EXPECT_DOUBLE_EQ(_wtof(L"  -0.123456789012345  "), -0.123456789012345);
}

TEST(WtofTest, NothingParsableGivesZero) {
    EXPECT_EQ(_wtof(L""), 0.0);
    EXPECT_EQ(_wtof(L"      "), 0.0);
    EXPECT_EQ(_wtof(L"abc"), 0.0);
    EXPECT_EQ(_wtof(nullptr), 0.0);
}

TEST(WtofTest, FollowsTheNumericLocale) {
    // In the "C" locale a comma ends the number.
    std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_DOUBLE_EQ(_wtof(L"1,5"), 1.0);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr) {
        EXPECT_DOUBLE_EQ(_wtof(L"1,5"), 1.5);
    }
    std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(WtofTest, OutOfRangeGivesHugeVal) {
    EXPECT_TRUE(std::isinf(_wtof(L"1e999")));
    EXPECT_GT(_wtof(L"1e999"), 0.0);
}

} // namespace
