#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::SizeIs;

using CycleTest = DaemonTest;

TEST_F(CycleTest, ChecksAtOnceAndThenAfterEachCheckDelay) {
    Configure(Configuration(
        Job("slow", Check(Note("slow") + "; true", "delay=\"600\"") + Remedy("true")) +
        Job("quick", Check(Note("quick") + "; true", "delay=\"3\"") + Remedy("true"))));

    StartDaemon();

    ASSERT_TRUE(WaitForTraces("quick", 3));
    const std::vector<std::int64_t> times = TracesOf("quick");
    EXPECT_LT(SecondsBetween(started, Clock::now()), Allowing(15));
    for (std::size_t index = 1; index < times.size(); ++index) {
        EXPECT_GE(SecondsBetween(times[index - 1], times[index]), 3);
        EXPECT_LT(SecondsBetween(times[index - 1], times[index]), Allowing(6));
    }
    EXPECT_THAT(TracesOf("slow"), SizeIs(1));
    StopDaemon();
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

TEST_F(CycleTest, StartsTheRemedyAfterItsDelay) {
    Configure(Configuration(
        Job("late",
            Check(Note("check") + "; exit 1") + Remedy(NoteInShell("remedy"), "delay=\"3\"")) +
        Job("early", Check("exit 1", "delay=\"600\"") + Remedy("true", "delay=\"-1\""))));

    StartDaemon();

    ASSERT_TRUE(WaitForTraces("remedy", 2));
    const std::vector<std::int64_t> checks = TracesOf("check");
    const std::vector<std::int64_t> remedies = TracesOf("remedy");
    for (std::size_t index = 0; index < 2; ++index) {
        EXPECT_GE(SecondsBetween(checks.at(index), remedies.at(index)), 3);
        EXPECT_LT(SecondsBetween(checks.at(index), remedies.at(index)), Allowing(8));
    }
    const auto early = ArrivalsOf(RemedyRuns("early", "true"));
    ASSERT_THAT(early, SizeIs(1));
    EXPECT_LT(SecondsBetween(started, early.front()), Allowing(10));
    StopDaemon();
}

TEST_F(CycleTest, KeepsSilentAboutHealthyJobs) {
    Configure(Configuration(Job("good", Check(Note("good") + "; true") + Remedy("false"))));

    StartDaemon();

    EXPECT_TRUE(WaitForTraces("good", 4));
    StopDaemon();
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

TEST_F(CycleTest, HoldsAJobUpWhileTheCheckOfAnotherRuns) {
    Configure(Configuration(Job("long", Check("sleep 5", "delay=\"600\"") + Remedy("true")) +
                            Job("short", Check("sleep 0.5; exit 1") + Remedy("true"))));

    StartDaemon();

    ASSERT_TRUE(WaitForLine(RemedyRuns("short", "true")));
    const double waited = SecondsBetween(started, ArrivalsOf(RemedyRuns("short", "true")).front());
    EXPECT_GE(waited, 5);
    EXPECT_LT(waited, Allowing(10));
    StopDaemon();
}

}  // namespace kennly::test
