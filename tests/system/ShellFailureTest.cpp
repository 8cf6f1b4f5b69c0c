#include <cerrno>

#include "support/Lanes.h"
#include "system/FaultFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;

/// No shell can be started for a command.
class ShellFailureTest : public FaultTest {
public:
    void StartWithFailingJob(const std::string& remedy) {
        announcement = "web check failed - running remedy: " + remedy;
        Configure(
            Configuration(Job("web", Check(Command(), "delay=\"1\"") + Remedy(remedy)) + Beside()));
        StartFaultyDaemon();
    }

    void ExpectFailuresOfChecks(int error) {
        ASSERT_TRUE(WaitForLine(Announced()));
        Fail(Fault("system", error, "absent"));
        ASSERT_TRUE(WaitForLine(Reported(error)));
        const std::size_t remedies = ArrivalsOf(Announced()).size();
        EXPECT_TRUE(WaitForLine(Reported(error), 3));
        EXPECT_TRUE(WaitForMoreTraces("beside", 2));
        EXPECT_EQ(ArrivalsOf(Announced()).size(), remedies);

        FailNoLonger();
        EXPECT_TRUE(WaitForLine(Announced(), remedies + 2));
        ExpectRecovery();
        StopDaemon();
        EXPECT_THAT(Lines(), Each(AnyOf(Announced(), Reported(error), Exit(0))));
    }

    void ExpectFailuresOfRemedies(int error) {
        ASSERT_TRUE(WaitForTraces("remedy", 1));
        Fail(Fault("system", error, "nohup"));
        ASSERT_TRUE(WaitForMoreFailures("system", "nohup", 1));
        ASSERT_TRUE(WaitUntilNoCommandRuns());  // the last remedy that was started
        const std::size_t traces = TracesOf("remedy").size();
        EXPECT_TRUE(WaitForLine(Announced(), ArrivalsOf(Announced()).size() + 2));
        EXPECT_TRUE(WaitForMoreTraces("beside", 2));
        EXPECT_EQ(TracesOf("remedy").size(), traces);

        FailNoLonger();
        EXPECT_TRUE(WaitForMoreTraces("remedy", 2));
        ExpectRecovery();
        StopDaemon();
        EXPECT_THAT(Lines(), Each(AnyOf(Announced(), Exit(0))));
    }

private:
    /// The failing command of the job "web".
    static std::string Command() { return "test -e " + PathOf("absent"); }
    std::string Announced() const { return Debug(announcement); }
    std::string Reported(int error) const {
        return Error("check error - system command  returned -1!! web " + Command() +
                     " 1>/dev/null 2>/dev/null unknown error: " + std::to_string(error));
    }

    std::string announcement;
};

TEST_F(ShellFailureTest, OfACheckIsReportedAndLeavesTheResultOpen) {
    const std::vector<int> errors = {EAGAIN, ENOMEM, ECHILD, EINTR, EMFILE, 4095};
    RunAtOnce<ShellFailureTest>(errors, [](ShellFailureTest& lane, int error) {
        lane.StartWithFailingJob("true");
        lane.ExpectFailuresOfChecks(error);
    });
}

TEST_F(ShellFailureTest, OfARemedyIsSilentAndTheNextOneIsTried) {
    const std::vector<int> errors = {EAGAIN, ENOMEM, ECHILD, EINTR};
    RunAtOnce<ShellFailureTest>(errors, [](ShellFailureTest& lane, int error) {
        lane.StartWithFailingJob(NoteInShell("remedy"));
        lane.ExpectFailuresOfRemedies(error);
    });
}

}  // namespace kennly::test
