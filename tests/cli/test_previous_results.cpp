// A run deletes P.GAR before its pass: when the pass then fails, the previous results are put
// back and the command says so; after a success no copy is left behind.
#include "cli/Commands.h"
#include "host/outcome/gar.h"
#include "tests/support/cli_main.h"
#include "tests/support/example_project.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// The example copied into dir and run once (load case 101): P, or empty when the run failed.
std::string ExampleWithResults(const slabadapt::test::TempDir& dir) {
    const std::string p = fixture::CopyExample(dir.path()).string();
    const auto run =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "101"});
    EXPECT_EQ(run.code, 0) << run.err;
    return run.code == 0 ? p : std::string();
}

TEST(PreviousResults, AFailedPassPutsThePreviousStoreAndSizeFieldBack) {
    slabadapt::test::TempDir dir("previous");
    const fs::path project = fixture::CopyExample(dir.path());
    const std::string p = project.string();
    const auto first =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "101"});
    ASSERT_EQ(first.code, 0) << first.err;
    for (const char* leftover : {"backup_floor.GAR", "floor.refine.pos.backup"})
        EXPECT_FALSE(fs::exists(dir / leftover)) << leftover;
    const std::string gar = fixture::ReadFile(p + ".GAR");
    const std::string pos = fixture::ReadFile(p + ".refine.pos");
    struct stat before {};
    ASSERT_EQ(::stat((p + ".refine.pos").c_str(), &before), 0);

    // A pass that fails (its STRINTG file is gone; --no-check lets the module find out).
    fs::remove(p + ".STRINTG0002");
    const auto failed = slabadapt::test::RunSlabadapt(
        {"run", p, "--target", "0.05", "--load-case", "102", "--no-check"});
    EXPECT_EQ(failed.code, 2) << failed.err;
    EXPECT_NE(failed.err.find("the previous results in " + p + ".GAR were restored"),
              std::string::npos)
        << failed.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
    EXPECT_EQ(fixture::ReadFile(p + ".refine.pos"), pos);
    // The size field was set aside under a second name, not copied: it is the very file.
    struct stat after {};
    ASSERT_EQ(::stat((p + ".refine.pos").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_nlink, 1u);
    for (const char* leftover : {"backup_floor.GAR", "floor.refine.pos.backup"})
        EXPECT_FALSE(fs::exists(dir / leftover)) << leftover;

    // A refused check ran nothing: the store stays, nothing is said about restoring.
    const auto refused =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "102"});
    EXPECT_EQ(refused.code, slabadapt::cli::kExitDataError);
    EXPECT_EQ(refused.err.find("restored"), std::string::npos) << refused.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
}

TEST(UntrustedNumbers, ARunOnValuesThatOverflowWarns) {
    slabadapt::test::TempDir dir("overflow");
    const fs::path project = fixture::CopyExample(dir.path());
    const std::string strintg = project.string() + ".STRINTG0001";
    auto lines = fixture::Lines(fixture::ReadFile(strintg));
    lines[5].replace(61, 15, "       5.0E+307");
    fixture::WriteLines(strintg, lines);
    const auto o = slabadapt::test::RunSlabadapt(
        {"run", project.string(), "--target", "0.05", "--load-case", "101", "--no-check"});
    EXPECT_NE(o.err.find("the estimator's sums overflowed"), std::string::npos) << o.err;
    // The same words in --json, for the programs that read it.
    const auto json = slabadapt::test::RunSlabadapt({"run", project.string(), "--target", "0.05",
                                                     "--load-case", "101", "--no-check", "--json"});
    EXPECT_NE(json.out.find("\"warnings\": [\"the global error is"), std::string::npos) << json.out;
    const auto check =
        slabadapt::test::RunSlabadapt({"check", project.string(), "--load-case", "101"});
    EXPECT_EQ(check.code, slabadapt::cli::kExitDataError);
    EXPECT_NE(check.out.find("would overflow a double"), std::string::npos) << check.out;
}

TEST(OneWriter, ASecondWriterWaitsOrWithNoWaitGivesUp) {
    slabadapt::test::TempDir dir("lock");
    const fs::path project = fixture::CopyExample(dir.path());
    const std::string p = project.string();
    // Another writer: a lock on P.toml, as a running slabadapt holds it.
    const int other = ::open((p + ".toml").c_str(), O_RDONLY);
    ASSERT_GE(other, 0);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    const auto busy = slabadapt::test::RunSlabadapt(
        {"run", p, "--target", "0.05", "--load-case", "101", "--no-wait"});
    EXPECT_EQ(busy.code, slabadapt::cli::kExitBusy);
    EXPECT_NE(busy.err.find("another slabadapt is writing to the project"), std::string::npos)
        << busy.err;
    EXPECT_FALSE(fs::exists(p + ".GAR")) << "the busy run wrote";
    for (const char* command : {"adapt", "import-ccx"}) {
        std::vector<std::string> args = {command, p};
        if (std::string(command) == "adapt")
            args.insert(args.end(), {"--target", "0.05", "--load-case", "101", "--no-wait"});
        else
            args.insert(args.end(), {(dir / "floor.toml").string(), "--no-wait"});
        EXPECT_EQ(slabadapt::test::RunSlabadapt(args).code, slabadapt::cli::kExitBusy) << command;
    }
    // A reader takes no lock.
    EXPECT_EQ(slabadapt::test::RunSlabadapt({"check", p, "--load-case", "101"}).code, 0);
    // Without --no-wait the run waits until the other writer ends.
    std::thread ends([other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ::close(other);
    });
    const auto run =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "101"});
    ends.join();
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.err.find("waiting for it to end"), std::string::npos) << run.err;
}

TEST(KilledRun, TheNextCommandPutsBackWhatItSetAside) {
    slabadapt::test::TempDir dir("killed");
    const std::string p = ExampleWithResults(dir);
    ASSERT_FALSE(p.empty());
    const std::string gar = fixture::ReadFile(p + ".GAR");
    const std::string pos = fixture::ReadFile(p + ".refine.pos");
    // As a run killed during its pass leaves the project: the copies aside, P.GAR gone or half
    // written, P.refine.pos not yet written.
    fs::copy_file(p + ".GAR", dir / "backup_floor.GAR");
    fs::copy_file(p + ".refine.pos", p + ".refine.pos.backup");
    fixture::WriteFile(p + ".run-pending", "gar=previous\npos=previous\n");
    fixture::WriteFile(p + ".GAR", "");
    fs::remove(p + ".refine.pos");

    const auto results = slabadapt::test::RunSlabadapt({"results", p, "--format", "csv"});
    EXPECT_EQ(results.code, 0) << results.err;
    EXPECT_NE(results.err.find("did not end; the results it had set aside are back in"),
              std::string::npos)
        << results.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
    EXPECT_EQ(fixture::ReadFile(p + ".refine.pos"), pos);
    EXPECT_FALSE(fs::exists(dir / "backup_floor.GAR"));
    EXPECT_FALSE(fs::exists(p + ".refine.pos.backup"));
    // Nothing more to put back the next time.
    EXPECT_EQ(slabadapt::test::RunSlabadapt({"results", p}).err.find("did not end"),
              std::string::npos);
}

// Runs the pass in a child process that dies (no unwinding, no rollback) while it saves the
// second slab's table, as a run killed at that moment would.
void RunKilledWhileSaving(const std::string& project) {
    EXPECT_EXIT(
        {
            host::outcome::SetSaveRowHook([](const CKQ_ResultKey& key, unsigned long row) {
                if (key.GetDsObject().GetID() == 2 && row == 3)
                    std::_Exit(9);
            });
            slabadapt::test::RunSlabadapt(
                {"run", project, "--target", "0.05", "--load-case", "102"});
        },
        ::testing::ExitedWithCode(9), "");
}

TEST(KilledRun, AKillDuringTheSavePutsThePreviousResultsBack) {
    slabadapt::test::TempDir dir("killed-save");
    const std::string p = ExampleWithResults(dir);
    ASSERT_FALSE(p.empty());
    const std::string gar = fixture::ReadFile(p + ".GAR");
    const std::string pos = fixture::ReadFile(p + ".refine.pos");
    RunKilledWhileSaving(p);
    ASSERT_TRUE(fs::exists(p + ".run-pending"));

    const auto results = slabadapt::test::RunSlabadapt({"results", p, "--format", "csv"});
    EXPECT_EQ(results.code, 0) << results.err;
    EXPECT_NE(results.err.find("did not end; the results it had set aside are back in"),
              std::string::npos)
        << results.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
    EXPECT_EQ(fixture::ReadFile(p + ".refine.pos"), pos);
    for (const char* leftover :
         {"backup_floor.GAR", "floor.refine.pos.backup", "floor.run-pending", "floor.GAR-journal"})
        EXPECT_FALSE(fs::exists(dir / leftover)) << leftover;
    EXPECT_TRUE(slabadapt::test::TemporaryFilesIn(dir.path()).empty());
}

TEST(KilledRun, AKilledFirstRunLeavesNoStoreBehind) {
    slabadapt::test::TempDir dir("killed-first");
    const std::string p = fixture::CopyExample(dir.path()).string();
    RunKilledWhileSaving(p);
    const auto next =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "101"});
    EXPECT_EQ(next.code, 0) << next.err;
    EXPECT_NE(next.err.find("what it had begun to write is removed"), std::string::npos)
        << next.err;
    EXPECT_FALSE(fs::exists(p + ".run-pending"));
    // The store is this run's, whole: both slabs.
    const auto results = slabadapt::test::RunSlabadapt({"results", p, "--format", "csv"});
    EXPECT_EQ(results.code, 0) << results.err;
    EXPECT_NE(results.out.find("\n2,"), std::string::npos) << results.out;
}

TEST(KilledRun, ResultsCommittedWhereThereWereNoneAreKept) {
    slabadapt::test::TempDir dir("killed-late");
    const std::string p = ExampleWithResults(dir);
    ASSERT_FALSE(p.empty());
    const std::string gar = fixture::ReadFile(p + ".GAR");
    // Killed after its results were in, before it dropped its marker.
    fixture::WriteFile(p + ".run-pending", "gar=none\npos=none\n");
    const auto results = slabadapt::test::RunSlabadapt({"results", p});
    EXPECT_EQ(results.code, 0) << results.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
    EXPECT_TRUE(fs::exists(p + ".refine.pos"));
    EXPECT_FALSE(fs::exists(p + ".run-pending"));
}

TEST(KilledRun, BackupsWithoutAMarkerAreStaleAndGo) {
    slabadapt::test::TempDir dir("stale");
    const std::string p = ExampleWithResults(dir);
    ASSERT_FALSE(p.empty());
    const std::string gar = fixture::ReadFile(p + ".GAR");
    fixture::WriteFile(dir / "backup_floor.GAR", "half a copy");
    fixture::WriteFile(p + ".refine.pos.backup", "half a copy");
    const auto results = slabadapt::test::RunSlabadapt({"results", p});
    EXPECT_EQ(results.code, 0) << results.err;
    EXPECT_EQ(results.err.find("did not end"), std::string::npos) << results.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
    EXPECT_FALSE(fs::exists(dir / "backup_floor.GAR"));
    EXPECT_FALSE(fs::exists(p + ".refine.pos.backup"));
}

// The STRINTG files are checked while the pass reads them; when the check then refuses one,
// the pass ends before the old results go: P.GAR is the very file it was (not a copy put
// back), and the findings are the ones `check` gives.
TEST(PreviousResults, ARunThatTheCheckOfItsSTRINTGFileRefusesLeavesTheResultsAlone) {
    slabadapt::test::TempDir dir("refused");
    const std::string p = ExampleWithResults(dir);
    ASSERT_FALSE(p.empty());
    const std::string gar = fixture::ReadFile(p + ".GAR");
    const std::string pos = fixture::ReadFile(p + ".refine.pos");
    struct stat before {};
    ASSERT_EQ(::stat((p + ".GAR").c_str(), &before), 0);
    // The first record's first value spoilt: P.msh and P.toml pass, the STRINTG file does not.
    std::string strintg = fixture::ReadFile(p + ".STRINTG0001");
    std::size_t at = 0;
    for (int line = 1; line < 5; ++line)
        at = strintg.find('\n', at) + 1;
    strintg.replace(at + 16 + 3 * 15, 15, "            abc"); // mx, behind the coordinates
    fixture::WriteFile(p + ".STRINTG0001", strintg);

    const auto run =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "101"});
    const auto check = slabadapt::test::RunSlabadapt({"check", p, "--load-case", "101"});
    EXPECT_EQ(run.code, slabadapt::cli::kExitDataError) << run.err;
    EXPECT_NE(run.err.find("\"abc\", which is not a finite number"), std::string::npos) << run.err;
    auto findings = [](const std::string& text) {
        std::string lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            if (line.find(": error: ") != std::string::npos)
                lines += line + '\n';
        return lines;
    };
    EXPECT_EQ(run.err, findings(check.out + check.err) +
                           "slabadapt: the project check found 1 error; nothing was run "
                           "(--no-check runs anyway)\n");
    struct stat after {};
    ASSERT_EQ(::stat((p + ".GAR").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
    EXPECT_EQ(fixture::ReadFile(p + ".refine.pos"), pos);
    for (const char* leftover :
         {"backup_floor.GAR", "floor.refine.pos.backup", "floor.run-pending"})
        EXPECT_FALSE(fs::exists(dir.path() / leftover)) << leftover;
}

// Without a copy of the previous results nothing may run: the pass would delete P.GAR first.
TEST(PreviousResults, ARunWhoseResultsCannotBeSetAsideDoesNotStart) {
    slabadapt::test::TempDir dir("no-backup");
    const std::string p = ExampleWithResults(dir);
    ASSERT_FALSE(p.empty());
    const std::string gar = fixture::ReadFile(p + ".GAR");
    // A folder (not empty, so not taken for a stale copy) where the copy would go.
    fs::create_directory(dir / "backup_floor.GAR");
    fixture::WriteFile(dir / "backup_floor.GAR" / "keep", "x");
    const auto run =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "102"});
    EXPECT_EQ(run.code, slabadapt::cli::kExitCannotWrite) << run.err;
    EXPECT_NE(run.err.find("cannot copy " + p + ".GAR aside"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("nothing was run"), std::string::npos) << run.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
    EXPECT_FALSE(fs::exists(p + ".run-pending"));
}

// While a run replaces the results P.GAR is gone for a moment: a reader then says why, and
// leaves what the run set aside alone.
TEST(OneWriter, AReaderDuringARunSaysTheResultsAreBeingReplaced) {
    slabadapt::test::TempDir dir("reader");
    const std::string p = ExampleWithResults(dir);
    ASSERT_FALSE(p.empty());
    // As the run looks after it has set the results aside and its pass has deleted P.GAR.
    const int writer = ::open((p + ".toml").c_str(), O_RDONLY);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::flock(writer, LOCK_EX), 0);
    fs::rename(p + ".GAR", dir / "backup_floor.GAR");
    fixture::WriteFile(p + ".run-pending", "gar=previous\npos=none\n");
    const auto results = slabadapt::test::RunSlabadapt({"results", p});
    EXPECT_EQ(results.code, slabadapt::cli::kExitNoInput);
    EXPECT_NE(results.err.find("while a run replaces the results"), std::string::npos)
        << results.err;
    EXPECT_TRUE(fs::exists(dir / "backup_floor.GAR")); // the running writer's, untouched
    EXPECT_TRUE(fs::exists(p + ".run-pending"));
    ::close(writer);
}

} // namespace
