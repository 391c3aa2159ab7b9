// The project's result file P.GAR: backup, restore and removal, with the retry while another
// process holds the file.
#include "adaptivity/AdaptiveMeshData.h"
#include "host/win32/win32.h"
#include "tests/adaptivity/support/strintg.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <vector>

using host::win32::FileOperation;
using host::win32::ScopedFileFaultHook;
using slabadapt::test::ReadBytes;
using slabadapt::test::ScratchDir;
using slabadapt::test::WriteBytes;

namespace fs = std::filesystem;

namespace {

// Counts SwitchToThread calls while installed.
class ScopedSwitchCounter {
public:
    explicit ScopedSwitchCounter(std::function<void()> also = {}) {
        m_previous = host::win32::SetSwitchToThreadHook([this, also] {
            ++m_count;
            if (also)
                also();
        });
    }
    ~ScopedSwitchCounter() { host::win32::SetSwitchToThreadHook(std::move(m_previous)); }
    int Count() const { return m_count; }

private:
    std::atomic<int> m_count{0};
    host::win32::SwitchToThreadHook m_previous;
};

// Keeps the current folder for the life of the object and puts the previous one back.
class ScopedCurrentPath {
public:
    explicit ScopedCurrentPath(const fs::path& path) : m_previous(fs::current_path()) {
        fs::current_path(path);
    }
    ~ScopedCurrentPath() { fs::current_path(m_previous); }

private:
    fs::path m_previous;
};

bool SameFile(const fs::path& a, const fs::path& b) {
    std::error_code ec;
    return fs::equivalent(a, b, ec);
}

} // namespace

class ResultFileBackup : public ::testing::Test {
protected:
    ScratchDir dir;
    fs::path gar = dir / "m1.GAR";
    fs::path backup = dir / "backup_m1.GAR";
    CString project = dir.Project("m1");
};

TEST_F(ResultFileBackup, NoResultFileDeletesStaleBackupAndFails) {
    WriteBytes(backup, "stale");
    CString backupPath(L"something");
    EXPECT_FALSE(CAdaptiveMeshData::CreateGARFileBackup(project, backupPath));
    EXPECT_TRUE(backupPath.IsEmpty());
    EXPECT_FALSE(fs::exists(backup));
}

TEST_F(ResultFileBackup, FreshCopyReplacesAnOldBackup) {
    WriteBytes(gar, "current results");
    WriteBytes(backup, "results of an earlier run");
    CString backupPath;
    ASSERT_TRUE(CAdaptiveMeshData::CreateGARFileBackup(project, backupPath));
    EXPECT_EQ(ReadBytes(backup), "current results");
    EXPECT_EQ(ReadBytes(gar), "current results");
    EXPECT_TRUE(SameFile(backupPath.ToPath(), backup)) << backupPath;
}

TEST_F(ResultFileBackup, BackupNameHasBackslashAppendedToTheFolder) {
    WriteBytes(gar, "r");
    CString backupPath;
    ASSERT_TRUE(CAdaptiveMeshData::CreateGARFileBackup(project, backupPath));
    // The folder part of the host path, a "\", then "backup_" and the file name.
    EXPECT_EQ(backupPath, CString(dir.Path().string()) + L"\\backup_m1.GAR");
}

TEST_F(ResultFileBackup, BackslashSeparatedProjectPath) {
    fs::create_directory(dir / "proj");
    WriteBytes(dir / "proj" / "m1.GAR", "r");
    const CString backslashed = CString(dir.Path().string()) + L"\\proj\\m1";
    CString backupPath;
    ASSERT_TRUE(CAdaptiveMeshData::CreateGARFileBackup(backslashed, backupPath));
    EXPECT_EQ(backupPath, CString(dir.Path().string()) + L"\\proj\\backup_m1.GAR");
    EXPECT_EQ(ReadBytes(dir / "proj" / "backup_m1.GAR"), "r");
}

TEST_F(ResultFileBackup, ProjectPathWithoutFolderGivesBareBackupName) {
    WriteBytes(gar, "bare");
    ScopedCurrentPath here(dir.Path());
    CString backupPath;
    ASSERT_TRUE(CAdaptiveMeshData::CreateGARFileBackup(CString(L"m1"), backupPath));
    EXPECT_EQ(backupPath, CString(L"backup_m1.GAR"));
    EXPECT_EQ(ReadBytes(backup), "bare");
}

// The backup name for host paths of every form, seen through the file services' seam (every
// call refused, so nothing outside the scratch folder is touched): the name of the stale backup
// that CreateGARFileBackup deletes first.
TEST(ResultFileBackupName, FolderPartByHostRules) {
    const std::pair<const wchar_t*, const char*> cases[] = {
        {L"C:\\proj\\m1", "C:/proj/backup_m1.GAR"},
        {L"C:\\m1", "C:/backup_m1.GAR"}, // a root keeps its separator, none is added
        {L"C:m1", "C:backup_m1.GAR"},    // a drive alone ends in ":"
        {L"/m1", "/backup_m1.GAR"},
        {L"/data/proj/m1", "/data/proj/backup_m1.GAR"},
        {L"/data/proj//m1", "/data/proj/backup_m1.GAR"},
        {L"\\\\server\\share\\m1", "//server/share/backup_m1.GAR"},
        {L"rel/dir\\m1", "rel/dir/backup_m1.GAR"},
        {L"m1", "backup_m1.GAR"},
    };
    for (const auto& [project, expected] : cases) {
        std::vector<fs::path> deleted;
        ScopedFileFaultHook hook([&](FileOperation op, const fs::path& path) -> DWORD {
            if (op == FileOperation::Delete)
                deleted.push_back(path);
            return ERROR_FILE_NOT_FOUND;
        });
        CString backupPath(L"x");
        EXPECT_FALSE(CAdaptiveMeshData::CreateGARFileBackup(CString(project), backupPath));
        EXPECT_TRUE(backupPath.IsEmpty());
        ASSERT_EQ(deleted.size(), 1u) << CString(project);
        EXPECT_EQ(deleted[0], fs::path(expected)) << CString(project);
    }
}

TEST_F(ResultFileBackup, FailedCopyLeavesBackupPathEmpty) {
    WriteBytes(gar, "r");
    ScopedFileFaultHook hook([](FileOperation op, const fs::path&) -> DWORD {
        return op == FileOperation::Copy ? ERROR_DISK_FULL : ERROR_SUCCESS;
    });
    CString backupPath(L"old");
    EXPECT_FALSE(CAdaptiveMeshData::CreateGARFileBackup(project, backupPath));
    EXPECT_TRUE(backupPath.IsEmpty());
    EXPECT_FALSE(fs::exists(backup));
    EXPECT_TRUE(fs::exists(gar));
}

TEST_F(ResultFileBackup, RestorePutsTheBackupBackAndRemovesIt) {
    WriteBytes(gar, "results of the failed run");
    WriteBytes(backup, "good results");
    EXPECT_TRUE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
    EXPECT_EQ(ReadBytes(gar), "good results");
    EXPECT_FALSE(fs::exists(backup));
}

TEST_F(ResultFileBackup, RestoreWithoutResultFileStillCopies) {
    WriteBytes(backup, "good results");
    EXPECT_TRUE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
    EXPECT_EQ(ReadBytes(gar), "good results");
    EXPECT_FALSE(fs::exists(backup));
}

TEST_F(ResultFileBackup, RestoreWithoutBackupDeletesTheResultFileAndFails) {
    WriteBytes(gar, "results of the failed run");
    EXPECT_FALSE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
    EXPECT_FALSE(fs::exists(gar));
}

TEST_F(ResultFileBackup, RestoreWhoseCopyFailsStillDeletesTheBackup) {
    WriteBytes(gar, "results of the failed run");
    WriteBytes(backup, "good results");
    ScopedFileFaultHook hook([](FileOperation op, const fs::path&) -> DWORD {
        return op == FileOperation::Copy ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    });
    EXPECT_FALSE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
    EXPECT_FALSE(fs::exists(backup));
    EXPECT_FALSE(fs::exists(gar));
}

TEST_F(ResultFileBackup, RoundTripKeepsTheResults) {
    WriteBytes(gar, "before the run");
    CString backupPath;
    ASSERT_TRUE(CAdaptiveMeshData::CreateGARFileBackup(project, backupPath));
    WriteBytes(gar, "written by the run");
    ASSERT_TRUE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
    EXPECT_EQ(ReadBytes(gar), "before the run");
    EXPECT_FALSE(fs::exists(backup));
}

// The file services in the order the operations call them, each with its (first) file.
class ScopedServiceLog {
public:
    ScopedServiceLog()
        : m_hook([this](FileOperation op, const fs::path& path) -> DWORD {
              const char* name = op == FileOperation::Delete ? "delete "
                                 : op == FileOperation::Copy ? "copy "
                                                             : "exists ";
              m_calls.push_back(name + path.filename().string());
              return ERROR_SUCCESS;
          }) {}
    const std::vector<std::string>& Calls() const { return m_calls; }

private:
    std::vector<std::string> m_calls;
    ScopedFileFaultHook m_hook;
};

TEST_F(ResultFileBackup, BackupDeletesTheOldBackupThenTestsThenCopies) {
    WriteBytes(gar, "r");
    WriteBytes(backup, "old");
    ScopedServiceLog log;
    CString backupPath;
    ASSERT_TRUE(CAdaptiveMeshData::CreateGARFileBackup(project, backupPath));
    EXPECT_EQ(log.Calls(),
              (std::vector<std::string>{"delete backup_m1.GAR", "exists m1.GAR", "copy m1.GAR"}));
}

TEST_F(ResultFileBackup, RestoreDeletesTheResultFileFirstAndTheBackupLast) {
    WriteBytes(gar, "r");
    WriteBytes(backup, "b");
    {
        ScopedServiceLog log;
        ASSERT_TRUE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
        EXPECT_EQ(log.Calls(),
                  (std::vector<std::string>{"delete m1.GAR", "exists backup_m1.GAR",
                                            "copy backup_m1.GAR", "delete backup_m1.GAR"}));
    }
    fs::remove(backup);
    ScopedServiceLog log;
    EXPECT_FALSE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
    EXPECT_EQ(log.Calls(), (std::vector<std::string>{"delete m1.GAR", "exists backup_m1.GAR"}));
}

// ---------------------------------------------------------------------------------------------
// Deleting with the retry on a sharing violation

class ResultFileDelete : public ResultFileBackup {};

TEST_F(ResultFileDelete, DeletesTheResultFileOnly) {
    WriteBytes(gar, "r");
    WriteBytes(backup, "b");
    WriteBytes(dir / "m1.STRINTG0001", "s");
    CAdaptiveMeshData data;
    data.DeleteResultFiles(project);
    EXPECT_FALSE(fs::exists(gar));
    EXPECT_TRUE(fs::exists(backup));
    EXPECT_TRUE(fs::exists(dir / "m1.STRINTG0001"));
}

TEST_F(ResultFileDelete, MissingFileIsHarmless) {
    ScopedSwitchCounter switches;
    CAdaptiveMeshData data;
    EXPECT_NO_THROW(data.DeleteResultFiles(project));
    EXPECT_NO_THROW(data.DeleteResultFiles(dir.Project("no/such/folder/m1")));
    EXPECT_EQ(switches.Count(), 0);
}

TEST_F(ResultFileDelete, RetriesWhileTheFileIsInUse) {
    WriteBytes(gar, "r");
    int refusals = 0;
    ScopedFileFaultHook hook([&](FileOperation op, const fs::path& path) -> DWORD {
        if (op == FileOperation::Delete && path.filename() == "m1.GAR" && refusals < 25) {
            ++refusals;
            return ERROR_SHARING_VIOLATION;
        }
        return ERROR_SUCCESS;
    });
    ScopedSwitchCounter switches;
    CAdaptiveMeshData data;
    data.DeleteResultFiles(project);
    EXPECT_EQ(refusals, 25);
    EXPECT_EQ(switches.Count(), 25); // one yield per refusal
    EXPECT_FALSE(fs::exists(gar));
}

TEST_F(ResultFileDelete, SucceedsOnceAnotherHolderReleasesTheFile) {
    // Another party holds P.GAR open for a while; the store reports the sharing violation that
    // Windows would report for as long as it does.
    WriteBytes(gar, "r");
    std::atomic<bool> held{true};
    std::thread holder([&] {
        std::ifstream open(gar, std::ios::binary);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        held = false;
    });
    ScopedFileFaultHook hook([&](FileOperation op, const fs::path& path) -> DWORD {
        return op == FileOperation::Delete && path.filename() == "m1.GAR" && held
                   ? ERROR_SHARING_VIOLATION
                   : ERROR_SUCCESS;
    });
    ScopedSwitchCounter switches;
    CAdaptiveMeshData data;
    data.DeleteResultFiles(project);
    holder.join();
    EXPECT_FALSE(fs::exists(gar));
    EXPECT_GT(switches.Count(), 0);
}

TEST_F(ResultFileDelete, OtherErrorsEndTheAttemptWithoutRetry) {
    WriteBytes(gar, "r");
    int attempts = 0;
    ScopedFileFaultHook hook([&](FileOperation op, const fs::path&) -> DWORD {
        if (op != FileOperation::Delete)
            return ERROR_SUCCESS;
        ++attempts;
        return ERROR_ACCESS_DENIED;
    });
    ScopedSwitchCounter switches;
    CAdaptiveMeshData data;
    data.DeleteResultFiles(project);
    EXPECT_EQ(attempts, 1);
    EXPECT_EQ(switches.Count(), 0);
    EXPECT_TRUE(fs::exists(gar));
}

TEST_F(ResultFileDelete, BackupAndRestoreWaitInTheirDeleteSteps) {
    WriteBytes(gar, "r");
    WriteBytes(backup, "old");
    std::map<std::string, int> refusals;
    ScopedFileFaultHook hook([&](FileOperation op, const fs::path& path) -> DWORD {
        if (op != FileOperation::Delete)
            return ERROR_SUCCESS;
        int& n = refusals[path.filename().string()];
        return n++ < 3 ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
    });
    ScopedSwitchCounter switches;
    CString backupPath;
    ASSERT_TRUE(CAdaptiveMeshData::CreateGARFileBackup(project, backupPath));
    EXPECT_EQ(switches.Count(), 3); // the old backup
    EXPECT_EQ(ReadBytes(backup), "r");
    refusals.clear();
    ASSERT_TRUE(CAdaptiveMeshData::RestoreGARFileFromBackup(project));
    EXPECT_EQ(switches.Count(), 3 + 3 + 3); // the result file, then the backup
    EXPECT_EQ(ReadBytes(gar), "r");
    EXPECT_FALSE(fs::exists(backup));
}
