// The adaptive loop's own logic, without the tools it drives: when it stops and with which
// code, how many elements the next mesh is expected to have, the record of the cycles and the
// report made from it.
#include "cli/Adapt.h"
#include "cli/AdaptHistory.h"
#include "cli/AdaptReport.h"
#include "cli/ExitCodes.h"
#include "cli/ExternalTool.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

using namespace slabadapt::cli;

CycleRecord Cycle(int cycle, double error, std::size_t elements = 100,
                  std::size_t predicted = 400) {
    CycleRecord c;
    c.cycle = cycle;
    c.globalError = error;
    c.elements = elements;
    c.nodes = elements + 10;
    c.predictedNext = predicted;
    c.slabs = {{1, "floor", 2.0 * error}, {2, "wall", error}};
    c.meshSeconds = 0.5;
    c.solveSeconds = 1.25;
    c.importSeconds = 0.125;
    c.estimateSeconds = 0.0625;
    c.totalSeconds = 2.0;
    return c;
}

AdaptOptions Options(double target = 0.05, int maxCycles = 8, std::size_t maxElements = 1000) {
    AdaptOptions o;
    o.target = target;
    o.maxCycles = maxCycles;
    o.maxElements = maxElements;
    return o;
}

TEST(AdaptStop, GoesOnWhileTheErrorFallsAndLimitsAreFar) {
    const StopDecision d = DecideStop({Cycle(1, 0.3), Cycle(2, 0.2)}, Options());
    EXPECT_EQ(d.reason, "");
    EXPECT_EQ(d.exitCode, 0);
}

TEST(AdaptStop, StopsWithZeroWhenTheTargetIsMetExactlyOrBelow) {
    const StopDecision at = DecideStop({Cycle(1, 0.05)}, Options(0.05));
    EXPECT_EQ(at.reason, "target");
    EXPECT_EQ(at.exitCode, 0);
    EXPECT_EQ(at.message, "the global error 5.00 % is within the target 5 % after 1 cycle");
    // The target wins over every other reason, even on the last allowed cycle.
    const StopDecision last =
        DecideStop({Cycle(1, 0.3), Cycle(2, 0.04, 100, 5000)}, Options(0.05, 2));
    EXPECT_EQ(last.reason, "target");
}

TEST(AdaptStop, StopsWhenTheErrorFallsByLessThanOnePercent) {
    const StopDecision d = DecideStop({Cycle(1, 0.2), Cycle(2, 0.1985)}, Options());
    EXPECT_EQ(d.reason, "stalled");
    EXPECT_EQ(d.exitCode, kExitAdaptStalled);
    EXPECT_NE(d.message.find("(20.00 %, then 19.85 %) after 2 cycles"), std::string::npos)
        << d.message;
    EXPECT_EQ(DecideStop({Cycle(1, 0.2), Cycle(2, 0.197)}, Options()).reason, "");
}

TEST(AdaptStop, StopsAfterMaxCycles) {
    const StopDecision d = DecideStop({Cycle(1, 0.3), Cycle(2, 0.2)}, Options(0.05, 2));
    EXPECT_EQ(d.reason, "max-cycles");
    EXPECT_EQ(d.exitCode, kExitAdaptMaxCycles);
    EXPECT_NE(d.message.find("(--max-cycles 2)"), std::string::npos) << d.message;
}

TEST(AdaptStop, StopsBeforeAMeshLargerThanMaxElements) {
    const StopDecision d = DecideStop({Cycle(1, 0.3, 100, 1001)}, Options(0.05, 8, 1000));
    EXPECT_EQ(d.reason, "max-elements");
    EXPECT_EQ(d.exitCode, kExitAdaptMaxElements);
    EXPECT_NE(d.message.find("about 1001 elements, more than --max-elements 1000"),
              std::string::npos)
        << d.message;
    EXPECT_EQ(DecideStop({Cycle(1, 0.3, 100, 1000)}, Options(0.05, 8, 1000)).reason, "");
}

TEST(AdaptStop, TheStopCodesDifferFromEachOtherAndFromTheOtherExits) {
    const int codes[] = {0,
                         kExitAdaptMaxCycles,
                         kExitAdaptMaxElements,
                         kExitAdaptStalled,
                         kExitUsage,
                         kExitDataError,
                         kExitNoInput,
                         kExitToolFailed,
                         kExitInternal,
                         kExitCannotWrite};
    for (std::size_t i = 0; i < std::size(codes); ++i) {
        for (std::size_t j = i + 1; j < std::size(codes); ++j)
            EXPECT_NE(codes[i], codes[j]);
        EXPECT_TRUE(codes[i] == 0 || codes[i] > 6) << codes[i] << " is a pass's result code";
    }
}

TEST(AdaptPrediction, AnElementOfTwiceTheSizeIsAQuarterOfAnElement) {
    // A unit square whose new size is 0.5: four squares of side 0.5, made by Gmsh from pairs of
    // equilateral triangles (area sqrt(3)/4 h^2 each).
    EXPECT_EQ(PredictElements({1.0}, {0.5}, false),
              static_cast<std::size_t>(std::llround(4.0 * 2.0 / std::sqrt(3.0))));
    EXPECT_EQ(PredictElements({1.0}, {0.5}, true),
              static_cast<std::size_t>(std::llround(4.0 * 4.0 / std::sqrt(3.0))));
    EXPECT_EQ(PredictElements({1.0, 3.0}, {1.0, 1.0}, false),
              static_cast<std::size_t>(std::llround(4.0 * 2.0 / std::sqrt(3.0))));
    // Elements without a size (NaN, 0) are left out rather than counted as infinitely many.
    EXPECT_EQ(PredictElements({1.0, 1.0}, {NAN, 0.0}, false), 0u);
}

TEST(AdaptGradation, SizesGrowByAtMostTheRatioFromTheSmallest) {
    const std::vector<std::array<std::size_t, 2>> chain = {{0, 1}, {1, 2}, {2, 3}};
    EXPECT_EQ(GradeSizes({1, 10, 10, 10}, chain, 2.0), (std::vector<double>{1, 2, 4, 8}));
    EXPECT_EQ(GradeSizes({10, 10, 10, 1}, chain, 2.0), (std::vector<double>{8, 4, 2, 1}));
    // Two small sizes: each node takes the tighter of the two limits.
    EXPECT_EQ(GradeSizes({1, 10, 10, 1}, chain, 3.0), (std::vector<double>{1, 3, 3, 1}));
    // A field that is already graded, or a ratio of 1 or less, stays as it is.
    EXPECT_EQ(GradeSizes({1, 1.5, 2, 3}, chain, 2.0), (std::vector<double>{1, 1.5, 2, 3}));
    EXPECT_EQ(GradeSizes({1, 10, 10, 10}, chain, 1.0), (std::vector<double>{1, 10, 10, 10}));
    // A node without size (no element) neither limits nor is limited.
    EXPECT_EQ(GradeSizes({0, 10, 1}, {{0, 1}, {1, 2}}, 2.0), (std::vector<double>{0, 2, 1}));
}

TEST(AdaptRecord, WritesAndReadsBackEveryCycleAndTheStop) {
    slabadapt::test::TempDir dir("adapt-record");
    AdaptHistory h;
    h.project = "floor \"A\"";
    h.target = 0.05;
    h.loadCases = {101, 102};
    h.cycles = {Cycle(1, 0.3), Cycle(2, 0.123456789012345)};
    h.stop = "max-cycles";
    h.stopMessage = "the global error is still above the target";
    h.exitCode = kExitAdaptMaxCycles;
    WriteHistory(dir.path(), h);
    EXPECT_THAT(slabadapt::test::TemporaryFilesIn(dir.path()), testing::IsEmpty());

    const AdaptHistory back = ReadHistory(dir.path());
    ASSERT_EQ(back.cycles.size(), 2u);
    EXPECT_EQ(back.cycles[1].globalError, 0.123456789012345); // digits that read back exactly
    EXPECT_EQ(back.cycles[1].elements, 100u);
    EXPECT_EQ(back.cycles[1].predictedNext, 400u);
    EXPECT_EQ(back.cycles[1].solveSeconds, 1.25);
    ASSERT_EQ(back.cycles[1].slabs.size(), 2u);
    EXPECT_EQ(back.cycles[1].slabs[1].slab, 2);
    EXPECT_EQ(back.cycles[1].slabs[0].maxLocalError, 2.0 * 0.123456789012345);
    EXPECT_EQ(back.stop, "max-cycles");
    EXPECT_EQ(back.exitCode, kExitAdaptMaxCycles);
    EXPECT_EQ(back.target, 0.05);

    const std::string json = slabadapt::test::ReadText(dir / "history.json");
    EXPECT_NE(json.find("\"cycles\": [\n  {\"cycle\": 1, \"elements\": 100, \"nodes\": 110, "
                        "\"global_error\": 0.29999999999999999"),
              std::string::npos)
        << json;
    EXPECT_NE(json.find("\"project\": \"floor \\\"A\\\"\""), std::string::npos) << json;
    EXPECT_NE(json.find("\"stop\": {\"reason\": \"max-cycles\""), std::string::npos) << json;
}

TEST(AdaptRecord, AMissingRecordHasNoCyclesAndADamagedOneIsNamed) {
    slabadapt::test::TempDir dir("adapt-record");
    EXPECT_TRUE(ReadHistory(dir / "none").cycles.empty());
    slabadapt::test::WriteText(dir / "history.csv", "cycle,elements\n");
    EXPECT_THROW(ReadHistory(dir.path()), std::runtime_error);
    AdaptHistory h;
    h.cycles = {Cycle(1, 0.3)};
    WriteHistory(dir.path(), h);
    std::string csv = slabadapt::test::ReadText(dir / "history.csv");
    csv.replace(csv.find("\n1,") + 1, 1, "x");
    slabadapt::test::WriteText(dir / "history.csv", csv);
    try {
        ReadHistory(dir.path());
        FAIL() << "a damaged record was read";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("history.csv:2: \"x\" is not a number"),
                  std::string::npos)
            << e.what();
    }
}

TEST(AdaptRecord, CyclesMustFollowOneAnother) {
    slabadapt::test::TempDir dir("adapt-record");
    AdaptHistory h;
    h.cycles = {Cycle(1, 0.3), Cycle(3, 0.2)};
    WriteHistory(dir.path(), h);
    EXPECT_THROW(ReadHistory(dir.path()), std::runtime_error);
}

TEST(AdaptReport, IsOnePageWithThePlotTheTableAndNothingFetched) {
    slabadapt::test::TempDir dir("adapt-report");
    AdaptHistory h;
    h.project = "a<b>";
    h.target = 0.05;
    h.loadCases = {1};
    h.cycles = {Cycle(1, 0.3, 100), Cycle(2, 0.1, 400), Cycle(3, 0.04, 1600)};
    h.stop = "target";
    h.stopMessage = "the global error 4.00 % is within the target 5 % after 3 cycles";
    WriteReport(dir.path(), h, "p");
    const std::string page = slabadapt::test::ReadText(dir / "report.html");
    EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u);
    EXPECT_NE(page.find("<title>Adaptive analysis of a&lt;b&gt;</title>"), std::string::npos);
    EXPECT_NE(page.find("<svg id=\"convergence\""), std::string::npos);
    EXPECT_NE(page.find("class=\"target\""), std::string::npos);
    EXPECT_EQ(page.find("<circle"), page.find("<circle cx=")); // one marker per cycle
    std::size_t markers = 0;
    for (auto at = page.find("<circle"); at != std::string::npos; at = page.find("<circle", at + 1))
        ++markers;
    EXPECT_EQ(markers, 3u);
    EXPECT_NE(page.find("<td>3</td><td>1600</td><td>1610</td><td>4.00 %</td>"), std::string::npos)
        << page;
    EXPECT_NE(page.find("Stopped: the global error 4.00 % is within the target"),
              std::string::npos);
    // Without the cycles' files the pictures say so instead of failing.
    EXPECT_NE(page.find("first mesh, cycle 1: its files cannot be read"), std::string::npos);
    for (const char* outside : {"<script", "http://www.w3.org/1999", "https:", "<link", "src="})
        EXPECT_EQ(page.find(outside), std::string::npos) << outside;
}

TEST(AdaptReport, ARecordWithoutACompleteCycleSaysSo) {
    slabadapt::test::TempDir dir("adapt-report");
    AdaptHistory h;
    h.project = "p";
    h.target = 0.05;
    h.stop = "failed";
    h.stopMessage = "ccx failed";
    WriteReport(dir.path(), h, "p");
    const std::string page = slabadapt::test::ReadText(dir / "report.html");
    EXPECT_NE(page.find("No cycle is complete yet."), std::string::npos);
    EXPECT_NE(page.find("Stopped: ccx failed."), std::string::npos);
}

TEST(ExternalTool, FindsProgramsOnThePathAndRunsThemInAFolderWithALog) {
    slabadapt::test::TempDir dir("tool");
    EXPECT_FALSE(FindProgram("sh").empty());
    EXPECT_TRUE(FindProgram("no-such-program-slabadapt").empty());
    EXPECT_TRUE(FindProgram("/no/such/program").empty());
    EXPECT_EQ(RunProgram({"sh", "-c", "pwd; echo oops >&2; exit 3"}, dir.path(), dir / "log"), 3);
    const std::string log = slabadapt::test::ReadText(dir / "log");
    EXPECT_NE(log.find(std::filesystem::canonical(dir.path()).string()), std::string::npos) << log;
    EXPECT_NE(log.find("oops"), std::string::npos) << log;
    EXPECT_EQ(RunProgram({"no-such-program-slabadapt"}, dir.path(), dir / "log"), 127);
    EXPECT_EQ(RunProgram({"sh", "-c", "kill -TERM $$"}, dir.path(), dir / "log"), 128 + 15);
}

} // namespace
