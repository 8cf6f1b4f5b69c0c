#include "support/Sanitizers.h"
#include "support/TracedProcess.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

class RoleTest : public DaemonTest {
protected:
    /// The number outside of the one process with the program's name, 0 while there is none.
    pid_t FindDaemon() const {
        for (const pid_t process : sandbox->Processes()) {
            if (ProcessFile(process, "comm") == "kennly\n") {
                return process;
            }
        }
        return 0;
    }

    /// Expects the dispositions of a child: SIGTERM alone ends it.
    void ExpectChildSignals() const {
        for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2}) {
            EXPECT_TRUE(Ignores(daemon->Pid(), signal)) << strsignal(signal);
            EXPECT_EQ(kill(daemon->Pid(), signal), 0);
        }
        EXPECT_TRUE(HasSignal(StatusField(daemon->Pid(), "SigCgt"), SIGTERM));
        EXPECT_TRUE(
            WaitForHeartbeatOfEither(TimeOf(ChildHeartbeat) + TimeOf(WatcherChildHeartbeat)));
    }

    bool WaitForHeartbeatOfEither(std::int64_t times) const {
        return WaitUntil(
            [&] { return TimeOf(ChildHeartbeat) + TimeOf(WatcherChildHeartbeat) > times; },
            Generous);
    }
};

TEST_F(RoleTest, IsToldByOptionsTagConfigurationHeartbeatAndSignals) {
    struct Row {
        std::vector<std::string> options;
        const char* tag;
        const char* marker;
        std::string heartbeat;
        std::string otherHeartbeat;
        bool isChild;
    };
    const std::vector<Row> rows = {
        {{"-f"}, "  ", "main", ChildHeartbeat, WatcherChildHeartbeat, false},
        {{"-Z"}, "C ", "main", ChildHeartbeat, WatcherChildHeartbeat, true},
        {{"-f", "-Z"}, "  ", "main", ChildHeartbeat, WatcherChildHeartbeat, true},
        {{"-w", "-Z"}, "C ", "main", ChildHeartbeat, WatcherChildHeartbeat, true},
        {{"-W", "-Z"}, "WC", "watcher", WatcherChildHeartbeat, ChildHeartbeat, true},
        {{"-f", "-W"}, "  ", "watcher", WatcherChildHeartbeat, ChildHeartbeat, false},
        {{"-Wx", "-fast"}, "  ", "watcher", WatcherChildHeartbeat, ChildHeartbeat, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.options));
        SetUp();
        Configure(Configuration(Marker("main")), MainConfiguration);
        Configure(Configuration(Marker("watcher")), WatcherConfiguration);
        tag = row.tag;

        StartDaemon(row.options);

        EXPECT_TRUE(WaitForLine(Loaded(row.marker)));
        EXPECT_TRUE(WaitUntil([&] { return TimeOf(row.heartbeat) > 0; }, Generous));
        EXPECT_FALSE(sandbox->FileExists(row.otherHeartbeat));
        for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2}) {
            EXPECT_EQ(Ignores(daemon->Pid(), signal), row.isChild) << strsignal(signal);
        }
        StopDaemon();
        EXPECT_THAT(Lines(), ElementsAre(Loaded(row.marker), Exit(0)));
    }
}

TEST_F(RoleTest, OfAChildLetsNoSignalButSIGTERMEndIt) {
    Configure(Configuration(Marker("loaded")));
    tag = "C ";
    StartDaemon({"-Z"});
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));

    ExpectChildSignals();

    StopDaemon();
}

TEST_F(RoleTest, OfAChildEndsWithItsParent) {
    Configure(Configuration(Marker("loaded")));
    tag = "C ";
    StartOptions start;
    start.environment = {NoLeakSearch};
    auto parent = sandbox->Start({"sh", "-c", KENNLY_PROGRAM " -Z & wait"}, start);
    ASSERT_TRUE(WaitUntil([this] { return FindDaemon() > 0; }, Generous));
    const pid_t child = FindDaemon();
    number = NumberInside(child);
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));
    TracedProcess traced(child);

    ASSERT_TRUE(parent->Signal(SIGKILL));

    // At the latest after the pause that follows a load.
    EXPECT_EQ(traced.WaitForEnd(std::chrono::seconds(9)), std::optional<int>(0));
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_THAT(Lines(), ElementsAre(Loaded("loaded"), Exit(0)));
}

TEST_F(RoleTest, OfAForegroundProcessDoesNotEndWithItsStarter) {
    Configure(Configuration(Marker("loaded")));
    auto parent = sandbox->Start({"sh", "-c", KENNLY_PROGRAM " -f & wait"});
    ASSERT_TRUE(WaitUntil([this] { return FindDaemon() > 0; }, Generous));
    const pid_t orphan = FindDaemon();
    number = NumberInside(orphan);
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));

    ASSERT_TRUE(parent->Signal(SIGKILL));
    ASSERT_TRUE(parent->WaitForEnd(Generous));

    const std::int64_t beat = TimeOf(ChildHeartbeat);
    ASSERT_TRUE(WaitForHeartbeat(beat + 1000000000));
    ASSERT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat) + 500000000));
    ASSERT_EQ(kill(orphan, SIGTERM), 0);
    EXPECT_TRUE(WaitForLine(Exit(0)));
}

}  // namespace kennly::test
