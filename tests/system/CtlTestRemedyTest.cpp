#include "system/CtlFixture.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// "kennlyctl test --remedy": only when asked, and only said when asked for that.
class CtlTestRemedyTest : public CtlTest {
protected:
    void SetUp() override {
        CtlTest::SetUp();
        ASSERT_TRUE(sandbox);
        ConfigureOne(NoteInShell("remedy"), "blockaction2=\"" + PathOf("block") + "\"");
    }
    void ConfigureOne(const std::string& command, const std::string& attributes = "") {
        Configure(Configuration(Job("one", Check(Note("check") + "; false", "delay=\"600\"") +
                                               Remedy(command, attributes))));
    }
};

TEST_F(CtlTestRemedyTest, RunsNoRemedyUnasked) {
    EXPECT_EQ(Ctl({"test", "one"}).status, 1);
    EXPECT_THAT(TracesOf("check"), SizeIs(1));
    EXPECT_THAT(TracesOf("remedy"), IsEmpty());
}

TEST_F(CtlTestRemedyTest, RunsTheRemedyAloneWhenAsked) {
    const Answer answer = Ctl({"test", "--remedy", "one"});
    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_THAT(answer.out, HasSubstr("started; nobody learns how it ends\n"));
    EXPECT_TRUE(WaitForTraces("remedy", 1));
    EXPECT_THAT(TracesOf("check"), IsEmpty());
}

TEST_F(CtlTestRemedyTest, OnlySaysWhatWouldRunWhenAskedForThat) {
    const Answer answer = Ctl({"test", "--remedy", "--dry-run", "one"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.out, "nohup " + NoteInShell("remedy") + " 1>/dev/null 2>/dev/null &\n");
    EXPECT_THAT(sandbox->Processes(), IsEmpty());
    EXPECT_THAT(TracesOf("remedy"), IsEmpty());
    EXPECT_THAT(TracesOf("check"), IsEmpty());
}

TEST_F(CtlTestRemedyTest, HeedsABlockFile) {
    PutFile(PathOf("block"), 1);
    const Answer answer = Ctl({"test", "--remedy", "one"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.out, "the remedy does not run: " + PathOf("block") + " blocks it\n");
    EXPECT_THAT(sandbox->Processes(), IsEmpty());
    EXPECT_THAT(TracesOf("remedy"), IsEmpty());
}

TEST_F(CtlTestRemedyTest, TellsOfARemedyThatNeverRuns) {
    ConfigureOne("");
    const Answer answer = Ctl({"test", "--remedy", "one"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, HasSubstr("the remedy never runs"));
}

TEST_F(CtlTestRemedyTest, TellsOfALineThatTheShellCannotRead) {
    ConfigureOne("( true )");
    const Answer answer = Ctl({"test", "--remedy", "one"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, HasSubstr("the shell could not start it: status 2\n"));
}

TEST_F(CtlTestRemedyTest, LeavesTheRemedyRunning) {
    ConfigureOne("sleep 1000");
    EXPECT_EQ(Ctl({"test", "--remedy", "one"}).status, 0);
    EXPECT_TRUE(WaitUntil(
        [&] {
            const std::vector<pid_t> processes = sandbox->Processes();
            return processes.size() == 1 && ProcessFile(processes[0], "comm") == "sleep\n";
        },
        Generous));
}

TEST_F(CtlTestRemedyTest, GivesTheRemedyWhatTheDaemonGivesIt) {
    const std::string script = PathOf("script");
    ASSERT_TRUE(sandbox->WriteFile(
        script, "#!/bin/sh\nfor fd in /proc/$$/fd/[0-2]; do readlink $fd; done >" +
                    PathOf("draft") + "\ngrep -e SigIgn -e SigBlk /proc/self/status >>" +
                    PathOf("draft") + "\necho end >>" + PathOf("draft") + "\nmv " +
                    PathOf("draft") + " " + PathOf("report") + "\n"));
    std::filesystem::permissions(sandbox->PathInside(script), std::filesystem::perms(0755));
    for (const std::vector<std::string>& options : {std::vector<std::string>{"-f"}, {}}) {
        SCOPED_TRACE(options.size());
        ConfigureOne(script);
        if (options.empty()) {
            StartTrees({}, MainTree);
        } else {
            StartDaemon(options);
        }
        const std::string ofDaemon = ReportOf("report");
        ASSERT_TRUE(sandbox->RemoveFile(PathOf("report")));
        EXPECT_EQ(Ctl({"test", "--remedy", "one"}).status, 0);
        EXPECT_EQ(ReportOf("report"), ofDaemon);
        EXPECT_EQ(ofDaemon.substr(0, 10), "/dev/null\n");
        EXPECT_EQ(Ctl({"stop"}).status, 0);
        ASSERT_TRUE(sandbox->RemoveFile(PathOf("report")));
    }
}

}  // namespace kennly::test
