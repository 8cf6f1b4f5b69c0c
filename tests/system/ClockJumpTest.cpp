#include "system/FaultFixture.h"

namespace kennly::test {

/// The clock is set while the daemon runs.
class ClockJumpTest : public FaultTest {
protected:
    static constexpr std::int64_t Hour = 3600;
    static constexpr std::int64_t Year = 365 * 24 * Hour;

    /// Sets the daemon's clock so many seconds ahead of the machine's.
    void SetClock(std::int64_t ahead) { PutFile(ClockShiftPath, 0, std::to_string(ahead) + "\n"); }

    bool WaitForMoreRemedies() const { return WaitForRemedies("web", RemediesOf("web") + 2); }

    /// Whether none runs while the job beside goes on; one may still have been under way.
    bool WaitForRemediesToEnd() const {
        return WaitUntil(
            [&] {
                const std::size_t count = RemediesOf("web");
                return WaitForMoreTraces("beside", 4) && RemediesOf("web") == count;
            },
            Generous);
    }

    /// The seconds that its threads have been running, and not waiting, since it was started.
    double BusySeconds() const {
        std::istringstream fields(ProcessFile(daemon->Pid(), "stat"));
        fields.ignore(1000, ')');  // the name, which may contain blanks
        std::string skipped;
        for (int field = 3; field < 14; ++field) {
            fields >> skipped;
        }
        double user = 0;
        double system = 0;
        fields >> user >> system;
        return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
};

TEST_F(ClockJumpTest, ChangesTheAgeOfFilesAndNothingElse) {
    PutFile(PathOf("watched"), std::time(nullptr));
    Configure(
        Configuration(Job("web", CheckOfType("CheckForNoFileChange", {PathOf("watched"), "1800"}) +
                                     Remedy("true")) +
                      Beside()));
    StartFaultyDaemon();
    ASSERT_TRUE(WaitForTraces("beside", 3));
    EXPECT_EQ(RemediesOf("web"), 0U);

    for (const std::int64_t ahead : {Hour, 20 * Year}) {
        SCOPED_TRACE(ahead);
        SetClock(ahead);
        EXPECT_TRUE(WaitForMoreRemedies());
        SetClock(-ahead);
        EXPECT_TRUE(WaitForRemediesToEnd());
    }
    SetClock(Hour);
    EXPECT_TRUE(WaitForMoreRemedies());

    const std::vector<std::int64_t> traces = TracesOf("beside");
    EXPECT_GE(SecondsBetween(traces.front(), traces.back()),
              static_cast<double>(traces.size()) - 2);
    EXPECT_LT(BusySeconds(), SecondsBetween(started, Clock::now()) / 2);
    EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
    ExpectRecovery();
    SetClock(-20 * Year);
    StopDaemon(Generous);
}

}  // namespace kennly::test
