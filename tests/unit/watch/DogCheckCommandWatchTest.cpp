#include "watch/DogCheckCommandWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "job/ResultCode.h"
#include "support/RecordedLog.h"

namespace {

// Stands in for the shell while `scripted` is set.
struct Shell {
    bool scripted = false;
    int result = 0;
    int error = 0;
    std::vector<std::string> commandLines;
} shell;

}  // namespace

extern "C" {

int __real_system(const char* commandLine);
int __wrap_system(const char* commandLine);

int __wrap_system(const char* commandLine) {
    shell.commandLines.emplace_back(commandLine);
    if (!shell.scripted) {
        return __real_system(commandLine);
    }
    errno = shell.error;
    return shell.result;
}
}

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

    DogCheckCommandWatch check;
};

TEST_F(DogCheckCommandWatchTest, FailsForEveryExitStatusButZero) {
    EXPECT_EQ(Evaluate("exit 0"), ResultHealthy);
    EXPECT_EQ(Evaluate("exit 1"), ResultFailed);
    EXPECT_EQ(Evaluate("exit 3"), ResultFailed);
    EXPECT_THAT(RecordedLines(), IsEmpty());
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

}  // namespace kennly::test
