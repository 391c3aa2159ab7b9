#include "host/framework/stdiofile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

class StdioFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_path = fs::temp_directory_path() /
                 ("host_framework_" + std::to_string(::getpid()) + "_" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt");
    }
    void TearDown() override { fs::remove(m_path); }
    void write(const std::string& bytes) { std::ofstream(m_path, std::ios::binary) << bytes; }
    std::vector<std::wstring> readAll() {
        CStdioFile file;
        EXPECT_TRUE(file.Open(m_path.wstring().c_str(), CFile::modeRead | CFile::typeText));
        std::vector<std::wstring> lines;
        CString line;
        while (file.ReadString(line))
            lines.push_back(line.Str());
        return lines;
    }

    fs::path m_path;
};

TEST_F(StdioFileTest, LinesComeWithoutTheirLineEnds) {
    write("first\r\nsecond\nthird\r\n\r\nlast");
    EXPECT_EQ(readAll(), (std::vector<std::wstring>{L"first", L"second", L"third", L"", L"last"}));
}

TEST_F(StdioFileTest, AFinalLineEndGivesNoExtraEmptyLine) {
    write("a\nb\n");
    EXPECT_EQ(readAll(), (std::vector<std::wstring>{L"a", L"b"}));
}

TEST_F(StdioFileTest, EmptyFileHasNoLines) {
    write("");
    EXPECT_TRUE(readAll().empty());
}

TEST_F(StdioFileTest, ALoneCarriageReturnStaysInTheLine) {
    write("a\rb\n");
    EXPECT_EQ(readAll(), (std::vector<std::wstring>{L"a\rb"}));
}

TEST_F(StdioFileTest, Utf8TextIsDecoded) {
    write("Deska \xC4\x8D. 1\n");
    EXPECT_EQ(readAll(), (std::vector<std::wstring>{L"Deska č. 1"}));
}

TEST_F(StdioFileTest, OpeningAMissingFileFailsWithTheReason) {
    CStdioFile file;
    CFileException error;
    EXPECT_FALSE(file.Open((m_path.wstring() + L".none").c_str(), CFile::modeRead, &error));
    EXPECT_EQ(error.m_cause, CFileException::fileNotFound);
    EXPECT_EQ(error.m_lOsError, 2);
    EXPECT_FALSE(file.IsOpen());
    CString line(L"stale");
    EXPECT_FALSE(file.ReadString(line));
    EXPECT_TRUE(line.IsEmpty());
    EXPECT_THROW(CStdioFile((m_path.wstring() + L".none").c_str(), CFile::modeRead),
                 CFileException);
}

TEST_F(StdioFileTest, WritesAndReadsBack) {
    {
        CStdioFile out(m_path.wstring().c_str(),
                       CFile::modeCreate | CFile::modeWrite | CFile::typeText);
        out.WriteString(L"one\n");
        out.WriteString(L"dvě\n");
    }
    EXPECT_EQ(readAll(), (std::vector<std::wstring>{L"one", L"dvě"}));
}

TEST_F(StdioFileTest, ReopeningClosesTheFormerFile) {
    write("x\n");
    CStdioFile file;
    ASSERT_TRUE(file.Open(m_path.wstring().c_str(), CFile::modeRead));
    ASSERT_TRUE(file.Open(m_path.wstring().c_str(), CFile::modeRead));
    CString line;
    EXPECT_TRUE(file.ReadString(line));
    EXPECT_EQ(line, L"x");
    file.Close();
    EXPECT_FALSE(file.IsOpen());
}

} // namespace
