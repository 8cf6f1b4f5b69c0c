#include "watch/DogCheckCommandWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "job/ResultCode.h"
#include "support/FailingAllocation.h"
#include "support/RecordedLog.h"
#include "support/ScriptedShell.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DogCheckCommandWatchTest : public ::testing::Test {
protected:
    DogCheckCommandWatchTest() {
        shell = {};
        ForgetLog();
        check.jobName = "web";
    }

    std::int32_t Evaluate(const std::string& command) {
        check.params = {command};
        return check.DoWatch();
    }

    void OnlyFailsFor(std::int32_t status) {
        check.anyNonZeroFails = false;
        check.runActionResult = status;
    }

    DogCheckCommandWatch check;
};

TEST_F(DogCheckCommandWatchTest, BeginsWithEveryStatusButZeroAsAFailure) {
    EXPECT_TRUE(check.anyNonZeroFails);
    EXPECT_EQ(check.type, 0);
    EXPECT_EQ(check.delay, 0);
    EXPECT_TRUE(check.firstCall);
    EXPECT_THAT(check.params, IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, FailsForEveryExitStatusButZero) {
    EXPECT_EQ(Evaluate("exit 0"), ResultHealthy);
    EXPECT_EQ(Evaluate("exit 1"), ResultFailed);
    EXPECT_EQ(Evaluate("exit 3"), ResultFailed);
    EXPECT_EQ(Evaluate("exit 255"), ResultFailed);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, FailsForACommandThatCannotBeFoundOrRun) {
    const TemporaryDirectory directory;

    EXPECT_EQ(Evaluate(directory.Path("missing")), ResultFailed);
    EXPECT_EQ(Evaluate(directory.Write("not-executable", "")), ResultFailed);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, ReadsTheShellsStatusesForSuchCommandsAs127And126) {
    const TemporaryDirectory directory;

    OnlyFailsFor(127);
    EXPECT_EQ(Evaluate(directory.Path("missing")), ResultFailed);
    OnlyFailsFor(126);
    EXPECT_EQ(Evaluate(directory.Write("not-executable", "")), ResultFailed);
}

TEST_F(DogCheckCommandWatchTest, IsHealthyWhenASignalEndedTheShell) {
    EXPECT_EQ(Evaluate("kill -9 $$"), ResultHealthy);
    EXPECT_EQ(Evaluate("kill -15 $$"), ResultHealthy);

    OnlyFailsFor(0);
    EXPECT_EQ(Evaluate("kill -9 $$"), ResultFailed);
}

TEST_F(DogCheckCommandWatchTest, FailsForTheOneStatusThatIsConfigured) {
    const std::vector<std::pair<int, std::vector<std::pair<std::string, std::int32_t>>>> rows = {
        {3, {{"exit 3", ResultFailed}, {"exit 0", ResultHealthy}, {"exit 4", ResultHealthy}}},
        {0, {{"exit 0", ResultFailed}, {"exit 1", ResultHealthy}}},
        {255, {{"exit 255", ResultFailed}, {"exit 0", ResultHealthy}}},
        {-1, {{"exit 255", ResultHealthy}, {"exit 0", ResultHealthy}, {"exit 1", ResultHealthy}}},
        {256, {{"exit 0", ResultHealthy}, {"exit 1", ResultHealthy}}},
    };
    for (const auto& [status, outcomes] : rows) {
        OnlyFailsFor(status);
        for (const auto& [command, result] : outcomes) {
            SCOPED_TRACE(std::to_string(status) + ": " + command);
            EXPECT_EQ(Evaluate(command), result);
        }
    }
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, DoesNotLookAtTheConfiguredStatusWhileEveryOneFails) {
    check.runActionResult = 3;

    EXPECT_EQ(Evaluate("exit 3"), ResultFailed);
    EXPECT_EQ(Evaluate("exit 4"), ResultFailed);
    EXPECT_EQ(Evaluate("exit 0"), ResultHealthy);
}

TEST_F(DogCheckCommandWatchTest, OnlyShiftsTheStatusThatTheShellReports) {
    constexpr int stoppedBy19 = 0x137F;
    constexpr int dumpedCoreBy11 = 0x8B;
    shell.scripted = true;
    const std::vector<std::pair<int, std::int32_t>> rows = {
        {0, ResultHealthy},
        {9, ResultHealthy},
        {dumpedCoreBy11, ResultHealthy},
        {0xFF, ResultHealthy},
        {0x100, ResultFailed},
        {stoppedBy19, ResultFailed},
        {0x10000, ResultFailed},
        {-2, ResultFailed},
        {std::numeric_limits<int>::min(), ResultFailed},
    };
    for (const auto& [waitStatus, result] : rows) {
        SCOPED_TRACE(waitStatus);
        shell.result = waitStatus;
        EXPECT_EQ(Evaluate("probe"), result);
    }
    EXPECT_EQ(shell.commandLines.size(), rows.size());
}

TEST_F(DogCheckCommandWatchTest, ShiftsArithmeticallyAndWithoutAMask) {
    shell.scripted = true;
    shell.result = 0x10000;
    OnlyFailsFor(256);
    EXPECT_EQ(Evaluate("probe"), ResultFailed);
    shell.result = -256;
    OnlyFailsFor(-1);
    EXPECT_EQ(Evaluate("probe"), ResultFailed);
}

TEST_F(DogCheckCommandWatchTest, LogsTheNumberWhenNoShellCanBeStarted) {
    shell.scripted = true;
    shell.result = -1;
    shell.error = EAGAIN;

    EXPECT_EQ(Evaluate("probe"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(),
                ElementsAre(Error("check error - system command  returned -1!! web "
                                  "probe 1>/dev/null 2>/dev/null unknown error: 11")));
    EXPECT_THAT(shell.commandLines, ElementsAre("probe 1>/dev/null 2>/dev/null"));
}

TEST_F(DogCheckCommandWatchTest, LogsTheNumberOfAnyError) {
    shell.scripted = true;
    shell.result = -1;
    for (const int error : {0, ENOMEM, 99999, -5}) {
        SCOPED_TRACE(error);
        ForgetLog();
        shell.error = error;

        EXPECT_EQ(Evaluate("probe"), ResultNotEvaluated);

        EXPECT_THAT(RecordedLines(),
                    ElementsAre(Error("check error - system command  returned -1!! web "
                                      "probe 1>/dev/null 2>/dev/null unknown error: " +
                                      std::to_string(error))));
    }
}

TEST_F(DogCheckCommandWatchTest, DoesNotTakeMinusOneForAConfiguredStatus) {
    shell.scripted = true;
    shell.result = -1;
    OnlyFailsFor(-1);

    EXPECT_EQ(Evaluate("probe"), ResultNotEvaluated);
}

TEST_F(DogCheckCommandWatchTest, TakesExactlyOneParameter) {
    const std::vector<std::list<std::string>> rows = {
        {}, {"true", "true"}, {"", ""}, {"a", "b", "c"}};
    for (const std::list<std::string>& params : rows) {
        SCOPED_TRACE(params.size());
        ForgetLog();
        check.params = params;

        EXPECT_EQ(check.DoWatch(), ResultNotEvaluated);

        EXPECT_THAT(RecordedLines(),
                    ElementsAre(Error("check error - DogCheckCommandWatch::DoWatch() "
                                      "not one parameter!! web")));
    }
    EXPECT_THAT(shell.commandLines, IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, RefusesAnEmptyCommand) {
    EXPECT_EQ(Evaluate(""), ResultNotEvaluated);

    EXPECT_THAT(
        RecordedLines(),
        ElementsAre(Error("check error - DogCheckCommandWatch::DoWatch() no command!! web")));
    EXPECT_THAT(shell.commandLines, IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, TakesABlankForACommand) {
    EXPECT_EQ(Evaluate(" "), ResultHealthy);

    EXPECT_THAT(shell.commandLines, ElementsAre("  1>/dev/null 2>/dev/null"));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, LogsAnExceptionOnce) {
    check.params = {"a command too long to be kept without an allocation of its own"};
    ForgetLog();
    std::int32_t result = ResultHealthy;
    bool failed = false;
    {
        const FailingOnceAllocation failing(0);
        result = check.DoWatch();
        failed = failing.HasFailed();
    }

    EXPECT_TRUE(failed);
    EXPECT_EQ(result, ResultNotEvaluated);
    EXPECT_THAT(
        RecordedLines(),
        ElementsAre(Error("check error - DogCheckCommandWatch::DoWatch() catch(...)!! web")));
    EXPECT_THAT(shell.commandLines, IsEmpty());
}

TEST_F(DogCheckCommandWatchTest, DiscardsWhatTheCommandPrints) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();

    const std::int32_t result = Evaluate("sh -c 'echo out; echo error >&2'");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(result, ResultHealthy);
}

TEST_F(DogCheckCommandWatchTest, SilencesOnlyTheLastOfSeveralCommands) {
    ::testing::internal::CaptureStdout();

    const std::int32_t result = Evaluate("echo first; echo last");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "first\n");
    EXPECT_EQ(result, ResultHealthy);
}

TEST_F(DogCheckCommandWatchTest, HandsTheCommandToTheShellAsItStands) {
    shell.scripted = true;
    for (const char* const command : {"probe -x 'a b' \"$HOME\" | grep %s;", "sleep 1 &", "#"}) {
        SCOPED_TRACE(command);
        shell.commandLines.clear();

        Evaluate(command);

        EXPECT_THAT(shell.commandLines,
                    ElementsAre(std::string(command) + " 1>/dev/null 2>/dev/null"));
    }
}

TEST_F(DogCheckCommandWatchTest, DoesNotSeeTheStatusOfACommandThatEndsInAnAmpersand) {
    EXPECT_EQ(Evaluate("exit 3 &"), ResultHealthy);

    EXPECT_THAT(shell.commandLines, ElementsAre("exit 3 & 1>/dev/null 2>/dev/null"));
}

TEST_F(DogCheckCommandWatchTest, WaitsForTheCommandAndKeepsNothingForTheNextOne) {
    const TemporaryDirectory directory;
    const std::string file = directory.Path("ran");

    EXPECT_EQ(Evaluate("sleep 0.05; touch '" + file + "'; test -e '" + file + "'"), ResultHealthy);
    EXPECT_EQ(Evaluate("rm '" + file + "'"), ResultHealthy);
    EXPECT_EQ(check.DoWatch(), ResultFailed);  // it is gone

    EXPECT_TRUE(check.firstCall);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

}  // namespace kennly::test
