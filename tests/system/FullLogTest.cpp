#include <algorithm>
#include <functional>

#include "system/FullLogFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::ElementsAre;

/// What a log that nobody reads holds up.
class FullLogTest : public FullLogFixture {
protected:
    std::int64_t LastTrace(const std::string& name) const {
        const std::vector<std::int64_t> traces = TracesOf(name);
        return traces.empty() ? 0 : traces.back();
    }

    /// Waits until a command has left no trace for much longer than any cycle takes, up to the time
    /// that `sign` tells of something that goes on.
    bool WaitForStandstill(const std::string& trace, const std::function<std::int64_t()>& sign) {
        return WaitUntil([&] { return SecondsBetween(LastTrace(trace), sign()) > 10; },
                         std::chrono::seconds(120));
    }
    /// Waits for that while the silent job and the heartbeat go on.
    bool WaitForStandstillOf(const std::string& trace) {
        return WaitForStandstill(
            trace, [&] { return std::min(LastTrace("beside"), TimeOf(ChildHeartbeat)); });
    }

    /// Expects, now that the log is read again, that all goes on, each line and each remedy has
    /// come and no line but these.
    void ExpectNothingLost(const ::testing::Matcher<std::string>& line) {
        EXPECT_TRUE(WaitForMoreTraces("remedy", 2));
        EXPECT_TRUE(WaitForMoreTraces("beside", 1));
        StopDaemon();
        EXPECT_TRUE(WaitForTraces("remedy", Announcements() - 1));  // the end may come before one
        EXPECT_GE(Announcements(), TracesOf("remedy").size());
        EXPECT_THAT(LinesButFilling(), Each(line));
    }
};

TEST_F(FullLogTest, HoldsUpAJobThatTellsOfItsRemedyAndNoneThatIsHealthy) {
    ConfigureLoggingAndSilentJob();
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 1));

    FillLog();

    EXPECT_TRUE(WaitForStandstillOf("remedy"));  // its line comes before it
    sandbox->ReadLogAgain();
    ExpectNothingLost(AnyOf(Announced(), Exit(0)));
}

// A cycle goes on once no job has a remedy pending, whosever it is.
TEST_F(FullLogTest, HoldsUpEachJobThatFailsWhileAnotherTellsOfItsRemedy) {
    const std::string well = PathOf("well");
    ASSERT_TRUE(sandbox->WriteFile(well, ""));
    const std::string unannounced =
        Job("unannounced", Check("test -e " + well, "delay=\"1\"") +
                               Remedy(NoteInShell("unannounced"), "", "ExecuteAlways"));
    Configure(Configuration(LoggingJob() + unannounced + Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 1));
    FillLog();
    ASSERT_TRUE(WaitForStandstillOf("remedy"));

    ASSERT_TRUE(sandbox->RemoveFile(well));

    ASSERT_TRUE(WaitForTraces("unannounced", 1));
    EXPECT_TRUE(WaitForStandstillOf("unannounced"));
    EXPECT_EQ(TracesOf("unannounced").size(), 1U);
    sandbox->ReadLogAgain();
    EXPECT_TRUE(WaitForTraces("unannounced", 3));
    ExpectNothingLost(AnyOf(Announced(), Exit(0)));
}

TEST_F(FullLogTest, HoldsUpAllJobsAndNoHeartbeatWhileACheckTellsOfAnError) {
    const std::string complaint =
        "check error - DogCheckCommandWatch::DoWatch() no command!! complaining";
    const std::string complaining = Job("complaining", Check("", "delay=\"1\"") + Remedy("true"));
    Configure(Configuration(complaining + LoggingJob() + Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 1));
    ASSERT_TRUE(WaitForTraces("beside", 1));

    FillLog();

    EXPECT_TRUE(WaitForStandstill("beside", [&] { return TimeOf(ChildHeartbeat); }));
    const std::size_t complaints = ArrivalsOf(Error(complaint)).size();
    sandbox->ReadLogAgain();
    EXPECT_TRUE(WaitForLine(Error(complaint), complaints + 3));
    ExpectNothingLost(AnyOf(Error(complaint), Announced(), Exit(0)));
}

TEST_F(FullLogTest, HoldsUpALoadAndWithItAllJobsAndTheHeartbeat) {
    Configure(Configuration(Beside()));
    StartDaemon();
    ASSERT_NO_FATAL_FAILURE(HoldUpALoad());

    EXPECT_TRUE(WaitForStandstill("beside", Now));
    EXPECT_TRUE(IsHeldUp());

    sandbox->ReadLogAgain();
    EXPECT_TRUE(WaitForLine(Loaded("loaded")));
    ExpectSilentJobAtWork();
    StopDaemon();
    EXPECT_THAT(LinesButFilling(), ElementsAre(Loaded("loaded"), Exit(0)));
}

// The new pool has to wait for the end of the old one.
TEST_F(FullLogTest, ThatHoldsUpAJobHoldsUpAReloadThatHasNothingToTell) {
    ConfigureLoggingAndSilentJob();
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 1));
    FillLog();
    ASSERT_TRUE(WaitForStandstillOf("remedy"));
    const std::size_t remedies = TracesOf("remedy").size();

    Configure(Configuration(Beside()));

    EXPECT_TRUE(WaitUntil([&] { return IsHeldUp(); }, Generous));
    EXPECT_TRUE(WaitForStandstill("beside", Now));
    sandbox->ReadLogAgain();
    EXPECT_TRUE(WaitForTraces("remedy", remedies + 1));  // the one that has waited
    ExpectSilentJobAtWork();
    StopDaemon();
    EXPECT_EQ(Announcements(), remedies + 1);
    EXPECT_THAT(LinesButFilling(), Each(AnyOf(Announced(), Exit(0))));
}

}  // namespace kennly::test
