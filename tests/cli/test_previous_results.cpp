// A run deletes P.GAR before its pass: when the pass then fails, the previous results are put
// back and the command says so; after a success no copy is left behind.
#include "cli/Commands.h"
#include "tests/support/cli_main.h"
#include "tests/support/example_project.h"

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

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
    for (const char* leftover : {"backup_floor.GAR", "floor.refine.pos.backup"})
        EXPECT_FALSE(fs::exists(dir / leftover)) << leftover;

    // A refused check ran nothing: the store stays, nothing is said about restoring.
    const auto refused =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "102"});
    EXPECT_EQ(refused.code, slabadapt::cli::kExitDataError);
    EXPECT_EQ(refused.err.find("restored"), std::string::npos) << refused.err;
    EXPECT_EQ(fixture::ReadFile(p + ".GAR"), gar);
}

} // namespace

namespace {

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
    const auto check =
        slabadapt::test::RunSlabadapt({"check", project.string(), "--load-case", "101"});
    EXPECT_EQ(check.code, slabadapt::cli::kExitDataError);
    EXPECT_NE(check.out.find("would overflow a double"), std::string::npos) << check.out;
}

} // namespace
