#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

class StartTest : public DaemonTest {
protected:
    /// A job whose remedy leaves a trace.
    static std::string FailingJob() {
        return Job("web", Check("exit 1", "delay=\"1\"") + Remedy(NoteInShell("remedy")));
    }
};

TEST_F(StartTest, PrintsTheUsageAndNothingElseForAnUnknownArgument) {
    const std::vector<std::vector<std::string>> rows = {
        {"-x"}, {""}, {"-"}, {"f"}, {"--help"}, {"-F"}, {"-f", "-x"}, {"-x", "-f"}};
    for (const std::vector<std::string>& options : rows) {
        SCOPED_TRACE(::testing::PrintToString(options));

        EXPECT_EQ(RunToItsEnd(options), 1);

        EXPECT_EQ(daemon->ErrorText(),
                  "Usage: kennly\n"
                  "Optional arguments:\n"
                  "    -w                  (to run a watchdog watcher)\n"
                  "    -f                  (to run in foreground)\n");
        EXPECT_EQ(runOutput, "");
        EXPECT_THAT(Lines(), IsEmpty());
        EXPECT_FALSE(sandbox->FileExists(ChildHeartbeat));
    }
}

TEST_F(StartTest, RunsInTheForegroundForEveryOptionThatBeginsSo) {
    for (const char* const option : {"-f", "-fast", "-foreground"}) {
        SCOPED_TRACE(option);
        Configure(Configuration(Marker(option)));

        StartDaemon({option});

        EXPECT_TRUE(WaitForLine(Loaded(option)));
        StopDaemon();
    }
}

TEST_F(StartTest, WritesLinesWithItsOwnNumberAndABlankRoleAndAnExitLineWithoutEnd) {
    Configure(Configuration(Marker("one") + "<job enabled=\"true\"/>"));
    StartOptions start;
    start.captureOutput = true;
    start.captureError = true;
    StartDaemon({"-f"}, start);
    ASSERT_NE(number, std::to_string(daemon->Pid()));
    ASSERT_THAT(number, MatchesRegex("[0-9]+"));
    ASSERT_TRUE(WaitForLine(Error("job name missing")));

    StopDaemon();

    EXPECT_THAT(Lines(), ElementsAre("kennly local4.debug " + number +
                                         ":  : job not enabled - ignoring job: one\n",
                                     "kennly local4.err " + number + ":  : job name missing\n",
                                     "kennly local4.debug " + number + ":   exit(0)"));
    EXPECT_EQ(daemon->OutputText(), "");
    EXPECT_EQ(daemon->ErrorText(), "");
}

TEST_F(StartTest, PrintsTextsOfTheConfigurationAsTheyStand) {
    Configure(Configuration(Marker("100%s %n: \xc3\xa4") + Marker("") + Marker(" blank ")));
    StartDaemon();

    EXPECT_TRUE(WaitForLine(Loaded("100%s %n: \xc3\xa4")));
    EXPECT_TRUE(WaitForLine(Loaded("")));
    EXPECT_TRUE(WaitForLine(Loaded(" blank ")));

    StopDaemon();
}

TEST_F(StartTest, RefusesMoreArgumentsThanItCouldPassOn) {
    struct Row {
        std::vector<std::string> options;
        const char* tag;
    };
    const std::vector<Row> rows = {{std::vector<std::string>(18, "-W"), "WP"},
                                   {std::vector<std::string>(17, "-w"), "P "}};
    std::vector<std::string> expected;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.tag);
        tag = row.tag;

        EXPECT_EQ(RunToItsEnd(row.options), 1);

        expected.push_back(Error("too many arguments"));
        expected.push_back(Exit(1));
        EXPECT_TRUE(WaitForLine(Exit(1)));
        EXPECT_EQ(Lines(), expected);
    }
}

TEST_F(StartTest, KeepsNothingOpenButTheConnectionToTheLog) {
    Configure(Configuration(Marker("one") + FailingJob()));

    StartDaemon();

    ASSERT_TRUE(WaitForTraces("remedy", 1));
    // At the instants of a heartbeat or a look at the configuration there is one more.
    std::map<int, std::string> open;
    EXPECT_TRUE(WaitUntil(
        [&] {
            open = OpenDescriptors(daemon->Pid());
            return open.size() == 1 && open.begin()->second.rfind("socket:", 0) == 0;
        },
        Generous))
        << ::testing::PrintToString(open);
    StopDaemon();
}

TEST_F(StartTest, WorksWhenStartedWithStandardDescriptorsClosed) {
    for (const std::vector<int>& closed : std::vector<std::vector<int>>{{0, 1, 2}, {0}, {1, 2}}) {
        SCOPED_TRACE(::testing::PrintToString(closed));
        Configure(Configuration(FailingJob()));
        StartOptions start;
        start.closedDescriptors = closed;

        StartDaemon({"-f"}, start);

        EXPECT_TRUE(WaitForTraces("remedy", 1));
        EXPECT_TRUE(WaitForLine(RemedyRuns("web", NoteInShell("remedy"))));
        StopDaemon();
        sandbox->RemoveFile(TracePath("remedy"));
    }
}

TEST_F(StartTest, WorksWithoutASystemLog) {
    ASSERT_TRUE(sandbox->RemoveFile("/dev/log"));
    Configure(Configuration(FailingJob()));

    StartDaemon();

    EXPECT_TRUE(WaitForTraces("remedy", 2));
    EXPECT_TRUE(WaitForHeartbeat());
    daemon->Signal(SIGTERM);
    EXPECT_EQ(EndOfDaemon(Prompt), std::optional<int>(0));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(StartTest, UnderstandsCommandsAndEndsWhateverSignalsItsStarterIgnoredOrBlocked) {
    Configure(Configuration(
        Job("good", Check(Note("good") + "; exit 0", "delay=\"1\"") + Remedy("true")) +
        Job("bad", Check("exit 2", "delay=\"1\" runactionresult=\"2\"") + Remedy("true"))));
    StartOptions start;
    start.ignoredSignals = {SIGCHLD};
    start.blockedSignals = {SIGTERM, SIGCHLD, SIGINT, SIGALRM};

    StartDaemon({"-f"}, start);

    EXPECT_TRUE(WaitForLine(RemedyRuns("bad", "true"), 2));
    EXPECT_TRUE(WaitForTraces("good", 2));
    StopDaemon();
    EXPECT_THAT(ArrivalsOf(RemedyRuns("good", "true")), IsEmpty());
    EXPECT_THAT(Lines(), ::testing::Each(::testing::AnyOf(RemedyRuns("bad", "true"), Exit(0))));
}

}  // namespace kennly::test
