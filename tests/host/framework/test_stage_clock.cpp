// The stage marks a pass leaves: in order, taken once, bounded when nobody takes them.
#include "host/framework/stage_clock.h"

#include <gtest/gtest.h>

namespace {

using host::framework::MarkStage;
using host::framework::TakeStageMarks;

TEST(StageClock, MarksComeBackInOrderOnceWithTimeAndMemory) {
    TakeStageMarks();
    MarkStage("a");
    MarkStage("b");
    const auto marks = TakeStageMarks();
    ASSERT_EQ(marks.size(), 2u);
    EXPECT_EQ(marks[0].name, "a");
    EXPECT_EQ(marks[1].name, "b");
    EXPECT_LE(marks[0].seconds, marks[1].seconds);
    EXPECT_GT(marks[1].peakMegabytes, 0.0);
    EXPECT_TRUE(TakeStageMarks().empty());
}

TEST(StageClock, MarksNobodyTakesStayBounded) {
    TakeStageMarks();
    for (int i = 0; i < 100000; ++i)
        MarkStage("saving");
    MarkStage("last");
    const auto marks = TakeStageMarks();
    EXPECT_LE(marks.size(), 4096u);
    EXPECT_EQ(marks.back().name, "last");
}

TEST(StageClock, AnObserverSeesEachMarkAsItComes) {
    std::vector<std::string> seen;
    auto previous = host::framework::SetStageObserver(
        [&](const host::framework::StageMark& m) { seen.push_back(m.name); });
    MarkStage("x");
    MarkStage("y");
    host::framework::SetStageObserver(std::move(previous));
    MarkStage("z");
    TakeStageMarks();
    EXPECT_EQ(seen, (std::vector<std::string>{"x", "y"}));
}

} // namespace

namespace {

TEST(StageClock, ProgressIsTheStagesOwnAndNeverBeyondItsTotal) {
    using host::framework::CurrentProgress;
    using host::framework::MarkProgress;
    host::framework::MarkStage("reading");
    EXPECT_EQ(CurrentProgress().total, 0u); // nothing said yet
    MarkProgress(45, 100);
    EXPECT_EQ(CurrentProgress().done, 45u);
    EXPECT_EQ(CurrentProgress().total, 100u);
    MarkProgress(130, 100); // a file that grew while it was read, say
    EXPECT_EQ(CurrentProgress().done, 100u);
    host::framework::MarkStage("storing"); // a new stage starts from nothing
    EXPECT_EQ(CurrentProgress().done, 0u);
    EXPECT_EQ(CurrentProgress().total, 0u);
    host::framework::TakeStageMarks();
}

} // namespace
