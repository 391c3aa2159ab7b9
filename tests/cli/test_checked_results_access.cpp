// The results access of a run's pass: held where its reading ends until the check's verdict,
// the old P.GAR removed only after a passed check, and the integration-point values let go
// once the results are stored.
#include "cli/CheckedResultsAccess.h"
#include "host/outcome/gar.h"
#include "tests/support/example_project.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <functional>

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using slabadapt::cli::CheckedResultsAccess;

class CheckedAccess : public testing::Test {
protected:
    void SetUp() override {
        project = fixture::CopyExample(dir.path());
        fixture::WriteFile(project.string() + ".GAR", "the previous results");
    }
    // The pass's first steps, as the driver takes them.
    bool Start(CheckedResultsAccess& access) {
        EXPECT_EQ(access.Init(CString(project.string()), 0, Outcome64Enums::eSolverType{}), 0);
        access.DeleteResultFiles();
        return access.PrepareAdaptiveMeshData({1});
    }
    bool Gar() const { return fs::exists(project.string() + ".GAR"); }
    // A check that refuses the project, counting how often it is asked.
    std::function<bool()> Refusing() {
        return [this] {
            ++asked;
            return false;
        };
    }

    slabadapt::test::TempDir dir{"checked-access"};
    fs::path project;
    int asked = 0;
};

TEST_F(CheckedAccess, APassedCheckRemovesTheOldResultsOnlyWhenTheReadingIsDone) {
    CheckedResultsAccess access(project, [this] {
        ++asked;
        EXPECT_TRUE(Gar()) << "removed before the verdict";
        return true;
    });
    EXPECT_EQ(access.Init(CString(project.string()), 0, Outcome64Enums::eSolverType{}), 0);
    access.DeleteResultFiles();
    EXPECT_TRUE(Gar());
    EXPECT_TRUE(access.PrepareAdaptiveMeshData({1}));
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(Gar());
    EXPECT_FALSE(access.Stopped());
    EXPECT_GT(access.GetCountOfIntegrationPoints(0), 0u);
}

TEST_F(CheckedAccess, ARefusedCheckEndsThePassAndKeepsTheOldResults) {
    CheckedResultsAccess access(project, Refusing());
    EXPECT_FALSE(Start(access));
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(access.Stopped());
    EXPECT_EQ(fixture::ReadFile(project.string() + ".GAR"), "the previous results");
    EXPECT_THROW(access.GetCountOfIntegrationPoints(0), std::out_of_range); // nothing kept
}

TEST_F(CheckedAccess, WithoutACheckItIsTheHostsAccess) {
    CheckedResultsAccess access(project, {});
    EXPECT_EQ(access.Init(CString(project.string()), 0, Outcome64Enums::eSolverType{}), 0);
    access.DeleteResultFiles();
    EXPECT_FALSE(Gar());
    EXPECT_TRUE(access.PrepareAdaptiveMeshData({1}));
    EXPECT_FALSE(access.Stopped());
}

// A FIFO in the STRINTG file's place would be waited on for ever: the verdict comes first.
TEST_F(CheckedAccess, AFileThatIsNoRegularFileIsNotReadBeforeTheVerdict) {
    const std::string strintg = project.string() + ".STRINTG0001";
    fs::remove(strintg);
    ASSERT_EQ(::mkfifo(strintg.c_str(), 0600), 0);
    CheckedResultsAccess access(project, Refusing());
    EXPECT_FALSE(Start(access));
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(access.Stopped());
    EXPECT_TRUE(Gar());
}

TEST_F(CheckedAccess, StoringTheResultsLetsTheIntegrationPointValuesGo) {
    CheckedResultsAccess access(project, [] { return true; });
    ASSERT_TRUE(Start(access));
    ASSERT_GT(access.GetCountOfIntegrationPoints(0), 0u);
    std::size_t elements = 0;
    for (unsigned long slab = 0; slab < access.GetNoOfSlabs(); ++slab) {
        unsigned long count = 0;
        access.GetElementsOnSlab(slab, count);
        elements += count;
    }
    ASSERT_GT(elements, 0u);
    const std::vector<double> values(elements, 1.0);
    EXPECT_TRUE(access.StoreMeshErrorAndRefinementInResults(1, values, values, values, values));
    EXPECT_THROW(access.GetCountOfIntegrationPoints(0), std::out_of_range);
    EXPECT_TRUE(Gar()); // the results are in
}

} // namespace
