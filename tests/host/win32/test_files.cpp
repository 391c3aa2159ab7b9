#include "host/win32/files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class FilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = fs::temp_directory_path() /
                ("host_win32_files_" + std::to_string(::getpid()) + "_" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override {
        host::win32::SetFileFaultHook({});
        host::win32::SetSwitchToThreadHook({});
        fs::remove_all(m_dir);
    }
    std::wstring wpath(const std::string& name) const { return (m_dir / name).wstring(); }
    void write(const std::string& name, const std::string& content) const {
        std::ofstream(m_dir / name, std::ios::binary) << content;
    }
    std::string read(const std::string& name) const {
        std::ifstream in(m_dir / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    fs::path m_dir;
};

TEST_F(FilesTest, DeleteRemovesAFile) {
    write("a.GAR", "x");
    EXPECT_EQ(DeleteFileW(wpath("a.GAR").c_str()), TRUE);
    EXPECT_FALSE(fs::exists(m_dir / "a.GAR"));
}

TEST_F(FilesTest, DeleteOfAMissingFileGivesError2) {
    SetLastError(0);
    EXPECT_EQ(DeleteFileW(wpath("none.GAR").c_str()), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(FilesTest, DeleteInAMissingFolderGivesError3) {
    EXPECT_EQ(DeleteFileW(wpath("nofolder/none.GAR").c_str()), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(FilesTest, DeleteOfAFolderIsAccessDenied) {
    fs::create_directory(m_dir / "sub");
    EXPECT_EQ(DeleteFileW(wpath("sub").c_str()), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(fs::is_directory(m_dir / "sub"));
}

TEST_F(FilesTest, BackslashSeparatedPathsWork) {
    write("b.GAR", "x");
    std::wstring path = m_dir.wstring() + L"\\b.GAR";
    EXPECT_NE(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(DeleteFileW(path.c_str()), TRUE);
}

TEST_F(FilesTest, HookedSharingViolationLastsUntilReleasedAndARetryLoopGetsThrough) {
    write("busy.GAR", "x");
    std::atomic<int> yieldsLeft = 3;
    host::win32::SetFileFaultHook(
        [&](host::win32::FileOperation op, const fs::path& path) -> DWORD {
            if (op == host::win32::FileOperation::Delete && path.filename() == "busy.GAR" &&
                yieldsLeft > 0)
                return ERROR_SHARING_VIOLATION;
            return ERROR_SUCCESS;
        });
    int yields = 0;
    host::win32::SetSwitchToThreadHook([&] {
        ++yields;
        --yieldsLeft;
    });
    // The loop the module runs on its result file.
    int attempts = 0;
    BOOL deleted = FALSE;
    for (;;) {
        ++attempts;
        deleted = DeleteFileW(wpath("busy.GAR").c_str());
        if (deleted || GetLastError() != ERROR_SHARING_VIOLATION)
            break;
        SwitchToThread();
    }
    EXPECT_EQ(deleted, TRUE);
    EXPECT_EQ(attempts, 4);
    EXPECT_EQ(yields, 3);
    EXPECT_FALSE(fs::exists(m_dir / "busy.GAR"));
}

TEST_F(FilesTest, AHookedFailureLeavesTheFileAlone) {
    write("keep.GAR", "x");
    {
        host::win32::ScopedFileFaultHook hook(
            [](host::win32::FileOperation, const fs::path&) -> DWORD {
                return ERROR_SHARING_VIOLATION;
            });
        EXPECT_EQ(DeleteFileW(wpath("keep.GAR").c_str()), FALSE);
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
        EXPECT_EQ(CopyFileW(wpath("keep.GAR").c_str(), wpath("copy.GAR").c_str(), FALSE), FALSE);
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    }
    EXPECT_TRUE(fs::exists(m_dir / "keep.GAR"));
    EXPECT_FALSE(fs::exists(m_dir / "copy.GAR"));
    // The scoped hook is gone again.
    EXPECT_EQ(DeleteFileW(wpath("keep.GAR").c_str()), TRUE);
}

TEST_F(FilesTest, CopyOverwritesUnlessAskedNotTo) {
    write("src.GAR", "new content");
    write("dst.GAR", "old");
    EXPECT_EQ(CopyFileW(wpath("src.GAR").c_str(), wpath("dst.GAR").c_str(), FALSE), TRUE);
    EXPECT_EQ(read("dst.GAR"), "new content");
    write("dst.GAR", "old");
    EXPECT_EQ(CopyFileW(wpath("src.GAR").c_str(), wpath("dst.GAR").c_str(), TRUE), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    EXPECT_EQ(read("dst.GAR"), "old");
}

TEST_F(FilesTest, CopyOfAMissingSourceGivesError2) {
    EXPECT_EQ(CopyFileW(wpath("none").c_str(), wpath("dst").c_str(), FALSE), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(fs::exists(m_dir / "dst"));
}

TEST_F(FilesTest, CopyIntoAMissingFolderGivesError3) {
    write("src", "x");
    EXPECT_EQ(CopyFileW(wpath("src").c_str(), wpath("nofolder/dst").c_str(), FALSE), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(FilesTest, AttributesTellFilesFoldersAndNothing) {
    write("f", "x");
    EXPECT_EQ(GetFileAttributesW(wpath("f").c_str()), FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(GetFileAttributesW(m_dir.wstring().c_str()), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(GetFileAttributesW(wpath("none").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetFileAttributesW(wpath("none/deeper").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(FilesTest, NullPathsAreInvalidParameters) {
    EXPECT_EQ(DeleteFileW(nullptr), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(GetFileAttributesW(nullptr), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(CopyFileW(nullptr, L"x", FALSE), FALSE);
}

TEST_F(FilesTest, LastErrorIsPerThread) {
    SetLastError(77);
    std::thread([] {
        EXPECT_EQ(GetLastError(), 0u);
        SetLastError(5);
    }).join();
    EXPECT_EQ(GetLastError(), 77u);
}

TEST(SwitchToThreadTest, YieldsAndReportsSuccess) {
    EXPECT_EQ(SwitchToThread(), TRUE);
}

} // namespace
