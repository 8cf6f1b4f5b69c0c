#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::Contains;

class EndTest : public DaemonTest {
protected:
    void Signal(int signal) {
        ASSERT_TRUE(daemon->Signal(signal));
        EXPECT_EQ(EndOfDaemon(Prompt), std::optional<int>(0));
        EXPECT_TRUE(WaitForLine(Exit(0)));
    }

    const std::vector<int> endingSignals = {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR1, SIGUSR2};
};

TEST_F(EndTest, FollowsEachEndingSignalDuringThePauseAfterALoad) {
    Configure(Configuration(Marker("loaded")));
    for (const int signal : endingSignals) {
        SCOPED_TRACE(strsignal(signal));
        StartDaemon();
        ASSERT_TRUE(WaitForLine(Loaded("loaded")));

        Signal(signal);
    }
}

TEST_F(EndTest, FollowsEachEndingSignalDuringTheLongPauseOfAJob) {
    Configure(Configuration(
        Job("web",
            Check("touch " + DataDirectory + "/checked; true", "delay=\"600\"") + Remedy("true")) +
        Job("lan", Check("false", "delay=\"600\"") + Remedy("true", "delay=\"600\""))));
    for (const int signal : endingSignals) {
        SCOPED_TRACE(strsignal(signal));
        StartDaemon();
        ASSERT_TRUE(WaitUntil([this] { return sandbox->FileExists(DataDirectory + "/checked"); },
                              Generous));
        ASSERT_TRUE(WaitUntilNoCommandRuns());

        Signal(signal);

        sandbox->RemoveFile(DataDirectory + "/checked");
    }
}

TEST_F(EndTest, DoesNotWaitForACheckThatRuns) {
    Configure(Configuration(Job("web", Check(Note("check") + "; sleep 1000") + Remedy("true")) +
                            Job("lan", Check("false") + Remedy("true"))));
    for (const int signal : {SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
        SCOPED_TRACE(strsignal(signal));
        StartDaemon();
        ASSERT_TRUE(WaitForTraces("check", 1));

        Signal(signal);

        sandbox->RemoveFile(TracePath("check"));
    }
}

TEST_F(EndTest, DoesNotWaitForAReloadThatWaitsForACheck) {
    Configure(Configuration(Job("web", Check(Note("check") + "; sleep 1000") + Remedy("true"))));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("check", 1));
    Configure(Configuration(Marker("reload")));
    ASSERT_TRUE(WaitForLine(Loaded("reload")));
    // No beats come any more, because the old job is waited for. Nor do they after a complete load,
    // but then there would be one thread only.
    const auto isLate = [this] {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return now - std::chrono::nanoseconds(TimeOf(ChildHeartbeat)) > std::chrono::seconds(2);
    };
    ASSERT_TRUE(WaitUntil(isLate, Generous));
    ASSERT_GT(Threads(), 1);

    Signal(SIGTERM);
}

TEST_F(EndTest, DoesNotWaitForAReloadThatWaitsForThePauseOfAJob) {
    Configure(Configuration(
        Job("web", Check(Note("check") + "; true", "delay=\"-1\"") + Remedy("true"))));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("check", 1));
    Configure(Configuration(Marker("reload")));
    ASSERT_TRUE(WaitForLine(Loaded("reload")));
    const std::int64_t loaded = TimeOf(ChildHeartbeat);
    ASSERT_FALSE(WaitUntil([&] { return TimeOf(ChildHeartbeat) > loaded + 2000000000; },
                           std::chrono::seconds(6)));
    ASSERT_GT(Threads(), 1);

    Signal(SIGTERM);
}

TEST_F(EndTest, DoesNotFollowABrokenPipe) {
    Configure(Configuration(Marker("loaded")));
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));
    ASSERT_TRUE(Ignores(daemon->Pid(), SIGPIPE));

    ASSERT_TRUE(daemon->Signal(SIGPIPE));

    EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
    StopDaemon();
}

TEST_F(EndTest, LeavesARunningCommandAlone) {
    Configure(Configuration(Job("web", Check("sleep 1000") + Remedy("true"))));
    StartDaemon();
    ASSERT_TRUE(WaitUntil([this] { return sandbox->Processes().size() >= 2; }, Generous));

    StopDaemon();

    std::vector<std::string> names;
    for (const pid_t process : sandbox->Processes()) {
        names.push_back(ProcessFile(process, "cmdline"));
    }
    EXPECT_THAT(names, Contains(::testing::HasSubstr("sleep")));
}

}  // namespace kennly::test
