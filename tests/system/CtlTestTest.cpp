#include "system/CtlFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// "kennlyctl test": what comes of the check of a job.
class CtlTestTest : public CtlTest {
protected:
    void ConfigureOne(const std::string& check) {
        Configure(Configuration(Job("one", check + Remedy(NoteInShell("remedy")))));
    }
    Answer TestOf(const std::string& check) {
        ConfigureOne(check);
        return Ctl({"test", "one"});
    }
    /// Starts a test of a command that hangs once it has left a trace, and interrupts it.
    Answer Interrupt(const std::string& command, int signal) {
        ConfigureOne(Check(Note("begun") + "; " + command));
        const std::size_t count = TracesOf("begun").size();
        const auto process = StartCtl({"test", "one"});
        EXPECT_TRUE(WaitForTraces("begun", count + 1));
        EXPECT_TRUE(process->Signal(signal));
        return AnswerOf(*process);
    }
};

TEST_F(CtlTestTest, NeedsFewDescriptors) {
    ConfigureOne(Check("true"));
    const Answer answer = InShell("ulimit -n 20; exec $CTL test one");
    EXPECT_EQ(answer.status, 0) << answer.err;
}

TEST_F(CtlTestTest, TellsTheStatusAndTheVerdict) {
    struct Row {
        const char* command;
        const char* attributes;
        int status;
        const char* told;
        const char* verdict;
    };
    for (const Row& row : std::vector<Row>{
             {"true", "", 0, "status: 0\n", "healthy, as any status but 0 is a failure\n"},
             {"exit 3", "", 1, "status: 3\n", "failed, as any status but 0 is a failure\n"},
             {"exit 3", "runactionresult=\"2\"", 0, "status: 3\n",
              "healthy, as only status 2 is a failure\n"},
             {"exit 2", "runactionresult=\"2\"", 1, "status: 2\n",
              "failed, as only status 2 is a failure\n"},
             {"no-such-command", "", 1, "status: 127 (not found)\n", "failed"},
             {"/etc/passwd", "", 1, "status: 126 (found and not executable)\n", "failed"},
             {"kill -9 $$", "", 0, "status: 0 (the shell was ended by signal 9)\n", "healthy"},
             {"echo x && true", "", 1, "status: ", "failed"}}) {  // its output is closed
        SCOPED_TRACE(row.command);
        const Answer answer = TestOf(Check(row.command, row.attributes));
        EXPECT_EQ(answer.status, row.status) << answer.err;
        EXPECT_THAT(answer.out, HasSubstr(row.told));
        EXPECT_THAT(answer.out, HasSubstr(std::string("verdict: ") + row.verdict));
        EXPECT_THAT(answer.out,
                    HasSubstr("runs: " + std::string(row.command) + " 1>/dev/null 2>/dev/null\n"));
    }
    EXPECT_THAT(TracesOf("remedy"), IsEmpty());
}

TEST_F(CtlTestTest, AgreesWithTheDaemonsOwnVerdict) {
    struct Row {
        const char* command;
        const char* attributes;
    };
    const std::vector<Row> rows = {{"true", ""},
                                   {"false", ""},
                                   {"exit 7", "runactionresult=\"7\""},
                                   {"exit 8", "runactionresult=\"7\""},
                                   {"grep root /etc/passwd && test -d /etc", ""},
                                   {"{ grep root /etc/passwd && test -d /etc; }", ""},
                                   {"cat", ""},
                                   {"kill -HUP $$; false", ""},
                                   {"kill -9 $$", ""},
                                   {"false &", ""}};
    std::string jobs;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::string name = "job" + std::to_string(i);
        jobs += Job(name, Check(rows[i].command, std::string(rows[i].attributes) + " delay=\"1\"") +
                              Remedy(NoteInShell(name)));
    }
    Configure(Configuration(jobs + Healthy("last")));
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForTraces("last", 3));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].command);
        const std::string name = "job" + std::to_string(i);
        const int status = Ctl({"test", name}).status;
        if (status == 1) {
            EXPECT_TRUE(WaitForTraces(name, 1));
        } else {
            EXPECT_EQ(status, 0);
            EXPECT_THAT(TracesOf(name), IsEmpty());
        }
    }
}

TEST_F(CtlTestTest, TellsHowLongItTook) {
    EXPECT_THAT(TestOf(Check("sleep 1.2")).out,
                ::testing::ContainsRegex("\ntime: [1-9][0-9]*(\\.[0-9])? s\n"));
}

TEST_F(CtlTestTest, OnlySaysOnRequestWhatWouldRun) {
    ConfigureOne(Check(Note("check") + "; true"));
    const Answer answer = Ctl({"test", "--dry-run", "one"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.out, Note("check") + "; true 1>/dev/null 2>/dev/null\n");
    EXPECT_THAT(TracesOf("check"), IsEmpty());
}

TEST_F(CtlTestTest, KnowsChecksWithoutAVerdict) {
    for (const std::string& check :
         {Check(""), CheckOfType("CheckCommandResult", {"true", "true"}),
          CheckOfType("CheckCommandResult", {}), CheckOfType("CheckForFileChange", {}),
          CheckOfType("CheckForNoFileChange", {"/etc/passwd"}),
          CheckOfType("CheckSocketListening", {"80"})}) {
        SCOPED_TRACE(check);
        const Answer answer = TestOf(check);
        EXPECT_EQ(answer.status, 1);
        EXPECT_THAT(answer.out,
                    AllOf(HasSubstr("verdict: none, "), EndsWith(": the remedy never runs\n")));
    }
}

TEST_F(CtlTestTest, JudgesAFilesChangeByItsRecord) {
    PutFile(PathOf("watched"), 1'600'000'000);
    const std::string check = CheckOfType("CheckForFileChange", {PathOf("watched")});
    const Answer without = TestOf(check);
    EXPECT_EQ(without.status, 1);
    EXPECT_THAT(without.out, HasSubstr("there is no record of its time"));

    const std::int32_t same = 1'600'000'000;
    const std::int32_t other = 1'500'000'000;
    for (const std::int32_t recorded : {same, other}) {
        SCOPED_TRACE(recorded);
        const std::string record(reinterpret_cast<const char*>(&recorded), sizeof recorded);
        ASSERT_TRUE(sandbox->WriteFile(RecordPath("one"), record));
        const Answer answer = Ctl({"test", "one"});
        EXPECT_EQ(answer.status, recorded == same ? 0 : 1) << answer.out;
        EXPECT_EQ(sandbox->ReadFile(RecordPath("one")), record);
    }
    ASSERT_TRUE(sandbox->RemoveFile(PathOf("watched")));
    EXPECT_EQ(Ctl({"test", "one"}).status, 0);
}

TEST_F(CtlTestTest, JudgesAFilesAgeByItsLimit) {
    PutFile(PathOf("old"), std::time(nullptr) - 1000);
    struct Row {
        std::string path;
        const char* limit;
        int status;
    };
    for (const Row& row : std::vector<Row>{{PathOf("old"), "60", 1},
                                           {PathOf("old"), "", 1},
                                           {PathOf("old"), "0", 1},
                                           {PathOf("old"), "100000", 0},
                                           {PathOf("none"), "60", 0}}) {
        SCOPED_TRACE(row.path + " " + row.limit);
        const Answer answer = TestOf(CheckOfType("CheckForNoFileChange", {row.path, row.limit}));
        EXPECT_EQ(answer.status, row.status) << answer.out;
    }
}

TEST_F(CtlTestTest, CountsRelativePathsFromWhereTheDaemonWasStarted) {
    PutFile(PathOf("watched"), std::time(nullptr) - 1000);
    const std::string check = CheckOfType("CheckForNoFileChange", {"watched", "60"});
    const Answer without = TestOf(check);
    EXPECT_EQ(without.status, 1);
    EXPECT_THAT(without.out, HasSubstr("verdict: unknown, as its path is relative"));
    EXPECT_THAT(without.out, Not(HasSubstr("never runs")));

    StartOptions start;
    start.workingDirectory = DataDirectory;
    StartDaemon({"-f"}, start);
    ASSERT_TRUE(WaitForHeartbeat());
    EXPECT_THAT(Ctl({"test", "one"}).out, HasSubstr("the limit is 60 s"));
}

TEST_F(CtlTestTest, KnowsNoVerdictWhereItMayNotLook) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    PutFile(PathOf("open"), 1'600'000'000);
    std::filesystem::create_directory(sandbox->PathInside(PathOf("closed")));
    PutFile(PathOf("closed/watched"), 1'600'000'000);
    ASSERT_TRUE(sandbox->WriteFile(RecordPath("one"), "1234"));
    for (const std::string& closed : {PathOf("closed"), DataDirectory + "/config/filetimes"}) {
        std::filesystem::permissions(sandbox->PathInside(closed), std::filesystem::perms(0700));
    }
    struct Row {
        std::string check;
        const char* why;
    };
    for (const Row& row : std::vector<Row>{
             {CheckOfType("CheckForFileChange", {PathOf("closed/watched")}), "look at the file"},
             {CheckOfType("CheckForNoFileChange", {PathOf("closed/watched"), "9"}),
              "look at the file"},
             {CheckOfType("CheckForFileChange", {PathOf("open")}),
              "read the record of its time"}}) {
        SCOPED_TRACE(row.check);
        ConfigureOne(row.check);
        const Answer answer = CtlAsNobody("test one");
        EXPECT_EQ(answer.status, 1) << answer.err;
        EXPECT_THAT(answer.out,
                    HasSubstr(std::string("verdict: unknown, as this user may not ") + row.why));
    }
}

TEST_F(CtlTestTest, TellsWhichJobThereIsNot) {
    ConfigureOne(Check("true"));
    const Answer answer = Ctl({"test", "two"});
    EXPECT_EQ(answer.status, 66);
    EXPECT_THAT(answer.err, HasSubstr("no job two would run from " + MainConfiguration + " or " +
                                      WatcherConfiguration));
    EXPECT_THAT(Ctl({"test", "-W", "one"}).err, Not(HasSubstr(MainConfiguration)));
}

TEST_F(CtlTestTest, RunsNothingOfWhichItWouldNotLearnTheEnd) {
    Configure(Configuration(Healthy("web")));
    const Answer answer = InShell("ulimit -n 5; exec \"$CTL\" test web");
    EXPECT_EQ(answer.status, 71);
    EXPECT_THAT(answer.err, HasSubstr("kennlyctl: cannot start a shell: "));
    EXPECT_THAT(TracesOf("web"), IsEmpty());
}

TEST_F(CtlTestTest, KnowsTheJobsOfTheWatcherTree) {
    ConfigureOne(Check("true"));
    Configure(Configuration(Job("one", Check("exit 9") + Remedy("true")) +
                            Job("other", Check("exit 8") + Remedy("true"))),
              WatcherConfiguration);
    EXPECT_THAT(Ctl({"test", "one"}).out, HasSubstr("status: 0\n"));
    EXPECT_THAT(Ctl({"test", "-W", "one"}).out, HasSubstr("status: 9\n"));
    EXPECT_THAT(Ctl({"test", "other"}).out, HasSubstr("status: 8\n"));
}

TEST_F(CtlTestTest, LeavesNothingOfACommandThatIsInterrupted) {
    struct Row {
        const char* command;
        int signal;
    };
    // timeout has a process group of its own.
    for (const Row& row : std::vector<Row>{{"sleep 1000", SIGINT},
                                           {"timeout 1000 sleep 1001", SIGINT},
                                           {"sleep 1000 & timeout 1001 sleep 1002", SIGTERM},
                                           {"trap '' INT TERM; sleep 1000; sleep 1001", SIGINT},
                                           {"sleep 1000", SIGQUIT},
                                           {"sleep 1000", SIGHUP}}) {
        SCOPED_TRACE(row.command);
        const Answer answer = Interrupt(row.command, row.signal);
        EXPECT_EQ(answer.status, 130);
        EXPECT_THAT(answer.out, HasSubstr("\ninterrupted after "));
        EXPECT_THAT(answer.out, Not(HasSubstr("verdict")));
        EXPECT_TRUE(WaitUntil([&] { return sandbox->Processes().empty(); }, Generous));
    }
}

TEST_F(CtlTestTest, GoesOnUnderASignalThatItWasToldToIgnore) {
    ConfigureOne(
        Check(Note("begun") + "; while [ ! -e " + PathOf("go") + " ]; do sleep 0.1; done"));
    StartOptions start;
    start.ignoredSignals = {SIGHUP};  // as under nohup
    const auto process = StartCtl({"test", "one"}, start);
    ASSERT_TRUE(WaitForTraces("begun", 1));
    ASSERT_TRUE(process->Signal(SIGHUP));
    PutFile(PathOf("go"), 1);
    EXPECT_EQ(AnswerOf(*process).status, 0);
}

}  // namespace kennly::test
