#include "lint/RemedyRules.h"

#include <sys/wait.h>

#include <cstdlib>

#include "action/DogExecuteAction.h"
#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::IsEmpty;
using ::testing::SizeIs;

using RemedyRulesTest = LintTest;

Trap Pair(const char* code, const std::string& trap, const std::string& twin) {
    return {code, code, WithRemedy(RemedyOf(trap)), WithRemedy(RemedyOf(twin))};
}

TEST_F(RemedyRulesTest, FindsRemediesThatNeverRun) {
    const auto with = [](const std::string& params) {
        return WithRemedy("<remedy type='Execute'>" + params + "</remedy>");
    };
    const std::string param = "<param value='true'/>";
    ExpectTraps({
        {"none", "param-count", with(""), with(param)},
        {"two", "param-count", with(param + param), with(param)},
        {"empty", "empty-param", with("<param value=''/>"), with(param)},
        {"blank", "empty-param", with("<param value='  '/>"), with(param)},
    });
}

TEST_F(RemedyRulesTest, FindsWhatNohupCannotRun) {
    const char* const code = "nohup-cannot-run";
    ExpectTraps({
        Pair(code, "FOO=1 systemctl restart x", "env FOO=1 true"),
        Pair(code, "cd /x &amp;&amp; true", "sh -c 'cd /x &amp;&amp; true'"),
        Pair(code, ". /etc/profile", "sh -c '. /etc/profile'"),
        Pair(code, "exec true", "true"),
        Pair(code, "umask 022", "kill -0 1"),
        Pair(code, "! true", "sh -c '! true'"),
    });
}

TEST_F(RemedyRulesTest, FindsWhatTheShellCannotRead) {
    const char* const code = "shell-syntax";
    ExpectTraps({
        Pair(code, "(true)", "sh -c '(true)'"),
        Pair(code, "{ true; }", "true"),
        Pair(code, "if true; then true; fi", "sh -c 'if true; then true; fi'"),
        Pair(code, "echo 'a", "echo 'a'"),
        Pair(code, "sh -c 'if true'", "sh -c 'if true; then true; fi'"),
    });
}

TEST_F(RemedyRulesTest, FindsWhatIsNotInTheBackground) {
    ExpectTraps({
        Pair("foreground-part", "sleep 2; true", "sh -c 'sleep 2; true'"),
        Pair("foreground-part", "sleep 2\ntrue", "sleep 2"),
        Pair("foreground-part", "true;", "true"),
        Pair("foreground-part", "true\n", "true"),
        Pair("list-partly-nohup", "\ntrue", "true"),
        Pair("output-not-discarded", "true &amp;&gt;/dev/null", "true &gt;/dev/null 2&gt;&amp;1"),
        Pair("output-overridden", "df / &gt;&gt;/tmp/df", "sh -c 'df / &gt;&gt;/tmp/df'"),
        Pair("here-document", "sh &lt;&lt;E\nsleep 2\nE", "sleep 2"),
        Pair("comment-in-command", "true # c", "sh -c 'true # c'"),
        Pair("output-not-discarded", "true &amp;", "true"),
        Pair("comment-in-command", "true # restart", "true"),
        Pair("trailing-backslash", "true \\", "true"),
        Pair("list-partly-nohup", "true &amp;&amp; true", "sh -c 'true &amp;&amp; true'"),
        Pair("list-partly-nohup", "true || true", "sh -c 'true || true'"),
        Pair("list-partly-nohup", "echo x | cat", "sh -c 'echo x | cat'"),
    });
}

TEST_F(RemedyRulesTest, FindsPrograms) {
    ExpectTraps({
        Pair("command-not-found", "sytemctl restart x", "true"),
        Pair("command-not-found", "/opt/none/restart", "/bin/true"),
        Pair("command-not-found", "timeout 9 sytemctl", "timeout 9 true"),
        Pair("command-not-found", "sh -c 'sleep 1; sytemctl'", "sh -c 'sleep 1; true'"),
        Pair("command-not-found", "env A=b sytemctl", "env A=b true"),
        Pair("command-not-found", "true &amp;&amp; sytemctl", "true &amp;&amp; true"),
    });
    machine.searchPath = directory.Path("");
    std::filesystem::copy_file("/bin/true", directory.Path("true"));
    EXPECT_THAT(Those(WithRemedy(RemedyOf("true")), "command-not-found"), SizeIs(1)) << "nohup";
}

TEST_F(RemedyRulesTest, FindsPausesThatAReloadWaitsFor) {
    const auto with = [](const std::string& delay) {
        return WithRemedy(RemedyOf("true", "delay='" + delay + "'"));
    };
    ExpectTraps({{"long", "long-delay", with("10"), with("9")}});
    EXPECT_EQ(Those(with("59"), "long-delay").at(0).severity, Severity::Note);
    EXPECT_EQ(Those(with("60"), "long-delay").at(0).severity, Severity::Warning);
}

TEST_F(RemedyRulesTest, WarnsOfWhatDoesNothingAsItSays) {
    const std::string file = directory.Path("made");
    const std::string touch = "touch " + file;
    const auto makesFile = [&](const std::string& command) {
        std::filesystem::remove(file);
        const std::string line = DogExecuteAction::CommandLineOf(command) + " wait";
        const int ignored = std::system(("exec 0<&- 1<&- 2<&-\n" + line).c_str());
        return WIFEXITED(ignored) && std::filesystem::exists(file);
    };
    const std::vector<std::vector<std::string>> rows = {
        {"nohup-cannot-run", "A=1 " + touch, "env A=1 " + touch},
        {"nohup-cannot-run", "cd / && " + touch, "sh -c 'cd / && " + touch + "'"},
        {"nohup-cannot-run", "exec " + touch, touch},
        {"nohup-cannot-run", "! " + touch, "sh -c '! " + touch + "'"},
        {"shell-syntax", "(" + touch + ")", "sh -c '(" + touch + ")'"},
        {"shell-syntax", "{ " + touch + "; }", touch},
        {"shell-syntax", "if true; then " + touch + "; fi",
         "sh -c 'if true; then " + touch + "; fi'"},
        {"shell-syntax", touch + " '", touch + " ''"},
        {"shell-syntax", "sh -c 'if " + touch + "'", "sh -c '" + touch + "'"},
        {"command-not-found", "tuoch " + file, touch},
    };
    for (const std::vector<std::string>& row : rows) {
        SCOPED_TRACE(row[1]);
        const auto found = [&](const std::string& command) {
            return Those(WithRemedy(RemedyOf(Escaped(command))), row[0]);
        };
        EXPECT_THAT(found(row[1]), SizeIs(1));
        EXPECT_FALSE(makesFile(row[1]));
        EXPECT_THAT(found(row[2]), IsEmpty());
        EXPECT_TRUE(makesFile(row[2]));
    }
}

TEST_F(RemedyRulesTest, NotesTheTypeWhoseNamePromisesMore) {
    ExpectTraps({{"ExecuteAlways", "always-means-unlogged",
                  WithRemedy("<remedy type='ExecuteAlways'><param value='true'/></remedy>"),
                  WithRemedy(GoodRemedy)}});
}

TEST_F(RemedyRulesTest, FindsBlockFiles) {
    directory.Write("block", "");
    for (const std::string attribute : {"blockaction", "blockaction2", "blockaction3"}) {
        const auto with = [&](const std::string& path) {
            return WithRemedy(RemedyOf("true", attribute + "='" + path + "'"));
        };
        const std::string good = with(directory.Path("later"));
        ExpectTraps({
            {"relative", "path-not-absolute", with("block"), good},
            {"home", "path-literal", with("~/block"), good},
            {"a variable", "path-literal", with("/run/$HOST.block"), good},
            {"a blank behind", "path-literal", with(directory.Path("later") + " "), good},
            {"a directory", "block-is-directory", with(directory.Path("config")), good},
            {"there already", "block-in-force", with(directory.Path("block")), good},
            {"nowhere", "block-directory-missing", with(directory.Path("none/block")), good},
        });
    }
}

}  // namespace kennly::test
