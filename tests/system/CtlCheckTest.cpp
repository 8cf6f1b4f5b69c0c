#include "system/CtlFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// "kennlyctl check" as an administrator, a script and a terminal see it.
class CtlCheckTest : public CtlTest {
protected:
    /// Makes a file other than the live one. Returns its path.
    std::string File(const std::string& content) const {
        EXPECT_TRUE(sandbox->WriteFile(PathOf("file.xml"), content));
        return PathOf("file.xml");
    }
    /// With a delay, a time limit and a path that is there, nothing is left to be said.
    static std::string Clean() {
        return Configuration(
            Job("web", Check("timeout 5 true", "delay=\"5\"") + Remedy("true", "delay=\"1\"")));
    }
    static std::string WithWarning() {
        return Configuration(Job("web", Check("timeout 5 true") + Remedy("true")));
    }
    static std::string WithError() { return Configuration(Job("web", Remedy("true"))); }

    /// What a terminal is shown of a check; `variables` are the shell's.
    std::string CheckOnTerminal(const std::string& variables, const std::string& file) const {
        const Answer answer = OnTerminal(variables, "check " + sandbox->PathInside(file));
        EXPECT_EQ(answer.status, 1) << answer.out;
        return answer.out;
    }
};

TEST_F(CtlCheckTest, TellsByItsStatusWhatItHasFound) {
    struct Row {
        const char* name;
        std::string content;
        int status;
        int statusIfStrict;
    };
    for (const Row& row : std::vector<Row>{{"clean", Clean(), 0, 0},
                                           {"a warning", WithWarning(), 0, 1},
                                           {"an error", WithError(), 1, 1},
                                           {"broken", "<kennly><job></kennly>", 2, 2},
                                           {"empty", "", 2, 2}}) {
        SCOPED_TRACE(row.name);
        const std::string file = File(row.content);
        const Answer answer = Ctl({"check", file});
        EXPECT_EQ(answer.status, row.status) << answer.out << answer.err;
        EXPECT_EQ(Ctl({"check", "--strict", file}).status, row.statusIfStrict);
        EXPECT_EQ(answer.err, "");
    }
}

TEST_F(CtlCheckTest, TellsOfWrongOptions) {
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {}, {"check", "--loud"}, {"check", "a", "b"}, {"examine"}, {"--strict"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const Answer answer = Ctl(arguments);
        EXPECT_EQ(answer.status, 64);
        EXPECT_EQ(answer.out, "");
        EXPECT_NE(answer.err, "");
    }
}

TEST_F(CtlCheckTest, ExplainsItselfOnRequest) {
    for (const char* const verb :
         {"check", "apply", "status", "test", "block", "unblock", "blocks", "start", "stop"}) {
        SCOPED_TRACE(verb);
        const Answer answer = Ctl({verb, "--help"});
        EXPECT_EQ(answer.status, 0);
        EXPECT_THAT(answer.out, HasSubstr(verb));
        EXPECT_EQ(answer.err, "");
        EXPECT_THAT(Ctl({"--help"}).out, HasSubstr(verb));
    }
}

TEST_F(CtlCheckTest, SaysWhichFileIsNotThere) {
    EXPECT_TRUE(sandbox->WriteFile(PathOf("file"), "x"));
    struct Row {
        std::string path;
        const char* reason;
    };
    for (const Row& row : std::vector<Row>{{PathOf("none.xml"), "No such file or directory"},
                                           {PathOf("none/none.xml"), "No such file or directory"},
                                           {PathOf("file/none.xml"), "Not a directory"}}) {
        SCOPED_TRACE(row.path);
        const Answer answer = Ctl({"check", row.path});
        EXPECT_EQ(answer.status, 66);
        EXPECT_EQ(answer.out, "");
        EXPECT_EQ(answer.err, "kennlyctl: cannot read " + row.path + ": " + row.reason + "\n");
    }
}

TEST_F(CtlCheckTest, SaysThatTheLiveFileIsNotThere) {
    EXPECT_THAT(Ctl({"check"}).err, HasSubstr("cannot read " + MainConfiguration + ": No such"));
    const Answer watcher = Ctl({"check", "--watcher"});
    EXPECT_EQ(watcher.status, 66);
    EXPECT_THAT(watcher.err, HasSubstr("cannot read " + WatcherConfiguration + ": No such"));
}

TEST_F(CtlCheckTest, ChecksTheLiveFileWithoutAnother) {
    Configure(WithError());
    Configure("<broken", WatcherConfiguration);
    EXPECT_EQ(Ctl({"check"}).status, 1);
    EXPECT_EQ(Ctl({"check", "-W"}).status, 2);
}

TEST_F(CtlCheckTest, SaysThatAFileMayNotBeRead) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    const std::string file = File(Clean());
    std::filesystem::permissions(sandbox->PathInside(file), std::filesystem::perms(0600));
    const Answer answer = CtlAsNobody("check " + file);
    EXPECT_EQ(answer.status, 66);
    EXPECT_EQ(answer.err, "kennlyctl: cannot read " + file + ": Permission denied\n");
}

TEST_F(CtlCheckTest, HangsOnNothingThatIsNoFile) {
    std::filesystem::create_directory(sandbox->PathInside(PathOf("directory.xml")));
    ASSERT_EQ(InShell("mkfifo " + PathOf("fifo.xml")).status, 0);
    for (const char* const name : {"directory.xml", "fifo.xml"}) {
        SCOPED_TRACE(name);
        const Answer answer = Ctl({"check", PathOf(name)});
        EXPECT_EQ(answer.status, 2);
        EXPECT_THAT(answer.out, HasSubstr("not a regular file"));
        EXPECT_EQ(Ctl({"check", "--json", PathOf(name)}).status, 2);
    }
}

TEST_F(CtlCheckTest, SaysWhereAndWhat) {
    const std::string file =
        File("<kennly>\n<job name=\"web\" enabled=\"true\">\n" +
             Check("timeout 5 true", "delay=\"5m\"") + Remedy("true") + "</job>\n</kennly>\n");
    const Answer answer = Ctl({"check", file});
    EXPECT_EQ(answer.status, 0);
    EXPECT_THAT(answer.out, StartsWith(file + ":3:"));
    EXPECT_THAT(answer.out, HasSubstr(": warning: [not-a-number] "));
    EXPECT_THAT(answer.out, EndsWith("\n" + file + ": 1 job, 0 errors, 1 warning, 0 notes\n"));
}

TEST_F(CtlCheckTest, SaysFirstWhatTheDaemonWouldLog) {
    const std::string file = File(Configuration(Marker("off")) + "\n");
    EXPECT_THAT(Ctl({"check", file}).out,
                StartsWith("the daemon would log: debug: " + LoadedText("off") + "\n"));
    EXPECT_EQ(Ctl({"check", "--as-daemon", file}).out, LoadedText("off") + "\n");
}

TEST_F(CtlCheckTest, AgreesWithTheRunningDaemonWordByWord) {
    const std::string content =
        Configuration(Marker("off") + Job("web", Remedy("true")) +
                      Job("web", CheckOfType("Nothing", {"x"}) + Remedy("true")) +
                      "<job enabled=\"true\"/>" + Healthy("loaded") + Marker("end"));
    Configure(content);
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForLine(Loaded("end")));

    const Answer answer = Ctl({"check", "--as-daemon"});

    std::string logged;
    for (const LogLine& line : sandbox->Log()) {
        logged += line.text.substr(line.text.find(':', line.text.find(':') + 1) + 2);
    }
    EXPECT_EQ(answer.out, logged);
    EXPECT_EQ(answer.status, 1);
}

TEST_F(CtlCheckTest, IsSilentOnRequestAboutWhatIsRight) {
    EXPECT_EQ(Ctl({"check", "--quiet", File(Clean())}).out, "");
    const Answer answer = Ctl({"check", "--quiet", File(WithError())});
    EXPECT_THAT(answer.out, HasSubstr("error: [no-check]"));
    EXPECT_THAT(answer.out, Not(HasSubstr("1 error")));
}

TEST_F(CtlCheckTest, WritesJson) {
    const std::string file = File(WithError());
    const Answer answer = Ctl({"check", "--json", file});
    EXPECT_EQ(answer.status, 1);
    const nlohmann::json json = nlohmann::json::parse(answer.out);
    EXPECT_EQ(json.at("file"), file);
    EXPECT_EQ(json.at("loads"), true);
    EXPECT_EQ(json.at("jobs"), nlohmann::json::array());
    EXPECT_EQ(json.at("daemon").at(0).at("priority"), "err");
    EXPECT_EQ(json.at("daemon").at(0).at("text"), "no check defined in job: web");
    const nlohmann::json& finding = json.at("findings").at(0);
    EXPECT_EQ(finding.at("severity"), "error");
    EXPECT_EQ(finding.at("code"), "no-check");
    EXPECT_EQ(finding.at("line"), 2);

    EXPECT_EQ(nlohmann::json::parse(Ctl({"check", "--json", File("<a><b></a>")}).out).at("loads"),
              false);
}

TEST_F(CtlCheckTest, WritesJsonOfBytesThatAreNoText) {
    const std::string content = Configuration(Job("w\xFF\x80", Remedy("true")));
    const nlohmann::json json = nlohmann::json::parse(Ctl({"check", "--json", File(content)}).out);
    EXPECT_EQ(json.at("daemon").at(0).at("text"), "no check defined in job: w\uFFFD\uFFFD");
}

TEST_F(CtlCheckTest, UsesColoursOnATerminalAlone) {
    const std::string file = File(WithError());
    EXPECT_THAT(CheckOnTerminal("NO_COLOR= TERM=xterm", file),
                HasSubstr("\033[31merror\033[0m: [no-check]"));
    for (const char* const variables : {"NO_COLOR=1 TERM=xterm", "NO_COLOR= TERM=dumb"}) {
        SCOPED_TRACE(variables);
        EXPECT_THAT(CheckOnTerminal(variables, file),
                    AllOf(HasSubstr("error: [no-check]"), Not(HasSubstr("\033"))));
    }
    StartOptions xterm;
    xterm.environment = {{"TERM", "xterm"}, {"NO_COLOR", ""}};
    EXPECT_THAT(Ctl({"check", file}, xterm).out,
                AllOf(HasSubstr("error: [no-check]"), Not(HasSubstr("\033"))));
}

TEST_F(CtlCheckTest, LetsNoFileMoveTheCursor) {
    const std::string file = File(Configuration(Job("a&#27;[2Jb", Remedy("true"))));
    const Answer answer = Ctl({"check", file});
    EXPECT_THAT(answer.out, AllOf(HasSubstr("a\\x1B[2Jb"), Not(HasSubstr("\033"))));
}

}  // namespace kennly::test
