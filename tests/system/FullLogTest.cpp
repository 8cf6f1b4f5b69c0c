#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>

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

    /// Has the log read no longer and fills it, so that whoever writes to it has to wait.
    void FillLog() {
        sandbox->StopReadingLog();
        while (WriteToLog()) {  // one of them may write no more although there is room
        }
    }

    /// Whether the heartbeat has stood still for longer than any pause of the daemon.
    bool IsHeldUp() const {
        const std::int64_t now = std::time(nullptr) * std::int64_t{1'000'000'000};
        return SecondsBetween(TimeOf(ChildHeartbeat), now) > 7;
    }

    /// Has the load of a running daemon wait with a line for a log that nobody reads.
    void HoldUpALoad() {
        ASSERT_TRUE(WaitForTraces("beside", 1));
        FillLog();
        Configure(Configuration(Marker("loaded") + Beside()));
        ASSERT_TRUE(WaitUntil([&] { return IsHeldUp(); }, Generous));
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

TEST_F(FullLogTest, HoldsUpWhoWritesAndNobodyElseAndLosesNothing) {
    ConfigureLoggingAndSilentJob();
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 1));

    FillLog();

    ExpectSilentJobAtWork();
    ASSERT_TRUE(WaitUntilNoCommandRuns());
    const std::size_t remedies = TracesOf("remedy").size();
    ExpectSilentJobAtWork();
    EXPECT_EQ(TracesOf("remedy").size(), remedies);  // its line comes before the remedy
    sandbox->ReadLogAgain();
    EXPECT_TRUE(WaitForTraces("remedy", remedies + 2));
    StopDaemon();
    EXPECT_TRUE(WaitForTraces("remedy", Announcements() - 1));  // the end may come before the last
    EXPECT_THAT(LinesButFilling(), Each(AnyOf(Announced(), Exit(0))));
}

TEST_F(FullLogTest, HoldsUpALoadUntilItIsReadAgain) {
    Configure(Configuration(Beside()));
    StartDaemon();
    ASSERT_NO_FATAL_FAILURE(HoldUpALoad());

    sandbox->ReadLogAgain();

    EXPECT_TRUE(WaitForLine(Loaded("loaded")));
    ExpectSilentJobAtWork();
    StopDaemon();
    EXPECT_THAT(LinesButFilling(), ElementsAre(Loaded("loaded"), Exit(0)));
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
