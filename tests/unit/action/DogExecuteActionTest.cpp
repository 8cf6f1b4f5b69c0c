#include "action/DogExecuteAction.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "job/ResultCode.h"
#include "support/FailingAllocation.h"
#include "support/RecordedLog.h"
#include "support/SandboxPolling.h"
#include "support/ScriptedShell.h"
#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DogExecuteActionTest : public ::testing::Test {
protected:
    DogExecuteActionTest() {
        shell = {};
        ForgetLog();
        remedy.jobName = "web";
        remedy.type = RemedyTypeExecuteAlways;
    }

    void Script(int result) {
        shell.scripted = true;
        shell.result = result;
    }

    std::int32_t Run(const std::string& command) {
        remedy.params = {command};
        return remedy.DoAction();
    }

    /// Whether the file appears in the test's directory, with content and a line end.
    bool Appears(const std::string& name) {
        return WaitUntil(
            [&] {
                const std::string content = directory.Read(name);
                return !content.empty() && content.back() == '\n';
            },
            std::chrono::seconds(30));
    }

    const TemporaryDirectory directory;
    DogExecuteAction remedy;
};

TEST_F(DogExecuteActionTest, HandsTheShellTheCommandUnderNohupInTheBackground) {
    Script(0);
    for (const char* const command :
         {"restart-service", "a 'b c' \"$HOME\"; d | e %s", " ", "sleep 1 &", "nohup x"}) {
        SCOPED_TRACE(command);
        shell.commandLines.clear();

        EXPECT_EQ(Run(command), ResultHealthy);

        EXPECT_THAT(shell.commandLines,
                    ElementsAre("nohup " + std::string(command) + " 1>/dev/null 2>/dev/null &"));
    }
}

TEST_F(DogExecuteActionTest, AnnouncesAnExecuteRemedyBeforeItStarts) {
    Script(0);
    remedy.type = RemedyTypeExecute;
    std::vector<RecordedLine> linesBefore;
    shell.whenCalled = [&] {
        linesBefore = RecordedLines();
    };

    EXPECT_EQ(Run("restart-service"), ResultHealthy);

    EXPECT_THAT(linesBefore,
                ElementsAre(Debug("web check failed - running remedy: restart-service")));
    EXPECT_EQ(RecordedLines(), linesBefore);
    EXPECT_THAT(shell.commandLines, ElementsAre("nohup restart-service 1>/dev/null 2>/dev/null &"));
}

TEST_F(DogExecuteActionTest, AnnouncesEveryTypeButExecuteAlways) {
    Script(0);
    for (const std::int32_t type : {RemedyTypeUnknown, RemedyTypeExecute, 3, -2}) {
        SCOPED_TRACE(type);
        ForgetLog();
        remedy.type = type;

        EXPECT_EQ(Run("restart-service"), ResultHealthy);

        EXPECT_THAT(RecordedLines(),
                    ElementsAre(Debug("web check failed - running remedy: restart-service")));
    }
}

TEST_F(DogExecuteActionTest, SaysNothingOfAnExecuteAlwaysRemedy) {
    Script(0);

    EXPECT_EQ(Run("restart-service"), ResultHealthy);

    EXPECT_THAT(RecordedLines(), IsEmpty());
    EXPECT_THAT(shell.commandLines, ElementsAre("nohup restart-service 1>/dev/null 2>/dev/null &"));
}

TEST_F(DogExecuteActionTest, RunsNothingUnlessThereIsOneCommand) {
    remedy.type = RemedyTypeExecute;
    const std::vector<std::list<std::string>> rows = {{}, {"true", "true"}, {"", "true"}, {""}};
    for (const std::list<std::string>& params : rows) {
        SCOPED_TRACE(::testing::PrintToString(params));
        remedy.params = params;

        EXPECT_EQ(remedy.DoAction(), ResultNotEvaluated);
    }
    EXPECT_THAT(shell.commandLines, IsEmpty());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogExecuteActionTest, LooksForACommandBeforeItLooksForBlockFiles) {
    remedy.blockAction = directory.Write("block", "");

    EXPECT_EQ(Run(""), ResultNotEvaluated);
}

TEST_F(DogExecuteActionTest, IsHeldBackByABlockFileInAnyPlace) {
    remedy.type = RemedyTypeExecute;
    const std::string there = directory.Write("block", "");
    const std::string missing = directory.Path("missing");
    const std::vector<std::vector<std::string>> rows = {
        {there, "", ""},           {"", there, ""},      {"", "", there},
        {missing, there, missing}, {missing, "", there}, {missing, missing, there},
        {there, missing, ""},      {there, there, there}};
    for (const std::vector<std::string>& paths : rows) {
        SCOPED_TRACE(::testing::PrintToString(paths));
        remedy.blockAction = paths[0];
        remedy.blockAction2 = paths[1];
        remedy.blockAction3 = paths[2];

        EXPECT_EQ(Run("restart-service"), ResultHealthy);
    }
    EXPECT_THAT(shell.commandLines, IsEmpty());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogExecuteActionTest, IsNotHeldBackByMissingBlockFiles) {
    Script(0);
    remedy.blockAction = directory.Path("missing");
    remedy.blockAction2 = directory.Path("missing/deeper");
    remedy.blockAction3 = directory.Path("missing too");

    EXPECT_EQ(Run("restart-service"), ResultHealthy);

    EXPECT_EQ(shell.commandLines.size(), 1U);
}

TEST_F(DogExecuteActionTest, IsHeldBackByAnythingThatExistsReadableOrNot) {
    Script(0);
    const std::string unreadable = directory.Write("unreadable", "");
    ASSERT_EQ(chmod(unreadable.c_str(), 0), 0);
    const std::string fifo = directory.Path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0), 0);
    ASSERT_EQ(chmod(directory.Path("").c_str(), 0711), 0);
    const WithoutPrivileges privileges;
    ASSERT_NE(access(unreadable.c_str(), R_OK), 0);
    for (const std::string& path : {unreadable, fifo, directory.Path("")}) {
        SCOPED_TRACE(path);
        remedy.blockAction2 = path;

        EXPECT_EQ(Run("restart-service"), ResultHealthy);
    }
    EXPECT_THAT(shell.commandLines, IsEmpty());
}

TEST_F(DogExecuteActionTest, LooksForBlockFilesAfreshEachTime) {
    Script(0);
    remedy.blockAction = directory.Write("block", "");
    EXPECT_EQ(Run("restart-service"), ResultHealthy);
    ASSERT_THAT(shell.commandLines, IsEmpty());

    ASSERT_EQ(unlink(remedy.blockAction.c_str()), 0);
    EXPECT_EQ(Run("restart-service"), ResultHealthy);

    EXPECT_EQ(shell.commandLines.size(), 1U);
}

TEST_F(DogExecuteActionTest, JudgesTheStatusThatTheShellReports) {
    const std::vector<std::pair<int, std::int32_t>> rows = {
        {0, ResultHealthy},
        {0x100, ResultFailed},
        {0x7F00, ResultFailed},
        {9, ResultHealthy},  // ended by a signal
        {0x8B, ResultHealthy},
        {0x10000, ResultFailed},
        {-1, ResultNotEvaluated},
        {-2, ResultFailed},
        {std::numeric_limits<int>::min(), ResultFailed},
    };
    for (const auto& [waitStatus, result] : rows) {
        SCOPED_TRACE(waitStatus);
        Script(waitStatus);
        EXPECT_EQ(Run("restart-service"), result);
    }
    EXPECT_EQ(shell.commandLines.size(), rows.size());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogExecuteActionTest, SaysNothingMoreWhenNoShellCanBeStarted) {
    Script(-1);
    remedy.type = RemedyTypeExecute;

    EXPECT_EQ(Run("restart-service"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(),
                ElementsAre(Debug("web check failed - running remedy: restart-service")));
}

TEST_F(DogExecuteActionTest, SaysNothingOfAnException) {
    remedy.params = {"restart-service"};
    std::int32_t result = ResultHealthy;
    bool failed = false;
    {
        const FailingOnceAllocation failing(0);
        result = remedy.DoAction();
        failed = failing.HasFailed();
    }

    EXPECT_TRUE(failed);
    EXPECT_EQ(result, ResultNotEvaluated);
    EXPECT_THAT(RecordedLines(), IsEmpty());
    EXPECT_THAT(shell.commandLines, IsEmpty());
}

TEST_F(DogExecuteActionTest, FailsWhenTheShellCannotReadTheCommandLine) {
    ::testing::internal::CaptureStderr();  // where the shell complains

    const std::int32_t result = Run("'");

    EXPECT_NE(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(result, ResultFailed);
}

TEST_F(DogExecuteActionTest, DoesNotSeeThatACommandDoesNotExist) {
    EXPECT_EQ(Run(directory.Path("missing")), ResultHealthy);
}

TEST_F(DogExecuteActionTest, DoesNotWaitForTheCommand) {
    const std::string fifo = directory.Path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);

    // The command cannot end before the test has written to the FIFO.
    const std::int32_t result =
        Run("sh -c 'read line <" + fifo + " && echo $line >" + directory.Path("out") + "'");
    EXPECT_EQ(result, ResultHealthy);
    EXPECT_EQ(directory.Read("out"), "");
    directory.Write("fifo", "go\n");

    EXPECT_TRUE(Appears("out"));
    EXPECT_EQ(directory.Read("out"), "go\n");
}

TEST_F(DogExecuteActionTest, StartsTheCommandImmuneToHangUp) {
    Run("sh -c 'grep SigIgn: /proc/self/status >" + directory.Path("status") + "'");

    ASSERT_TRUE(Appears("status"));
    const std::string line = directory.Read("status");
    const std::uint64_t ignored = std::stoull(line.substr(line.find('\t')), nullptr, 16);
    EXPECT_NE(ignored & (1ULL << (SIGHUP - 1)), 0U);
    EXPECT_EQ(ignored & (1ULL << (SIGTERM - 1)), 0U);
}

TEST_F(DogExecuteActionTest, DiscardsTheOutputOfTheCommand) {
    Run("sh -c 'readlink /proc/$$/fd/1 /proc/$$/fd/2 | tr \"\\n\" \" \" >" +
        directory.Path("part") + "; echo >>" + directory.Path("part") + "; mv " +
        directory.Path("part") + " " + directory.Path("descriptors") + "'");

    ASSERT_TRUE(Appears("descriptors"));
    EXPECT_EQ(directory.Read("descriptors"), "/dev/null /dev/null \n");
}

}  // namespace kennly::test
