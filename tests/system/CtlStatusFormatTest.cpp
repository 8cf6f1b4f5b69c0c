#include <algorithm>

#include "system/CtlStatusFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

/// The forms of "kennlyctl status" for monitoring, and for who looks on.
class CtlStatusFormatTest : public CtlStatusFixture {
protected:
    static std::size_t CountOf(const std::string& text, const std::string& part) {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos;
             at = text.find(part, at + part.size())) {
            ++count;
        }
        return count;
    }
    /// The metrics, once promtool has no fault to find with them.
    std::string Metrics() const {
        const Answer answer = InShell("$CTL status --prometheus >" + PathOf("metrics") +
                                      " && promtool check metrics <" + PathOf("metrics"));
        EXPECT_EQ(answer.status, 0) << answer.out << answer.err;
        EXPECT_EQ(answer.out + answer.err, "");
        return sandbox->ReadFile(PathOf("metrics")).value_or("");
    }
};

TEST_F(CtlStatusFormatTest, ClearsATerminalBeforeEachLook) {
    const std::string clear = "\033[H\033[2J";
    const auto hasThreeLooks = [](const std::string& text) {
        return CountOf(text, "dogdog.xml: ") == 3;
    };
    struct Row {
        const char* variables;
        std::string begin;
        std::size_t clearings;
    };
    for (const Row& row :
         std::vector<Row>{{"NO_COLOR= TERM=xterm", clear + "\033[1mmain tree\033[0m: ", 3},
                          {"NO_COLOR=1 TERM=xterm", clear + "main tree: ", 3},
                          {"NO_COLOR= TERM=dumb", "main tree: ", 0}}) {
        SCOPED_TRACE(row.variables);
        const std::string shown = OnTerminal(row.variables, "status --watch", hasThreeLooks).out;
        EXPECT_THAT(shown, StartsWith(row.begin));
        EXPECT_EQ(CountOf(shown, clear), row.clearings);
    }
}

TEST_F(CtlStatusFormatTest, DoesNotShowAllAsWellBeforeItHasLookedTwice) {
    const auto watching = StartCtl({"status", "--watch"});
    ASSERT_TRUE(WaitUntil(
        [&] { return CountOf(watching->OutputText(), "watcher tree: does not run") >= 3; },
        Generous));
    const std::string shown = watching->OutputText();
    const std::size_t second = shown.find("main tree: does not run", 1);
    const std::string undecided = "what is wrong is not known yet: looking once more\n";
    EXPECT_THAT(shown.substr(0, second), AllOf(HasSubstr(undecided), Not(HasSubstr("critical"))));
    EXPECT_THAT(shown.substr(second),
                AllOf(HasSubstr("critical: [not-running]"), Not(HasSubstr(undecided))));
}

TEST_F(CtlStatusFormatTest, TellsAPluginThatAllIsWell) {
    StartMainTree();
    ASSERT_TRUE(WaitForProblems({}));
    const Answer answer = Plugin();
    EXPECT_EQ(answer.status, 0);
    EXPECT_THAT(answer.out, MatchesRegex("KENNLY OK - main tree runs, 2 jobs \\| jobs=2 "
                                         "heartbeat_age=[0-9.]+s;;6\n"));
}

TEST_F(CtlStatusFormatTest, TellsAPluginWhatIsWrong) {
    const Answer nothing = Plugin();
    EXPECT_EQ(nothing.status, 2);
    EXPECT_THAT(nothing.out, MatchesRegex("KENNLY CRITICAL - main tree: no process runs[^|\n]*"
                                          "\\| jobs=2\n"));

    std::filesystem::remove_all(sandbox->PathInside(DataDirectory + "/heartbeats"));
    StartMainTree();
    const Answer warning = Plugin();
    EXPECT_EQ(warning.status, 1);
    EXPECT_THAT(warning.out, StartsWith("KENNLY WARNING - main tree: " + DataDirectory));

    SendTo("C ", SIGKILL);
    ASSERT_TRUE(WaitForProblem("child-dead"));
    EXPECT_EQ(Plugin().status, 2);
    EXPECT_THAT(Plugin().out, StartsWith("KENNLY CRITICAL - main tree: the parent"));
}

TEST_F(CtlStatusFormatTest, GivesMetricsThatPrometheusTakes) {
    EXPECT_THAT(Metrics(), AllOf(HasSubstr("kennly_up{tree=\"main\"} 0\n"),
                                 HasSubstr("{code=\"not-running\",level=\"critical\"} 1\n")));
    PutFile(PathOf("block"), 1);
    const std::string blocked = Remedy("true", "blockaction=\"" + PathOf("block") + "\"");
    Configure(Configuration(Job("a\\b &lt;&quot;c&quot;>\n\xFF{}", Check("sleep 1000") + blocked)));
    StartTrees({"-w"}, BothTrees);
    ASSERT_TRUE(WaitForBeatsOf(BothTrees));

    const std::string metrics = Metrics();

    EXPECT_THAT(metrics,
                AllOf(HasSubstr("kennly_up{tree=\"main\"} 1\nkennly_up{tree=\"watcher\"} 1\n"),
                      HasSubstr("kennly_processes{tree=\"main\",role=\"parent\"} 1\n"
                                "kennly_processes{tree=\"main\",role=\"child\"} 1\n"),
                      HasSubstr("kennly_heartbeat_age_seconds{tree=\"watcher\",role=\"parent\"} "),
                      HasSubstr("kennly_threads{tree=\"main\"} 4\n"),
                      HasSubstr("kennly_threads_expected{tree=\"main\"} 4\n"),
                      HasSubstr("kennly_config_loads{tree=\"main\"} 1\n")));
    // What is no text, and the line end, are shown as on a terminal.
    EXPECT_THAT(metrics, HasSubstr("kennly_job_blocked{tree=\"main\",job_name=\"a\\\\b "
                                   "<\\\"c\\\">\\\\x0A\\\\xFF{}\"} 1\n"));
    EXPECT_THAT(metrics, HasSubstr("kennly_job_check_running_seconds{tree=\"main\",job_name=\"a"));
}

TEST_F(CtlStatusFormatTest, RedrawsUntilItIsInterrupted) {
    StartMainTree();
    const auto watching = StartCtl({"status", "--watch"});
    ASSERT_TRUE(WaitUntil(
        [&] { return CountOf(watching->OutputText(), "watcher tree: does not run") >= 3; },
        Generous));
    EXPECT_THAT(watching->OutputText(), Not(HasSubstr("\033")));
    ASSERT_TRUE(watching->Signal(SIGINT));
    const std::optional<int> end = watching->WaitForEnd(Generous);
    ASSERT_TRUE(end);
    EXPECT_TRUE(WIFSIGNALED(*end) && WTERMSIG(*end) == SIGINT) << *end;
}

TEST_F(CtlStatusFormatTest, RedrawsWithWhatIsWrongMeanwhile) {
    StartMainTree();
    const auto watching = StartCtl({"status", "--watch"});
    const auto showsProblem = [&](std::size_t times) {
        return CountOf(watching->OutputText(), "critical: [child-dead]") >= times;
    };
    ASSERT_TRUE(WaitUntil([&] { return CountOf(watching->OutputText(), "main tree: runs") >= 2; },
                          Generous));
    EXPECT_FALSE(showsProblem(1));
    SendTo("C ", SIGKILL);
    EXPECT_TRUE(WaitUntil([&] { return showsProblem(2); }, Generous));
}

TEST_F(CtlStatusFormatTest, EndsWhenNobodyReadsItAnyMore) {
    struct Row {
        const char* trap;
        const char* said;
    };
    for (const Row& row : {Row{"", ""}, Row{"trap '' PIPE; ",
                                            "kennlyctl: cannot write to standard "
                                            "output\n"}}) {
        SCOPED_TRACE(row.trap);
        const Answer answer = InShell(std::string(row.trap) + "$CTL status --watch | head -n 1");
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.out, "main tree: does not run\n");
        EXPECT_EQ(answer.err, row.said);
    }
}

TEST_F(CtlStatusFormatTest, RefusesTwoFormsAtOnce) {
    const Answer answer = Ctl({"status", "--json", "--plugin"});
    EXPECT_EQ(answer.status, 64);
    EXPECT_EQ(answer.out, "");
    EXPECT_NE(answer.err, "");
}

}  // namespace kennly::test
