#include "host/win32/console.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class ConsoleTest : public ::testing::Test {
protected:
    void TearDown() override { host::win32::SetConsoleTerminalOverride(std::nullopt); }
};

TEST_F(ConsoleTest, StandardHandlesAreDistinctAndValid) {
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    HANDLE err = GetStdHandle(STD_ERROR_HANDLE);
    EXPECT_NE(out, INVALID_HANDLE_VALUE);
    EXPECT_NE(err, INVALID_HANDLE_VALUE);
    EXPECT_NE(out, err);
    EXPECT_EQ(GetStdHandle(12345u), INVALID_HANDLE_VALUE);
}

TEST_F(ConsoleTest, AttributesMapToAnsiColours) {
    EXPECT_STREQ(host::win32::AnsiSequenceForAttribute(4), "\033[0;31m"); // red
    EXPECT_STREQ(host::win32::AnsiSequenceForAttribute(5), "\033[0;35m"); // magenta
    EXPECT_STREQ(host::win32::AnsiSequenceForAttribute(7), "\033[0m");    // normal
    EXPECT_STREQ(host::win32::AnsiSequenceForAttribute(4 | FOREGROUND_INTENSITY), "\033[1;31m");
}

TEST_F(ConsoleTest, RedirectedOutputGetsNoEscapeCodes) {
    host::win32::SetConsoleTerminalOverride(false);
    testing::internal::CaptureStdout();
    EXPECT_EQ(SetConsoleTextAttribute(GetStdHandle(STD_OUTPUT_HANDLE), 4), TRUE);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(ConsoleTest, TerminalOutputGetsTheColour) {
    host::win32::SetConsoleTerminalOverride(true);
    testing::internal::CaptureStdout();
    SetConsoleTextAttribute(GetStdHandle(STD_OUTPUT_HANDLE), 4);
    SetConsoleTextAttribute(GetStdHandle(STD_OUTPUT_HANDLE), 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("\033[0;31m\033[0m"));
}

TEST_F(ConsoleTest, InvalidHandleIsRefused) {
    EXPECT_EQ(SetConsoleTextAttribute(INVALID_HANDLE_VALUE, 4), FALSE);
    EXPECT_EQ(SetConsoleTextAttribute(GetStdHandle(STD_INPUT_HANDLE), 4), FALSE);
}

} // namespace
