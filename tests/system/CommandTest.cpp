#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;

class CommandTest : public DaemonTest {
protected:
    /// A job that writes the output of `command` once as its check and once as its remedy.
    void ReportFromCheckAndRemedy(const std::string& command) {
        Configure(Configuration(
            Job("web", Check(Reporting(command, "check") + "; exit 1", "delay=\"600\"") +
                           Remedy("sh -c '" + Reporting(command, "remedy") + "'"))));
    }

    static std::string ReportedField(const std::string& report, const std::string& field) {
        const std::size_t begin = report.find(field + ":\t");
        EXPECT_NE(begin, std::string::npos) << report;
        return begin == std::string::npos ? "" : report.substr(begin + field.size() + 2, 16);
    }

    /// Some shells unblock all signals when they start, others pass on what they were given.
    void ExpectNoThreadToBlockSignals() const {
        std::vector<std::string> blocked;
        const auto noneBlocked = [&] {  // while a command runs, its starter blocks SIGCHLD
            blocked = BlockedSignalsOfThreads(daemon->Pid());
            return blocked == std::vector<std::string>(4, std::string(16, '0'));
        };
        EXPECT_TRUE(WaitUntil(noneBlocked, Generous)) << ::testing::PrintToString(blocked);
    }

    pid_t FindCommand(const std::string& part) const {
        for (const pid_t process : sandbox->Processes()) {
            const std::string command = ProcessFile(process, "cmdline");
            if (command.find(part) != std::string::npos &&
                ProcessFile(process, "comm") != "kennly\n") {
                return process;
            }
        }
        return 0;
    }
};

TEST_F(CommandTest, HasNoSignalBlockedAndObeysSIGTERM) {
    struct Row {
        const char* option;
        const char* tag;
        std::vector<int> ignored;
    };
    const std::vector<Row> rows = {
        {"-f", "  ", {SIGPIPE}},
        {"-Z", "C ", {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGUSR1, SIGUSR2}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.option);
        SetUp();
        tag = row.tag;
        ReportFromCheckAndRemedy("grep Sig /proc/self/status");

        StartDaemon({row.option});

        const std::string none(16, '0');
        const std::string check = ReportOf("check");
        EXPECT_EQ(ReportedField(check, "SigBlk"), none);
        std::uint64_t ignored = 0;
        for (const int signal : row.ignored) {
            ignored |= std::uint64_t{1} << (signal - 1);
        }
        // The C library keeps signals above these for itself; they come from the test's starter.
        const std::uint64_t ordinary = 0x7fffffff;
        EXPECT_EQ(std::stoull(ReportedField(check, "SigIgn"), nullptr, 16) & ordinary, ignored);
        const std::string remedy = ReportOf("remedy");
        EXPECT_EQ(ReportedField(remedy, "SigBlk"), none);
        EXPECT_FALSE(HasSignal(ReportedField(remedy, "SigIgn"), SIGTERM));
        EXPECT_FALSE(HasSignal(ReportedField(remedy, "SigIgn"), SIGCHLD));
        EXPECT_TRUE(HasSignal(ReportedField(remedy, "SigIgn"), SIGHUP));
        ExpectNoThreadToBlockSignals();
        StopDaemon();
    }
}

TEST_F(CommandTest, KeepsItsSignalsAsTheyAreWhenTheStarterBlockedThem) {
    ReportFromCheckAndRemedy("grep Sig /proc/self/status");
    StartOptions start;
    start.blockedSignals = {SIGTERM, SIGUSR1, SIGCHLD};
    start.ignoredSignals = {SIGCHLD};

    StartDaemon({"-f"}, start);

    for (const std::string name : {"check", "remedy"}) {
        const std::string report = ReportOf(name);
        EXPECT_EQ(ReportedField(report, "SigBlk"), std::string(16, '0')) << name;
        EXPECT_FALSE(HasSignal(ReportedField(report, "SigIgn"), SIGCHLD)) << name;
    }
    ExpectNoThreadToBlockSignals();
    StopDaemon();
}

TEST_F(CommandTest, OfARemedyOutlivesTheDaemonAndAHangUp) {
    // A hang-up that is not ignored would end it before the later signal does.
    Configure(Configuration(Job(
        "web", Check("exit 1", "delay=\"600\"") +
                   Remedy("sh -c 'trap \"echo end >" + PathOf("ended") + "; exit\" TERM; touch " +
                          PathOf("ready") + "; while :; do sleep 1; done'"))));
    StartDaemon();
    ASSERT_TRUE(WaitUntil([&] { return sandbox->FileExists(PathOf("ready")); }, Generous));
    StopDaemon();

    const pid_t remedy = FindCommand("trap");
    ASSERT_GT(remedy, 0);
    ASSERT_TRUE(Ignores(remedy, SIGHUP));
    ASSERT_EQ(kill(remedy, SIGHUP), 0);
    ASSERT_EQ(kill(remedy, SIGTERM), 0);

    EXPECT_EQ(ReportOf("ended"), "end\n");
}

TEST_F(CommandTest, OfARemedyIsNotWaitedFor) {
    Configure(Configuration(Job("web", Check("exit 1") + Remedy("sleep 1000"))));

    StartDaemon();

    EXPECT_TRUE(WaitForLine(RemedyRuns("web", "sleep 1000"), 3));
    StopDaemon();
}

TEST_F(CommandTest, WritesNothingToTheDaemonsOutput) {
    Configure(Configuration(Job("web", Check("echo noise; echo noise >&2; ls /no/such/file") +
                                           Remedy("sh -c 'echo noise; echo noise >&2'"))));
    StartOptions start;
    start.captureOutput = true;
    start.captureError = true;

    StartDaemon({"-f"}, start);

    EXPECT_TRUE(WaitForLine(RemedyRuns("web", "sh -c 'echo noise; echo noise >&2'"), 2));
    StopDaemon();
    EXPECT_EQ(daemon->OutputText(), "");
    EXPECT_EQ(daemon->ErrorText(), "");
}

TEST_F(CommandTest, OfARemedyThatDoesNotExistIsAnnouncedAllTheSame) {
    Configure(Configuration(Job("web", Check("exit 1") + Remedy("/no/such/command"))));

    StartDaemon();

    EXPECT_TRUE(WaitForLine(RemedyRuns("web", "/no/such/command"), 2));
    StopDaemon();
    EXPECT_THAT(Lines(), Each(AnyOf(RemedyRuns("web", "/no/such/command"), Exit(0))));
}

TEST_F(CommandTest, ReachesTheShellAsItStandsInTheFile) {
    const std::string check = "echo \"a && b <c> 'd' %s\" >" + PathOf("check") + "\necho end >>" +
                              PathOf("check") + "\ntrue";
    Configure(Configuration(Job("web", Check(check, "delay=\"600\"") + Remedy("true"))));

    StartDaemon();

    EXPECT_EQ(ReportOf("check"), "a && b <c> 'd' %s\nend\n");
    StopDaemon();
    EXPECT_THAT(Lines(), ::testing::ElementsAre(Exit(0)));
}

}  // namespace kennly::test
