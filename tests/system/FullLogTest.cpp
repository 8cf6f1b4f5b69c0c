#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "support/SandboxDescriptor.h"
#include "system/SystemLogFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::ElementsAre;

/// The log is there, and takes no more lines because nobody reads it.
class FullLogTest : public LogTroubleTest {
protected:
    static constexpr const char* Filling = "filling";

    static std::int64_t Now() { return std::time(nullptr) * std::int64_t{1'000'000'000}; }

    /// Has the log read no longer and fills it, so that whoever writes to it has to wait.
    void FillLog() {
        sandbox->StopReadingLog();
        while (WriteToLog()) {  // one of them may write no more although there is room
        }
    }

    /// Whether the heartbeat has stood still for longer than any pause of the daemon.
    bool IsHeldUp() const { return SecondsBetween(TimeOf(ChildHeartbeat), Now()) > 7; }

    /// Has the load of a running daemon wait with a line for a log that nobody reads.
    void HoldUpALoad() {
        ASSERT_TRUE(WaitForTraces("beside", 1));
        FillLog();
        Configure(Configuration(Marker("loaded") + Beside()));
        ASSERT_TRUE(WaitUntil([&] { return IsHeldUp(); }, Generous));
    }

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

    /// Expects the daemon to end by itself, a long time before the log is read again.
    void ExpectEnd() {
        EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
        sandbox->ReadLogAgain();
    }

    std::vector<std::string> LinesButFilling() const {
        std::vector<std::string> lines;
        for (const std::string& line : Lines()) {
            if (line.find(Filling) == std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    }

private:
    /// Writes as much as one sender can without waiting. Returns whether it was anything.
    bool WriteToLog() const {
        const Descriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        sandbox->PathInside("/dev/log").copy(address.sun_path, sizeof address.sun_path - 1);
        const auto* const log = reinterpret_cast<const sockaddr*>(&address);
        if (connect(sender.Get(), log, sizeof address) != 0) {
            ADD_FAILURE() << "cannot reach the log: " << std::strerror(errno);
            return false;
        }
        bool any = false;
        while (send(sender.Get(), Filling, std::strlen(Filling), MSG_DONTWAIT) > 0) {
            any = true;
        }
        EXPECT_EQ(errno, EAGAIN);
        return any;
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

TEST_F(FullLogTest, DoesNotKeepTheForegroundFromItsEnd) {
    Configure(Configuration(Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("beside", 1));
    FillLog();

    ASSERT_TRUE(daemon->Signal(SIGTERM));

    ExpectEnd();
}

TEST_F(FullLogTest, ThatHoldsUpAJobDoesNotKeepTheForegroundFromItsEnd) {
    ConfigureLoggingAndSilentJob();
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 1));
    FillLog();
    ExpectSilentJobAtWork();  // by then the other one waits

    ASSERT_TRUE(daemon->Signal(SIGTERM));

    ExpectEnd();
}

// The log is the C library's, which begins again whenever a signal interrupts it.
TEST_F(FullLogTest, ThatHoldsUpALoadHoldsUpTheEndOfTheForegroundToo) {
    Configure(Configuration(Beside()));
    StartDaemon();
    ASSERT_NO_FATAL_FAILURE(HoldUpALoad());
    ASSERT_TRUE(daemon->Signal(SIGTERM));
    ASSERT_FALSE(EndOfDaemon(std::chrono::seconds(7)));

    sandbox->ReadLogAgain();

    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_THAT(LinesButFilling(), ElementsAre(Loaded("loaded"), Exit(0)));
}

TEST_F(FullLogTest, ThatHoldsUpALoadDoesNotKeepATreeFromItsEnd) {
    Configure(Configuration(Beside()));
    StartTrees({}, MainTree);
    ASSERT_NO_FATAL_FAILURE(HoldUpALoad());

    SendTo("P ", SIGTERM);

    EXPECT_TRUE(WaitUntilOnly({}));
}

TEST_F(FullLogTest, DoesNotKeepATreeFromItsEnd) {
    ConfigureLoggingAndSilentJob();
    StartTrees({"-w"}, BothTrees);
    ASSERT_TRUE(WaitForTraces("remedy", 1));
    FillLog();
    ExpectSilentJobAtWork();

    SendTo("P ", SIGTERM);
    SendTo("WP", SIGTERM);

    EXPECT_TRUE(WaitUntilOnly({}));
}

}  // namespace kennly::test
