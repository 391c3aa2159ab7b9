// Diagnostics: the fatal and warning reports, file opening, command-line helpers, the
// division guard and the checked integral conversion.
#include "meer/arrays.h"
#include "meer/obecne.h"
#include "support/meer_test_support.h"

#include "host/win32/console.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace meerspace;
using meertest::Fatal;
using meertest::runFatal;

namespace {

// Standard output is not a terminal for the duration of a test unless the test says so.
class Diagnostics : public testing::Test {
protected:
    void SetUp() override { host::win32::SetConsoleTerminalOverride(false); }
    void TearDown() override { host::win32::SetConsoleTerminalOverride(std::nullopt); }
};

std::string captureWarning(const std::function<void()>& call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST_F(Diagnostics, ErrorWritesHeadMessageAndLocationAndThrows201) {
    Fatal f = runFatal([] { ERROR("meer", 42, "Unknown enorm"); });
    ASSERT_TRUE(f.threw);
    EXPECT_EQ(f.value, 201);
    EXPECT_EQ(f.stderrText, "\n\n ERROR:  Unknown enorm (meer:42).  !!!\n\n");
}

TEST_F(Diagnostics, ErrorThrowsAPlainInt) {
    bool caughtInt = false;
    testing::internal::CaptureStderr();
    try {
        ERROR("x", 1, "y");
    } catch (const std::exception&) {
        ADD_FAILURE() << "a standard exception was thrown";
    } catch (int value) {
        caughtInt = value == 201;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(caughtInt);
    EXPECT_EQ(kFatalErrorCode, 201);
}

TEST_F(Diagnostics, ErrorFormatsItsArguments) {
    Fatal f = runFatal([] {
        ERROR("meer", 7, "Problem s zaplatou elementu kolem uzlu %ld", static_cast<long>(12));
    });
    EXPECT_EQ(f.stderrText,
              "\n\n ERROR:  Problem s zaplatou elementu kolem uzlu 12 (meer:7).  !!!\n\n");
}

TEST_F(Diagnostics, WarningWritesItsReportAndReturns) {
    std::string text = captureWarning([] { WARNING("retezce", 300, "count %d", 3); });
    EXPECT_EQ(text, "\n\n WARNING:  count 3 (retezce:300).  !!!\n\n");
}

TEST_F(Diagnostics, LongMessageIsCutAt2047AndLocationStillFollows) {
    const std::string longText(3000, 'x');
    Fatal f = runFatal([&] { ERROR("arrays", 9, "%s", longText.c_str()); });
    ASSERT_TRUE(f.threw);
    EXPECT_EQ(f.stderrText, "\n\n ERROR:  " + std::string(2047, 'x') + " (arrays:9).  !!!\n\n");
    ASSERT_TRUE(f.report.wellFormed);
    EXPECT_EQ(f.report.message.size(), 2047u);
}

TEST_F(Diagnostics, MessageOf2047CharactersIsKeptWhole) {
    const std::string text2047(2047, 'y');
    Fatal f = runFatal([&] { ERROR("a", 1, "%s", text2047.c_str()); });
    EXPECT_EQ(f.report.message, text2047);
    const std::string text2048 = text2047 + "z";
    f = runFatal([&] { ERROR("a", 1, "%s", text2048.c_str()); });
    EXPECT_EQ(f.report.message, text2047);
}

TEST_F(Diagnostics, WarningMessageIsCutAt2047Too) {
    const std::string longText(2500, 'w');
    std::string text = captureWarning([&] { WARNING("gpa", 5, "%s", longText.c_str()); });
    EXPECT_EQ(text, "\n\n WARNING:  " + std::string(2047, 'w') + " (gpa:5).  !!!\n\n");
}

TEST_F(Diagnostics, SizeCheckOfAddEndsWithTheLocationLine) {
    Dvctr a(2);
    Dvctr b(3);
    Fatal f = runFatal([&] { a.add(b); });
    ASSERT_TRUE(f.threw);
    EXPECT_EQ(f.value, 201);
    // " (" + source + ":" + line + ")" + "." + two blanks + "!!!" + two line ends.
    const std::string expectedStart = "\n\n ERROR:  size mismatch (arrays:";
    ASSERT_EQ(f.stderrText.compare(0, expectedStart.size(), expectedStart), 0) << f.stderrText;
    const std::string end = ").  !!!\n\n";
    ASSERT_GT(f.stderrText.size(), end.size());
    EXPECT_EQ(f.stderrText.substr(f.stderrText.size() - end.size()), end);
    ASSERT_TRUE(f.report.wellFormed);
    EXPECT_EQ(f.report.source, "arrays");
    const std::string line = meertest::sourceLine("meer/arrays.cpp", f.report.line);
    EXPECT_NE(line.find("\"size mismatch\""), std::string::npos) << line;
}

// Colours on this platform: the host kit renders the Windows attributes as ANSI sequences on
// standard output, and only when standard output is a terminal.
TEST_F(Diagnostics, ErrorColoursTheTerminalRedAndBack) {
    host::win32::SetConsoleTerminalOverride(true);
    testing::internal::CaptureStdout();
    Fatal f = runFatal([] { ERROR("meer", 1, "m"); });
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "\033[0;31m\033[0m");
    EXPECT_EQ(f.stderrText, "\n\n ERROR:  m (meer:1).  !!!\n\n");
}

TEST_F(Diagnostics, WarningColoursTheTerminalMagentaAndBack) {
    host::win32::SetConsoleTerminalOverride(true);
    testing::internal::CaptureStdout();
    std::string err = captureWarning([] { WARNING("meer", 2, "w"); });
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "\033[0;35m\033[0m");
    EXPECT_EQ(err, "\n\n WARNING:  w (meer:2).  !!!\n\n");
}

TEST_F(Diagnostics, RedirectedOutputGetsNoEscapeCodes) {
    testing::internal::CaptureStdout();
    runFatal([] { ERROR("meer", 1, "m"); });
    captureWarning([] { WARNING("meer", 1, "w"); });
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// Standard output is flushed before the report, so the two streams do not interleave. A child
// writes unflushed text to a file behind stdout, raises ERROR and leaves with _exit (which
// flushes nothing): the text reaches the file only through ERROR's flush.
TEST_F(Diagnostics, ErrorFlushesStandardOutputFirst) {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("meer_flush_" + std::to_string(getpid())))
            .string();
    std::fflush(nullptr);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (std::freopen(path.c_str(), "w", stdout) == nullptr)
            _exit(2);
        std::setvbuf(stdout, nullptr, _IOFBF, 4096);
        std::freopen("/dev/null", "w", stderr);
        std::fputs("pending text", stdout);
        try {
            ERROR("meer", 1, "m");
        } catch (int) {
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::filesystem::remove(path);
    EXPECT_EQ(text, "pending text");
}

TEST_F(Diagnostics, CheckOpenedPassesAnOpenFile) {
    meertest::TextFile f("x");
    EXPECT_NO_THROW(checkOpened(f.get(), "x.txt"));
}

TEST_F(Diagnostics, CheckOpenedOfNullIsFatal) {
    meertest::expectFatalAt([] { checkOpened(nullptr, "mesh.txt"); },
                            "File has not been opened: mesh.txt\n Try it again", "obecne",
                            "File has not been opened");
}

class OpenFileTest : public Diagnostics {
protected:
    void SetUp() override {
        Diagnostics::SetUp();
        dir = std::filesystem::temp_directory_path() /
              ("meer_open_" + std::to_string(getpid()) + "_" +
               testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(dir);
        std::ofstream(dir / "abcd.txt") << "content";
    }
    void TearDown() override {
        std::filesystem::remove_all(dir);
        Diagnostics::TearDown();
    }
    std::string content(std::FILE* f) {
        char buffer[64] = {};
        std::fgets(buffer, sizeof buffer, f);
        std::fclose(f);
        return buffer;
    }
    std::filesystem::path dir;
};

TEST_F(OpenFileTest, OpensAnExistingPath) {
    std::FILE* f = openFile("meer", 10, "r", "input", (dir / "abcd.txt").c_str());
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(content(f), "content");
}

TEST_F(OpenFileTest, MissingFileIsFatalAtTheCallersLocation) {
    const std::string path = (dir / "none.txt").string();
    Fatal f = runFatal([&] { openFile("meer", 321, "r", "mesh", path.c_str()); });
    ASSERT_TRUE(f.threw);
    EXPECT_EQ(f.value, 201);
    EXPECT_EQ(f.stderrText, "\n\n ERROR:  \"mesh\" file has not been opened: " + path +
                                "\n Try it again (meer:321).  !!!\n\n");
}

TEST_F(OpenFileTest, BuildsThePathFromPrefixAndParts) {
    const std::string prefix = dir.string() + "/";
    EXPECT_EQ(content(openFile("m", 1, "r", "d", prefix.c_str(), "abcd.txt")), "content");
    EXPECT_EQ(content(openFile("m", 1, "r", "d", prefix.c_str(), "ab", "cd.txt")), "content");
    EXPECT_EQ(content(openFile("m", 1, "r", "d", prefix.c_str(), "a", "bc", "d.txt")), "content");
}

TEST_F(OpenFileTest, NullPrefixUsesTheOtherPartsAlone) {
    const std::string full = (dir / "abcd.txt").string();
    const std::string head = dir.string() + "/ab";
    EXPECT_EQ(content(openFile("m", 1, "r", "d", nullptr, full.c_str())), "content");
    EXPECT_EQ(content(openFile("m", 1, "r", "d", nullptr, head.c_str(), "cd.txt")), "content");
    EXPECT_EQ(content(openFile("m", 1, "r", "d", nullptr, head.c_str(), "c", "d.txt")), "content");
}

TEST_F(OpenFileTest, BuiltPathIsReportedWhenMissing) {
    Fatal f = runFatal([] { openFile("retezce", 5, "r", "data", "/nonexistent/", "x", ".txt"); });
    EXPECT_EQ(f.report.message,
              "\"data\" file has not been opened: /nonexistent/x.txt\n Try it again");
    EXPECT_EQ(f.report.source, "retezce");
    EXPECT_EQ(f.report.line, 5);
}

// The path-building forms keep at most 255 characters of the path.
TEST_F(OpenFileTest, BuiltPathIsCutAt255Characters) {
    const std::string prefix = "/nonexistent/" + std::string(300, 'p');
    Fatal f = runFatal([&] { openFile("m", 1, "r", "d", prefix.c_str(), "tail"); });
    ASSERT_TRUE(f.threw);
    const std::string expectedPath = prefix.substr(0, 255);
    EXPECT_EQ(f.report.message,
              "\"d\" file has not been opened: " + expectedPath + "\n Try it again");
    EXPECT_EQ(kMaxBuiltPathLength, 255);
}

TEST_F(Diagnostics, EchoCommandLineLayout) {
    meertest::TextFile f;
    const char* argv[] = {"prog", "-a", "bcd", "Xyz"};
    echoCommandLine(f.get(), 4, argv);
    EXPECT_EQ(f.contents(), "\n Command line:\n  prog  - b X\n  options:  -a bcd Xyz\n\n");
}

TEST_F(Diagnostics, EchoCommandLineWithoutArguments) {
    meertest::TextFile f;
    const char* argv[] = {"prog"};
    echoCommandLine(f.get(), 1, argv);
    EXPECT_EQ(f.contents(), "\n Command line:\n  prog \n  options: \n\n");
}

TEST_F(Diagnostics, FindOptionIgnoresCase) {
    const char* argv[] = {"prog", "-x", "-verbose", "-VERBOSE"};
    EXPECT_EQ(findOption(4, argv, "-VERBOSE"), 2);
    EXPECT_EQ(findOption(4, argv, "-Verbose"), 2);
    EXPECT_EQ(findOption(4, argv, "-x"), 1);
}

TEST_F(Diagnostics, FindOptionReturnsZeroWhenArgcIsOne) {
    const char* argv[] = {"-a"};
    EXPECT_EQ(findOption(1, argv, "-a"), 0);
}

TEST_F(Diagnostics, FindOptionNeverComparesArgumentZeroAndNeedsWholeWords) {
    const char* argv[] = {"-a", "-ab", "-b"};
    EXPECT_EQ(findOption(3, argv, "-a"), 0);
    EXPECT_EQ(findOption(3, argv, "-abc"), 0);
    EXPECT_EQ(findOption(3, argv, "-B"), 2);
}

TEST(Divisor, ZeroAndNegativeZeroThrow) {
    EXPECT_THROW(divisor(0.0), Korvo::Math::DivideByZeroException);
    EXPECT_THROW(divisor(-0.0), Korvo::Math::DivideByZeroException);
}

TEST(Divisor, TinyValueIsReturned) {
    EXPECT_EQ(divisor(1e-300), 1e-300);
    EXPECT_EQ(divisor(-2.5), -2.5);
}

TEST(Divisor, ExceptionIsALogicErrorWithItsMessage) {
    try {
        divisor(0.0);
        FAIL() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Division by zero");
        EXPECT_NE(dynamic_cast<const Korvo::Math::DivideByZeroException*>(&e), nullptr);
    }
}

TEST(ToUnsigned, NegativeThrowsRangeError) {
    try {
        toUnsigned(-1);
        FAIL() << "no exception";
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "overflow - casting negative value to unsigned");
    }
    EXPECT_THROW(toUnsigned(INT32_MIN), std::range_error);
}

TEST(ToUnsigned, LargestValueAndZeroPass) {
    EXPECT_EQ(toUnsigned(2147483647), 2147483647u);
    EXPECT_EQ(toUnsigned(0), 0u);
}

TEST(CheckedIntegralCast, TooLargeThrows) {
    try {
        checked_integral_cast<std::uint8_t>(300);
        FAIL() << "no exception";
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "checked_integral_cast overflow - value too large");
    }
    EXPECT_THROW(checked_integral_cast<std::uint32_t>(std::int64_t{5000000000}), std::range_error);
    EXPECT_EQ(checked_integral_cast<std::uint8_t>(255), 255);
}

// Beyond the two documented failures, a narrowing signed cast below the target's minimum is
// refused too (with its own text) rather than wrapping.
TEST(CheckedIntegralCast, TooSmallSignedThrows) {
    try {
        checked_integral_cast<std::int8_t>(-200);
        FAIL() << "no exception";
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "checked_integral_cast overflow - value too small");
    }
    EXPECT_EQ(checked_integral_cast<std::int8_t>(-128), -128);
    EXPECT_EQ(checked_integral_cast<std::int64_t>(-5), -5);
}

TEST(CheckedIntegralCast, NegativeToUnsignedOfAnyWidth) {
    EXPECT_THROW(checked_integral_cast<std::uint64_t>(std::int64_t{-1}), std::range_error);
    EXPECT_EQ(checked_integral_cast<std::uint64_t>(std::int32_t{7}), 7u);
}
