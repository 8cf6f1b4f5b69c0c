#include "system/DaemonFixture.h"

namespace kennly::test {

class BrokenFileTest : public DaemonTest {
protected:
    std::string TooManyErrors() const {
        return Error("watchdog closing down as there have been too many load config errors");
    }

    std::size_t ParseErrors() const {
        return ArrivalsOf(Error("Configuration file parse error")).size();
    }

    /// How often all threads but the first have gone to sleep by now.
    long SleepsOfWorkers() const {
        long sleeps = 0;
        const auto counts = StatusFieldOfThreads(daemon->Pid(), "voluntary_ctxt_switches");
        for (const auto& [thread, count] : counts) {
            if (thread != daemon->Pid() && !count.empty()) {
                sleeps += std::stol(count);
            }
        }
        return sleeps;
    }

    static std::string JobThatTraces(const std::string& name) {
        return Job(name, Check(Note(name) + "; true") + Remedy("true"));
    }
};

TEST_F(BrokenFileTest, RunsNoCommandWhileTheFileIsBrokenAndRecoversOnceItIsRepaired) {
    Configure(Configuration(JobThatTraces("first"), "maxloaderrors=\"100\""));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("first", 1));

    Configure("<kennly><job name=\"first\"");
    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error")));
    const std::size_t count = TracesOf("first").size();
    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error"), 3));
    EXPECT_LE(TracesOf("first").size(), count + 1);  // one may have been about to start

    Configure(Configuration(JobThatTraces("second") + Marker("repaired")));
    EXPECT_TRUE(WaitForLine(Loaded("repaired")));
    EXPECT_TRUE(WaitForTraces("second", 2));
    StopDaemon();
}

TEST_F(BrokenFileTest, KeepsTheThreadsOfTheJobsInTheirCycleWhileTheFileIsBroken) {
    Configure(Configuration(JobThatTraces("first"), "maxloaderrors=\"100\""));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("first", 1));

    Configure("<broken");

    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error"), 2));
    const long sleeps = SleepsOfWorkers();
    EXPECT_TRUE(WaitUntil([&] { return SleepsOfWorkers() >= sleeps + 10; }, Generous));
    EXPECT_EQ(Threads(), 4);
    StopDaemon();
}

TEST_F(BrokenFileTest, CountsOnlyErrorsInARow) {
    Configure(Configuration(Marker("first"), "maxloaderrors=\"2\""));
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Loaded("first")));
    Configure("<broken");
    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error")));
    Configure(Configuration(Marker("second")));  // there are four seconds until the third error
    ASSERT_TRUE(WaitForLine(Loaded("second")));
    const std::size_t errors = ParseErrors();

    Configure("<broken");

    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_EQ(ParseErrors(), errors + 3);
    EXPECT_EQ(Lines().at(Lines().size() - 2), TooManyErrors());
}

}  // namespace kennly::test
