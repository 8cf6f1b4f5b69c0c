#include "lint/CommandRules.h"

#include <sys/wait.h>

#include <cstdlib>

#include "job/ResultCode.h"
#include "unit/lint/LintTest.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using CommandRulesTest = LintTest;

Trap Pair(const char* code, const std::string& trap, const std::string& twin) {
    return {code, code, WithCheck(CheckOf(trap)), WithCheck(CheckOf(twin))};
}

// The exit status of a command as the daemon runs it: without standard descriptors.
int StatusOf(const std::string& command) {
    const std::string line = "exec 0<&- 1<&- 2<&-\n" + DogCheckCommandWatch::CommandLineOf(command);
    const int waitStatus = std::system(line.c_str());
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

TEST_F(CommandRulesTest, FindsListsWhoseOutputIsClosed) {
    const char* const code = "list-without-braces";
    ExpectTraps({
        Pair(code, "grep root /etc/passwd &amp;&amp; test -d /etc",
             "{ grep root /etc/passwd &amp;&amp; test -d /etc; }"),
        Pair(code, "echo hi; true", "sh -c 'echo hi; true'"),
        Pair(code, "echo hi || true", "echo hi >/dev/null || true"),
        Pair(code, "df /; true", "test -d / &amp;&amp; df /"),
        Pair(code, "ls\nls", "ls | wc -l"),
        Pair(code, "timeout 5 ls / &amp;&amp; true", "timeout 5 test -d / &amp;&amp; true"),
        Pair(code, "grep -c root /etc/passwd &amp;&amp; true",
             "grep -qs root /etc/passwd &amp;&amp; true"),
        Pair(code, "systemctl is-active a &amp;&amp; true",
             "/usr/bin/systemctl is-active --quiet a &amp;&amp; true"),
        Pair(code, "cmp /a /b; true", "cmp -s /a /b; true"),
        Pair(code, "env A=b; true", "A=b; true"),
        Pair(code, "id; true", "f() { id; }; f"),
    });
    const auto loudness = [&](const std::string& command) {
        return Those(WithCheck(CheckOf(command)), code).at(0).severity;
    };
    EXPECT_EQ(loudness("id; true"), Severity::Warning);
    EXPECT_EQ(loudness("for i in 1 2; do test -e $i; done; true"), Severity::Note)
        << "nobody but the shell knows whether that writes";
    EXPECT_EQ(loudness(". /etc/profile; true"), Severity::Note);
}

TEST_F(CommandRulesTest, FindsCommandsThatNeverFail) {
    const char* const code = "never-fails";
    ExpectTraps({
        Pair(code, "/bin/false;", "/bin/false"),
        Pair(code, "/bin/false &amp;", "/bin/false"),
        Pair(code, "  ", "true"),
        Pair(code, "# df /", "df /"),
        Pair(code, "/bin/false\n", "/bin/false"),
        Pair(code, "/bin/false &amp;&gt;/dev/null", "/bin/false &gt;/dev/null 2&gt;&amp;1"),
        Pair(code, "/bin/false &amp; # c", "/bin/false; # c"),
        Pair(code, "/bin/false\n\n", "/bin/false\n# c"),
    });
    const auto text = [&](const std::string& attributes) {
        return Those(WithCheck(CheckOf("/bin/false;", "delay='1' " + attributes)), code).at(0).text;
    };
    EXPECT_THAT(text(""), HasSubstr("passes for ever"));
    EXPECT_THAT(text("runactionresult='0'"), HasSubstr("always fails"));
}

// Nobody but the shell knows whether it gets to the end of these.
TEST_F(CommandRulesTest, PromisesNothingWhereTheShellMayLeaveBeforeTheEnd) {
    const struct {
        const char* command;
        int status;
    } rows[] = {
        {"test -f /nonexistent || exit 1;", 1},
        {"set -e; /bin/false;", 1},
        {"exec timeout 5 /bin/false;", 1},
        {"trap 'exit 3' EXIT; true;", 3},
        {". /nonexistent/file;", 2},
        {"eval 'exit 4';", 4},
        {"X=exit; $X 5;", 5},
        {"command exit 5;", 5},
        {"A=1 exit 5\n", 5},
        {"alias x='exit 5'\nx;", 5},
        {"kill -9 $$;", -1},
        {"test -d ${KENNLY_UNSET:?missing};", 2},
        {"X=$((1 / 0));", 2},
        {": </nonexistent;", 2},
        {"{ test -d /; exit 6; };", 6},
        {"if test -d /; then exit 6; fi;", 6},
        {"f() { exit 6; }; f;", 6},
        {"{ X=${KENNLY_UNSET:?missing}; };", 2},
        {";", 2},
        {"&", 2},
        {" ; ", 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        EXPECT_THAT(Those(WithCheck(CheckOf(Escaped(row.command))), "never-fails"), IsEmpty());
        EXPECT_EQ(StatusOf(row.command), row.status);
    }
    for (const char* const command :
         {"test -d /none;", "kill -0 999999999;", "export A=b; test -d /none;",
          "{ test -d /none; };", "exit 3 &", "sh -c 'exit 3';", "test -d \"$A\";",
          "test -d ${A:-/none};"}) {
        SCOPED_TRACE(command);
        EXPECT_THAT(Those(WithCheck(CheckOf(Escaped(command))), "never-fails"), SizeIs(1));
        EXPECT_EQ(StatusOf(command), 0);
    }
}

TEST_F(CommandRulesTest, FindsSeparatorsWithoutCommands) {
    for (const char* const command : {";", "&", "|", "&& true"}) {
        SCOPED_TRACE(command);
        const auto found = Those(WithCheck(CheckOf(Escaped(command))), "shell-syntax");
        ASSERT_THAT(found, SizeIs(1));
        EXPECT_THAT(found[0].text, HasSubstr("always fails"));
    }
}

TEST_F(CommandRulesTest, FindsWhatTheShellMakesOfTheEnd) {
    ExpectTraps({
        Pair("comment-in-command", "df / # the root", "df /"),
        Pair("comment-in-command", "df / # the root", "echo 'a # b'"),
        Pair("trailing-backslash", "df / \\", "df /"),
        Pair("shell-syntax", "echo 'a", "echo 'a'"),
        Pair("shell-syntax", "if true", "if true; then true; fi"),
        Pair("shell-syntax", "(true", "(true)"),
        Pair("shell-syntax", "sh -c 'if true'", "sh -c 'if true; then true; fi'"),
        Pair("shell-syntax", "timeout 5 sh -ec 'echo (a)'", "bash -c 'a=(1 2)'"),
        Pair("comment-in-command", "{ df /; } # c", "{ df / # c\n}"),
        Pair("comment-in-command", "df / # c", "# c\ndf /"),
        Pair("here-document", "cat &lt;&lt;E\na\nE", "cat &lt;&lt;E | cat\na\nE\ntrue"),
        Pair("here-document", "cat &lt;&lt;-'E'\na\n\tE", "echo '&lt;&lt;E\nE2'"),
        Pair("output-overridden", "df / &gt;/tmp/df", "sh -c 'df / &gt;/tmp/df'"),
        Pair("output-overridden", "df / 1&gt;&gt; /tmp/df", "df / &gt;/dev/null 2&gt;&amp;1"),
        Pair("output-overridden", "df / &gt;/tmp/df", "df / 2&gt;/tmp/df"),
        Pair("output-overridden", "df / &gt;/tmp/df", "df / &gt;/tmp/df; test -s /tmp/df"),
    });
    EXPECT_EQ(Those(WithCheck(CheckOf("test -d / # c")), "comment-in-command").at(0).severity,
              Severity::Note)
        << "it writes nothing";
    const auto text = [&](const std::string& attributes) {
        return Those(WithCheck(CheckOf("echo 'a", "delay='1' " + attributes)), "shell-syntax")
            .at(0)
            .text;
    };
    EXPECT_THAT(text(""), HasSubstr("always fails"));
    EXPECT_THAT(text("runactionresult='1'"), HasSubstr("passes for ever"));
    EXPECT_THAT(text("runactionresult='2'"), HasSubstr("always fails"));
}

TEST_F(CommandRulesTest, FindsWhatReadsTheInputThatIsClosed) {
    const char* const code = "reads-input";
    ExpectTraps({
        Pair(code, "cat", "cat /etc/passwd"),
        Pair(code, "grep -q root", "grep -q root /etc/passwd"),
        Pair(code, "sort -u", "sort -u &lt;/etc/passwd"),
        Pair(code, "wc -l | grep 3", "ls | wc -l"),
        Pair(code, "timeout 5 cat", "timeout 5 cat &lt;/etc/passwd"),
        Pair(code, "sh -c 'read a'", "sh -c 'read a &lt;/etc/passwd'"),
        Pair(code, "test -d /; cat", "exec &lt;/etc/passwd; cat"),
        Pair(code, "cat -", "cat /etc/passwd -"),
        Pair(code, "grep root", "grep -rq root"),
        Pair(code, "grep root", "grep -eroot /etc/passwd"),
        Pair(code, "sed s/a/b/", "sed -ne1p /etc/passwd"),
        Pair(code, "awk 1", "awk 'BEGIN { exit 0 }'"),
        Pair(code, "cat", "cat --version"),
        Pair(code, "cat", "cat $FILES"),
    });
}

TEST_F(CommandRulesTest, FindsPrograms) {
    const char* const code = "command-not-found";
    ExpectTraps({
        Pair(code, "chekc_disk", "df"),
        Pair(code, "/usr/lib/none", "/bin/true"),
        Pair(code, "/etc/passwd", "/bin/true"),
        Pair(code, "timeout 5 chekc_disk", "timeout 5 df"),
        Pair(code, "timeout -k 5 -s KILL 9 chekc_disk", "timeout -k 5 -s KILL 9 df"),
        Pair(code, "df | chekc_disk", "df | cat"),
        Pair(code, "A=1 chekc_disk", "A=1 df"),
        Pair(code, "! chekc_disk", "! df"),
        Pair(code, "chekc_disk", "$PROGRAM"),
        Pair(code, "chekc_disk", "cd /tmp"),
        Pair(code, "sh -c 'timeout 5 /usr/lib/none; [ $? -le 1 ]'", "sh -c 'df /; [ $? -le 1 ]'"),
        Pair(code, "nice -n 5 env -i A=b chekc_disk", "nice -n 5 env -i A=b df"),
        Pair(code, "timeout 5 cd /", "timeout 5 test -d /"),
        Pair(code, "[[ -d / ]]", "bash -c '[[ -d / ]]'"),
    });
    EXPECT_THAT(Those(WithCheck(CheckOf("chekc_disk")), code).at(0).text,
                HasSubstr("the check always fails"));
    EXPECT_THAT(Those(WithCheck(CheckOf("! chekc_disk")), code).at(0).text,
                HasSubstr("this part of the command ends with status 127"));
    EXPECT_THAT(Those(WithCheck(CheckOf("/etc/passwd || true")), code).at(0).text,
                HasSubstr("ends with status 126"));
    const auto hidden =
        Those(WithCheck(CheckOf("chekc_disk", "delay='1' runactionresult='2'")), code);
    ASSERT_THAT(hidden, SizeIs(1));
    EXPECT_THAT(hidden[0].text, HasSubstr("passes for ever"));
    machine.searchPath = "/nowhere";
    EXPECT_THAT(Those(WithCheck(CheckOf("df")), code).at(0).text,
                HasSubstr("\"df\" is not in the"));
}

TEST_F(CommandRulesTest, SaysNothingOfProgramsThatOnlyTheShellCanFind) {
    for (const char* const command :
         {"[ -x /usr/sbin/none ] &amp;&amp; /usr/sbin/none",
          "command -v none &amp;&amp; timeout 5 none", "PATH=/opt/bin:$PATH none",
          "export PATH=/opt/bin; none", "cd /opt &amp;&amp; ./none", ". /opt/functions; none",
          "none() { true; }; none", "runuser -u nobody none", "env PATH=/opt/bin none",
          "/opt/*/none", "cat &lt;&lt;E | cat\nnone\nE\ntrue", "if true; then none; fi"}) {
        EXPECT_THAT(Those(WithCheck(CheckOf(command)), "command-not-found"), IsEmpty()) << command;
    }
}

TEST_F(CommandRulesTest, WarnsOfNothingInSensibleCommands) {
    for (const char* const command : {
             "test -f /etc/passwd",
             "[ -f /etc/passwd ] && [ -s /etc/passwd ]",
             "[ -f /etc/passwd ] && timeout 5 grep -q root /etc/passwd",
             "sh -c 'grep -q \"root\" /etc/passwd && test -d \"/etc\"'",
             "sh -c \"test \\\"\\$(id -u)\\\" = 0\"",
             "test \"$(id -u)\" = 0",
             "test `id -u` -eq 0",
             "test $(df --output=pcent / | tail -1 | tr -d ' %') -lt 90",
             "[ $(cut -d. -f1 /proc/loadavg) -lt $(( $(nproc) * 4 )) ]",
             "[ $((1 << 2)) -eq 4 ]",
             "test $(( $(date +%s) - $(stat -c %Y /etc/passwd) )) -gt 0",
             "S=$(date +%s); test $S -gt 0",
             "case $(uname -s) in Linux) true;; *) false;; esac",
             "if [ -f /run/x ]; then test -d /; else true; fi",
             "while ! test -d /; do sleep 1; done",
             "for i in 1 2 3; do test -d / && exit 0; sleep 1; done; exit 1",
             "while read -r a b; do [ \"$a\" = x ] && exit 1; done </proc/loadavg; exit 0",
             "( cd /etc && test -f passwd )",
             "! ( test -e /x || test -e /y )",
             "{ grep root /etc/passwd && test -d /etc; }",
             "test -d / || { echo no; exit 1; }",
             "timeout -k 5 --signal=TERM 10 env LANG=C df /",
             "env VAR=x df /",
             "LC_ALL=C timeout 5 df /",
             "/usr/bin/nice -n 5 df /",
             "nohup df /",
             "exec df /",
             "timeout 5 df / >/dev/null 2>&1",
             "df / 2>>/tmp/errors",
             "df / | awk 'NR==2 { exit ($5+0 > 101) }'",
             "awk 'NR==1 && $1 > 500 { exit 1 }' /proc/loadavg",
             "echo 'a # b' | grep -q '#'",
             "test \"${X#a}\" = \"\"",
             "tail -n 5 /etc/passwd | grep -q root",
             "find /etc -maxdepth 1 -mmin -5 | grep -q .",
             "test -z \"$(find /etc/passwd -mmin +9999999 2>/dev/null | head -1)\"",
             "! test -e /run/problem",
             "! grep -q nobody-of-that-name /etc/passwd",
             "ls /etc/*.conf",
             "~/bin/check",
             "\"$HOME/bin/check\"",
             "printf '%s\\n' a b | sort -u | wc -l | grep -qx 2",
             "timeout 5 bash -c '[[ -d / ]] && true'",
             "/usr/bin/test -d / ; s=$?; exit $s",
             "set -e; test -d /; df /",
             "trap 'rm -f /tmp/t' EXIT; touch /tmp/t",
             "test -e '/etc/pass wd' || test -e /etc/passwd",
         }) {
        for (const Finding& finding : Examine(WithCheck(CheckOf(Escaped(command)))).findings) {
            EXPECT_EQ(finding.severity, Severity::Note) << command << ": " << finding.text;
        }
    }
}

TEST_F(CommandRulesTest, TellsHowPluginsEnd) {
    const char* const code = "plugin-status";
    const std::string plugin = "/usr/lib/nagios/plugins/check_load -w 5 -c 9";
    const std::string mapped = "sh -c 'timeout -k 5 30 " + plugin + "; [ $? -le 1 ]'";
    const std::string critical = "delay='1' runactionresult='2'";
    ExpectTraps({
        Pair(code, plugin, mapped),
        Pair(code, "timeout -k 5 30 " + plugin, mapped),
        {"CRITICAL alone", code, WithCheck(CheckOf(plugin, critical)), WithCheck(CheckOf(mapped))},
        {"no plugin", code, WithCheck(CheckOf(plugin, critical)),
         WithCheck(CheckOf("df /", critical))},
        {"another status", code, WithCheck(CheckOf(plugin, critical)),
         WithCheck(CheckOf(plugin, "delay='1' runactionresult='4'"))},
    });
    EXPECT_EQ(Those(WithCheck(CheckOf(plugin)), code).at(0).severity, Severity::Note);
    const Finding hiding = Those(WithCheck(CheckOf(plugin, critical)), code).at(0);
    EXPECT_EQ(hiding.severity, Severity::Warning);
    EXPECT_THAT(hiding.text, HasSubstr("ends with UNKNOWN"));
}

TEST_F(CommandRulesTest, FindsTrapsForSignalsThatAreIgnored) {
    const char* const code = "signal-ignored";
    ExpectTraps({
        Pair(code, "sh -c 'trap &quot;exit 1&quot; USR1; df /'",
             "env --default-signal=USR1 sh -c 'trap &quot;exit 1&quot; USR1; df /'"),
        Pair(code, "trap 'exit 1' TERM SIGHUP; df /", "trap 'exit 1' TERM EXIT; df /"),
        Pair(code, "trap - PIPE; df /", "trap '' PIPE; df /"),
    });
}

TEST_F(CommandRulesTest, WarnsOfWhatFailsForTheShellAsItSays) {
    struct Row {
        const char* code;
        const char* trap;
        const char* twin;
    };
    const std::vector<Row> rows = {
        {"list-without-braces", "grep root /etc/passwd && test -d /etc",
         "{ grep root /etc/passwd && test -d /etc; }"},
        {"list-without-braces", "echo hi && true", "sh -c 'echo hi && true'"},
        {"reads-input", "cat", "cat </dev/null"},
        {"reads-input", "timeout 5 grep -c root", "timeout 5 grep -c root /etc/passwd"},
        {"comment-in-command", "df / # the root", "df /"},
        {"trailing-backslash", "df / \\", "df /"},
        {"here-document", "cat <<E\na\nE", "echo a | cat"},
        {"shell-syntax", "echo 'a", "echo 'a'"},
        {"shell-syntax", "sh -c 'if true'", "sh -c 'if true; then true; fi'"},
        {"command-not-found", "chekc_disk", "df /"},
        {"command-not-found", "timeout 5 cd /", "timeout 5 test -d /"},
        {"command-not-found", "[[ -d / ]]", "[ -d / ]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.trap);
        EXPECT_THAT(Those(WithCheck(CheckOf(Escaped(row.trap))), row.code), SizeIs(1));
        EXPECT_NE(StatusOf(row.trap), 0);
        EXPECT_THAT(Those(WithCheck(CheckOf(Escaped(row.twin))), row.code), IsEmpty());
        EXPECT_EQ(StatusOf(row.twin), 0);
    }
}

TEST_F(CommandRulesTest, AdvisesNoBracesWhereTheyWouldChangeNothing) {
    const std::string check = WithCheck(CheckOf(Escaped("ls /x &>/dev/null")));
    EXPECT_THAT(Those(check, "list-without-braces"), IsEmpty());
}

TEST_F(CommandRulesTest, PromisesTheVerdictThatTheCheckGives) {
    int promises = 0;
    for (const std::string command : {"false;",
                                      "false &",
                                      "false\n",
                                      "false &>/dev/null",
                                      " ",
                                      "# c",
                                      "echo 'a",
                                      "chekc_disk",
                                      "/etc/passwd",
                                      "sh -c 'chekc_disk'",
                                      "timeout 5 chekc_disk",
                                      "sh -c 'if true'",
                                      "true | chekc_disk",
                                      ";",
                                      "&",
                                      "exit 1;",
                                      "set -e; false;",
                                      "! chekc_disk",
                                      "chekc_disk; true",
                                      "chekc_disk || true"}) {
        for (const char* const status : {"", "0", "1", "2", "126", "127"}) {
            SCOPED_TRACE(command + " " + status);
            const std::string attributes =
                *status != '\0' ? "delay='1' runactionresult='" + std::string(status) + "'"
                                : "delay='1'";
            const LintReport report = Examine(WithCheck(CheckOf(Escaped(command), attributes)));
            for (const Finding& finding : report.findings) {
                const bool fails = finding.text.find("always fails") != std::string::npos;
                if (fails || finding.text.find("passes for ever") != std::string::npos) {
                    EXPECT_EQ(report.verdict.jobs.at(0)->check->DoWatch(),
                              fails ? ResultFailed : ResultHealthy)
                        << finding.text;
                    ++promises;
                }
            }
        }
    }
    EXPECT_GE(promises, 12 * 6);
}

TEST_F(CommandRulesTest, FindsWhatMayHang) {
    ExpectTraps({
        Pair("no-timeout", "df /", "timeout 10 df /"),
        Pair("no-timeout", "df /", "test -d / &amp;&amp; [ -e /etc ]"),
    });
}

TEST_F(CommandRulesTest, SaysNothingOfChecksWithoutACommand) {
    for (const Finding& finding : Examine(WithCheck(FileCheckOf("cat"))).findings) {
        EXPECT_NE(finding.code, "reads-input");
        EXPECT_NE(finding.code, "no-timeout");
    }
}

}  // namespace kennly::test
