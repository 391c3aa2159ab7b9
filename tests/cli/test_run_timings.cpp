// Where a run's time and memory go: `run --timings` and the stages made of the host kit's marks.
#include "cli/Commands.h"
#include "cli/Progress.h"
#include "tests/support/cli_main.h"
#include "tests/support/example_project.h"

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

namespace {

using host::framework::StageMark;
using slabadapt::cli::StagesOf;

TEST(StagesOf, EachStageRunsFromItsFirstMarkToItsLast) {
    const std::vector<StageMark> marks = {{"start", 10.0, 5},
                                          {"project checked", 10.25, 6},
                                          {"checked", 11.0, 6},
                                          {"pass", 11.5, 6},
                                          {"project opened", 12.0, 7},
                                          {"setting up the estimator", 13.0, 8, 7.5},
                                          {"estimating", 13.25, 8},
                                          {"estimated", 14.75, 9},
                                          {"saving", 15.0, 9},
                                          {"saved", 15.5, 9},
                                          {"saving", 15.5, 9},
                                          {"saved", 16.25, 10},
                                          {"writing the size field", 16.5, 10},
                                          {"size field written", 17.0, 10},
                                          {"committed", 17.5, 10},
                                          {"summary read", 18.0, 11}};
    const auto stages = StagesOf(marks);
    const std::vector<std::pair<std::string, double>> expected = {
        {"check P.msh and P.toml", 0.25},          {"check the STRINTG files", 0.75},
        {"open the project (P.msh, P.toml)", 0.5}, {"read the STRINTG files", 1.0},
        {"set up the estimator's records", 0.25},  {"estimate (recovery, errors, sizes)", 1.5},
        {"store the results (P.GAR)", 1.25},       {"write the size field (P.refine.pos)", 0.5},
        {"end the pass, commit P.GAR", 0.5},       {"read the summary back", 0.5}};
    ASSERT_EQ(stages.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(stages[i].stage, expected[i].first);
        EXPECT_DOUBLE_EQ(stages[i].seconds, expected[i].second) << expected[i].first;
    }
    EXPECT_EQ(stages[6].peakMegabytes, 10.0); // at the last save
    EXPECT_EQ(stages[3].heapMegabytes, 7.5);  // in use when the set-up began
}

TEST(StagesOf, TheSTRINTGFilesAreCheckedWhileThePassReadsThem) {
    // The check's scan ends on its own thread during the reading; its verdict ("checked")
    // comes when the reading is done.
    const std::vector<StageMark> marks = {{"start", 10.0, 5},
                                          {"project checked", 10.25, 6},
                                          {"pass", 10.25, 6},
                                          {"project opened", 10.5, 6},
                                          {"STRINTG files checked", 11.0, 7},
                                          {"checked", 11.75, 8},
                                          {"setting up the estimator", 11.75, 8}};
    const auto stages = StagesOf(marks);
    ASSERT_EQ(stages.size(), 4u);
    EXPECT_EQ(stages[1].stage, "check the STRINTG files");
    EXPECT_DOUBLE_EQ(stages[1].seconds, 0.75);
    EXPECT_EQ(stages[3].stage, "read the STRINTG files");
    EXPECT_DOUBLE_EQ(stages[3].seconds, 1.25);
}

TEST(StagesOf, APassThatStopsBeforeTheEstimatorReadsUpToItsFirstSave) {
    const std::vector<StageMark> marks = {
        {"pass", 0.0, 1}, {"project opened", 1.0, 2}, {"saving", 3.0, 2}, {"saved", 3.5, 2}};
    const auto stages = StagesOf(marks);
    ASSERT_EQ(stages.size(), 3u);
    EXPECT_EQ(stages[1].stage, "read the STRINTG files");
    EXPECT_DOUBLE_EQ(stages[1].seconds, 2.0);
}

TEST(StagesOf, AStageWithoutItsMarksIsLeftOut) {
    // --no-check, and a pass that stopped before it stored anything.
    const std::vector<StageMark> marks = {
        {"start", 0.0, 1}, {"pass", 0.0, 1}, {"project opened", 1.0, 2}, {"summary read", 2.0, 2}};
    const auto stages = StagesOf(marks);
    ASSERT_EQ(stages.size(), 1u);
    EXPECT_EQ(stages[0].stage, "open the project (P.msh, P.toml)");
}

TEST(RunTimings, TheRunPrintsItsStagesAndPutsThemInTheJson) {
    slabadapt::test::TempDir dir("timings");
    const std::string p = fixture::CopyExample(dir.path()).string();
    const auto text = slabadapt::test::RunSlabadapt(
        {"run", p, "--target", "0.05", "--load-case", "101", "--timings"});
    ASSERT_EQ(text.code, 0) << text.err;
    std::size_t at = text.out.find("timings (wall time");
    ASSERT_NE(at, std::string::npos) << text.out;
    for (const char* stage :
         {"check P.msh and P.toml", "check the STRINTG files", "open the project",
          "read the STRINTG files", "set up the estimator's records",
          "estimate (recovery, errors, sizes)", "store the results", "write the size field",
          "end the pass", "read the summary back"}) {
        const std::size_t next = text.out.find(stage, at);
        EXPECT_NE(next, std::string::npos) << stage << " (in this order)\n" << text.out;
        at = next == std::string::npos ? at : next;
    }
    const auto json = slabadapt::test::RunSlabadapt(
        {"run", p, "--target", "0.05", "--load-case", "101", "--timings", "--json"});
    ASSERT_EQ(json.code, 0) << json.err;
    EXPECT_NE(json.out.find("\"timings\": [{\"stage\": \"check P.msh and P.toml\", \"seconds\": "),
              std::string::npos)
        << json.out;
    // Without --timings neither says a word of them.
    const auto plain =
        slabadapt::test::RunSlabadapt({"run", p, "--target", "0.05", "--load-case", "101"});
    EXPECT_EQ(plain.out.find("timings ("), std::string::npos) << plain.out;
}

using slabadapt::cli::ProgressLine;

TEST(ProgressLine, DrawsTheStageAfterASecondAndWipesItAtTheEnd) {
    std::ostringstream out;
    {
        ProgressLine line(out, true);
        host::framework::MarkStage("pass");
        host::framework::MarkStage("project opened");
        // The check's end, on its own thread during the reading, leaves the stage as it is.
        std::thread([] { host::framework::MarkStage("STRINTG files checked"); }).join();
        host::framework::MarkProgress(45, 100); // how far the reading is
        std::this_thread::sleep_for(std::chrono::milliseconds(1400));
    }
    host::framework::TakeStageMarks();
    const std::string text = out.str();
    EXPECT_NE(text.find("\r\033[Kslabadapt: reading the STRINTG files, 45 % (1 s)"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.substr(text.size() - 4), "\r\033[K") << text; // nothing left on the line
}

TEST(ProgressLine, ShowsNothingWhereItMayNot) {
    std::ostringstream out;
    {
        ProgressLine line(out, false);
        host::framework::MarkStage("project opened");
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    }
    host::framework::TakeStageMarks();
    EXPECT_EQ(out.str(), "");
}

TEST(ProgressLine, EveryMarkOfThePassNamesAStageAndTheCheckLeavesTheLineFree) {
    for (const char* mark :
         {"start", "pass", "project opened", "setting up the estimator", "estimating", "estimated",
          "saving", "writing the size field", "committed"})
        EXPECT_FALSE(ProgressLine::StageBegunBy(mark).empty()) << mark;
    EXPECT_TRUE(ProgressLine::StageBegunBy("checked").empty()); // the findings print then
    EXPECT_TRUE(ProgressLine::StageBegunBy("saved").empty());
    // The size field is written beside the commit and the summary: its end begins nothing.
    EXPECT_TRUE(ProgressLine::StageBegunBy("size field written").empty());
}

} // namespace
