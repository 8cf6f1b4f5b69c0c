#include "system/CtlFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// What a command finds around it: the same, be it started by the daemon or by "kennlyctl test".
class CtlSurroundingsTest : public CtlTest {
protected:
    /// A script that writes all there is to know, but for the numbers of processes, to the file
    /// "report".
    void WriteScript(const std::string& name) const {
        const std::string script = R"sh(#!/bin/sh
exec 9>)sh" + PathOf("draft") + R"sh(
find /proc/$$/fd -mindepth 1 -printf '%f %l\n' >&9
{
    pwd
    umask
    env | sort | grep -v -e ^_= -e ^SHLVL= -e ^PWD= -e ^OLDPWD=
    grep -e ^Sig[IB] -e ^[UG]id: -e ^Groups -e ^Cap -e ^NoNewPrivs /proc/self/status
    cat /proc/$$/limits /proc/$$/oom_score_adj
    read -r line </proc/$$/stat
    set -- ${line##*)}
    echo "terminal $5, nice ${17}"
    [ "$3" = $$ ] || echo "not the leader of its group"
    [ "$4" = $$ ] || echo "not the leader of its session"
    [ "$3" = "$4" ] && echo "in the group that leads its session"
    echo end
} >&9 2>&9
mv )sh" + PathOf("draft") + " " + PathOf("report") +
                                   "\n";
        ASSERT_TRUE(sandbox->WriteFile(PathOf(name), script));
        std::filesystem::permissions(sandbox->PathInside(PathOf(name)),
                                     std::filesystem::perms(0755));
    }

    void SetUp() override {
        CtlTest::SetUp();
        ASSERT_TRUE(sandbox);
        WriteScript("script");
        Configure(
            Configuration(Job("one", Check(PathOf("script"), "delay=\"600\"") + Remedy("true"))));
    }

    /// What the daemon gives the command.
    std::string ReportOfDaemon() {
        const std::string report = ReportOf("report");
        EXPECT_TRUE(sandbox->RemoveFile(PathOf("report")));
        return report;
    }
    /// What kennlyctl gives it, which is started in quite other surroundings.
    std::string ReportOfCtl(const std::vector<std::string>& more = {}) {
        StartOptions start;
        start.environment = {{"PATH", "/usr/bin:/bin:/elsewhere"}, {"OF_CTL", "yes"}};
        start.workingDirectory = "/tmp";
        start.ignoredSignals = {SIGPIPE, SIGUSR1, SIGALRM};
        start.blockedSignals = {SIGUSR2};
        std::string arguments;
        for (const std::string& argument : more) {
            arguments += " " + argument;
        }
        answer = InShell("umask 0; exec 7</dev/zero; exec $CTL test" + arguments + " one", start);
        EXPECT_EQ(answer.status, 0) << answer.out << answer.err;
        return ReportOf("report");
    }
    static StartOptions ForDaemon() {
        StartOptions start;
        start.environment = {{"PATH", "/usr/bin:/bin:/nowhere"}, {"OF_DAEMON", "yes"}};
        start.workingDirectory = DataDirectory + "/config";
        return start;
    }

    Answer answer;  // of the last test
};

TEST_F(CtlSurroundingsTest, AreThoseOfTheRunningTree) {
    StartTrees({}, MainTree, ForDaemon());
    const std::string ofDaemon = ReportOfDaemon();

    EXPECT_EQ(ReportOfCtl(), ofDaemon);

    EXPECT_THAT(ofDaemon,
                AllOf(HasSubstr("OF_DAEMON=yes"), StartsWith("1 "), HasSubstr("\n2 /dev/null\n9 "),
                      HasSubstr(DataDirectory + "/config\n"), HasSubstr("terminal 0")));
    EXPECT_THAT(answer.out, HasSubstr("as: the daemon's process " + Role("C ").number + "\n"));
}

TEST_F(CtlSurroundingsTest, AreThoseOfTheDaemonInTheForeground) {
    StartDaemon({"-f"}, ForDaemon());
    const std::string ofDaemon = ReportOfDaemon();
    EXPECT_EQ(ReportOfCtl(), ofDaemon);
}

TEST_F(CtlSurroundingsTest, AreThoseOfTheRightTree) {
    Configure(Configuration(Job("one", Check(PathOf("script"), "delay=\"600\"") + Remedy("true"))),
              WatcherConfiguration);
    ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));
    StartOptions other;
    other.environment = {{"OF_OTHER", "yes"}};
    const auto foreground = sandbox->Start({KENNLY_PROGRAM, "-f"}, other);  // has a lower number
    ASSERT_TRUE(WaitForHeartbeat());
    const auto first = sandbox->Start({KENNLY_PROGRAM, "-W"}, ForDaemon());
    const std::string ofDaemon = ReportOfDaemon();
    EXPECT_EQ(ReportOfCtl({"-W"}), ofDaemon);
}

TEST_F(CtlSurroundingsTest, HaveTheDaemonsOwnLimitsAndSignals) {
    StartOptions start = ForDaemon();
    start.ignoredSignals = {SIGALRM, SIGWINCH};
    daemon = sandbox->Start({"sh", "-c",
                             "umask 027; ulimit -n 77; ulimit -c 0; ulimit -s 1024; ulimit -f 9999;"
                             "exec nice -n 5 " KENNLY_PROGRAM " -f"},
                            start);
    const std::string ofDaemon = ReportOfDaemon();

    EXPECT_EQ(ReportOfCtl(), ofDaemon);

    EXPECT_THAT(ofDaemon, AllOf(HasSubstr("\n0027\n"), HasSubstr("nice 5\n")));
    EXPECT_THAT(ofDaemon, ::testing::ContainsRegex("Max open files  *77  *77 "));
}

TEST_F(CtlSurroundingsTest, AreTheDaemonsDirectoryEvenOnceItIsRemoved) {
    Configure(Configuration(Job(
        "one", Check("{ readlink /proc/self/cwd >" + PathOf("report") + "; }") + Remedy("true"))));
    StartOptions start;
    start.workingDirectory = PathOf("gone");
    std::filesystem::create_directory(sandbox->PathInside(start.workingDirectory));
    StartDaemon({"-f"}, start);
    ASSERT_TRUE(WaitForHeartbeat());
    std::filesystem::remove(sandbox->PathInside(start.workingDirectory));

    EXPECT_EQ(Ctl({"test", "one"}).status, 0);

    EXPECT_EQ(sandbox->ReadFile(PathOf("report")), PathOf("gone") + " (deleted)\n");
}

TEST_F(CtlSurroundingsTest, HaveTheDaemonsOwnUser) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    const std::string copy = PathOf("kennly");  // where nobody may have it executed
    std::filesystem::copy_file(KENNLY_PROGRAM, sandbox->PathInside(copy));
    std::filesystem::permissions(sandbox->PathInside(DataDirectory), std::filesystem::perms(0777));
    daemon = sandbox->Start(
        {"setpriv", "--reuid=65534", "--regid=65533", "--groups=12,34", copy, "-f"}, ForDaemon());
    const std::string ofDaemon = ReportOfDaemon();

    EXPECT_EQ(ReportOfCtl(), ofDaemon);

    EXPECT_THAT(ofDaemon, HasSubstr("Uid:\t65534\t65534"));
}

TEST_F(CtlSurroundingsTest, AreAsAfterAStartFromHereWhereNoDaemonRuns) {
    StartDaemon({"-f"}, ForDaemon());
    const std::string ofDaemon = ReportOfDaemon();
    StopDaemon();
    answer = Ctl({"test", "one"}, ForDaemon());
    EXPECT_THAT(answer.out, HasSubstr("as: this process, since no daemon runs"));
    const std::string report = ReportOf("report");
    EXPECT_THAT(report,
                AllOf(HasSubstr("OF_DAEMON=yes"), StartsWith("1 "), HasSubstr("\n2 /dev/null\n9 "),
                      HasSubstr(DataDirectory + "/config\n"), HasSubstr("terminal 0")));
}

TEST_F(CtlSurroundingsTest, AreItsOwnWhereItMayNotLookAtTheDaemons) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    Configure(Configuration(Job("one", Check("test \"$(id -u)\" = 65534") + Remedy("true"))));
    StartDaemon({"-f"});
    const Answer test = CtlAsNobody("test one");
    EXPECT_EQ(test.status, 0) << test.out;
    EXPECT_THAT(test.out, HasSubstr("or this user may not look at it"));
}

}  // namespace kennly::test
