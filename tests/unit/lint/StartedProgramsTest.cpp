#include "lint/StartedPrograms.h"

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

std::vector<std::string> NamesIn(const std::string& line) {
    std::vector<std::string> names;
    for (const StartedProgram& program : ProgramsStartedBy(line)) {
        names.push_back(program.words.front().text);
    }
    return names;
}

TEST(StartedProgramsTest, LooksBehindProgramsThatStartOthers) {
    struct Row {
        const char* line;
        const char* last;
    };
    const std::vector<Row> rows = {
        {"timeout 5 x", "x"},
        {"timeout -k 5 -s KILL 9 x", "x"},
        {"timeout --kill-after 5 --signal=KILL 9 x", "x"},
        {"timeout -k5 --foreground 9 x", "x"},
        {"/usr/bin/timeout 5 x", "x"},
        {"nice -n 5 x", "x"},
        {"nice -5 x", "x"},
        {"nice --adjustment 5 x", "x"},
        {"ionice -c2 -n 7 x", "x"},
        {"env -i -u A B=c D=e x", "x"},
        {"env -- x", "x"},
        {"env - x", "x"},
        {"env -i - A=b x", "x"},
        {"env -- - x", "x"},
        {"env - -", "-"},
        {"nice - x", "-"},
        {"nohup x", "x"},
        {"setsid -w x", "x"},
        {"stdbuf -oL x", "x"},
        {"flock -n -w 3 /lock x", "x"},
        {"sudo -n -u nobody A=b x -y", "x"},
        {"exec x", "x"},
        {"A=b timeout 5 nice x", "x"},
        {"timeout 5 sh -c 'nice x'", "x"},
        {"sh -e -c 'x'", "x"},
        {"bash -ec 'x'", "x"},
        {"sh -o errexit -c 'x'", "x"},
        {"a | b && timeout 5 x", "x"},
        // these start nothing that could be told
        {"command -v x", "command"},
        {"ionice -p 123", "ionice"},
        {"flock -n /lock -c 'x'", "flock"},
        {"env -S 'x y'", "env"},
        {"timeout $OPTIONS 5 x", "timeout"},
        {"timeout 5", "timeout"},
        {"sh -c \"$SCRIPT\"", "sh"},
        {"sh script", "sh"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const std::vector<std::string> names = NamesIn(row.line);
        ASSERT_FALSE(names.empty());
        EXPECT_EQ(names.back(), row.last);
    }
}

TEST(StartedProgramsTest, ListsThemInTheirOrder) {
    EXPECT_THAT(NamesIn("a; timeout 5 b | sh -c 'c; d'"),
                ElementsAre("a", "timeout", "b", "sh", "c", "d"));
    EXPECT_THAT(NamesIn(""), IsEmpty());
    EXPECT_THAT(NamesIn("''"), IsEmpty());
    EXPECT_THAT(NamesIn("{ a; }"), IsEmpty());
    EXPECT_THAT(NamesIn("f() { a; }; f"), IsEmpty());
    EXPECT_THAT(NamesIn("cat <<E\na\nE"), IsEmpty());
}

TEST(StartedProgramsTest, TellsWhoseStatusIsThatOfTheLine) {
    for (const char* const line : {"x", "timeout 5 x", "a | x", "sh -c 'a | x'"}) {
        EXPECT_TRUE(ProgramsStartedBy(line).back().decides) << line;
    }
    for (const char* const line : {"! x", "a; x", "a && x", "x &", "x;", "sh -c '! x'"}) {
        EXPECT_FALSE(ProgramsStartedBy(line).back().decides) << line;
    }
    EXPECT_FALSE(ProgramsStartedBy("x | a").front().decides);
}

TEST(StartedProgramsTest, TellsWhoStartsThem) {
    EXPECT_TRUE(ProgramsStartedBy("x").back().byShell);
    EXPECT_FALSE(ProgramsStartedBy("timeout 5 x").back().byShell);
    EXPECT_TRUE(ProgramsStartedBy("timeout 5 sh -c 'x'").back().byShell);
    EXPECT_TRUE(ProgramsStartedBy("sh -c 'x'").back().bySh);
    EXPECT_FALSE(ProgramsStartedBy("bash -c 'x'").back().bySh);
}

TEST(StartedProgramsTest, FindsTheScriptsForSh) {
    EXPECT_THAT(ScriptsIn("a; timeout 5 sh -c 'b; sh -c \"c d\"'"),
                ElementsAre("b; sh -c \"c d\"", "c d"));
    EXPECT_THAT(ScriptsIn("bash -c 'a'"), IsEmpty());
    EXPECT_THAT(ScriptsIn("sh -c \"$A\""), IsEmpty());
}

TEST(StartedProgramsTest, SeesTheEndOfAHereDocument) {
    for (const char* const line : {"cat <<E\na\nE", "cat <<-E\na\n\tE", "cat << 'E' | cat\nE"}) {
        EXPECT_TRUE(EndsInHereDocument(line)) << line;
    }
    for (const char* const line : {"", "cat", "cat <<E\na\nE\n", "cat <<E\na\nE2", "cat <<EE\na\nE",
                                   "cat <E\na\nE", "a\nb <<E"}) {
        EXPECT_FALSE(EndsInHereDocument(line)) << line;
    }
}

class MissingProgramTest : public LintTest {
protected:
    MissingProgramTest() {
        std::filesystem::create_directory(directory.Path("bin"));
        for (const char* const name : {"df", "timeout", "env", "sh"}) {
            const std::string path = directory.Write(std::string("bin/") + name, "");
            std::filesystem::permissions(path, std::filesystem::perms::all);
        }
        machine.searchPath = directory.Path("bin");
    }

    std::string MissingIn(const std::string& line) const {
        for (const StartedProgram& program : ProgramsStartedBy(line)) {
            const std::string missing = MissingProgram(machine, program);
            if (!missing.empty()) {
                return missing;
            }
        }
        return "";
    }
};

TEST_F(MissingProgramTest, NamesTheProgramThatIsMissing) {
    const struct {
        const char* line;
        const char* missing;
    } rows[] = {
        {"df /", ""},
        {"dg /", "dg"},
        {"'dg'", "dg"},
        {"A=1 B=2 dg", "dg"},
        {"! dg", "dg"},
        {"A=1", ""},
        {"./dg", "./dg"},
        {"bin/df", ""},
        {"/bin/none", "/bin/none"},
        {"cd /", ""},
        {"until", ""},
        {"$PROGRAM", ""},
        {"dg*", ""},
        {"{ dg; }", ""},
        {"(dg)", ""},
        {">x", ""},
        {"timeout 5 df", ""},
        {"timeout 5 dg", "dg"},
        {"timeout -k 5 9 dg", "dg"},
        {"timeout -k5 -s KILL 9 dg", "dg"},
        {"timeout --kill-after 5 --signal=TERM --foreground 9 dg", "dg"},
        {"timeout --preserve-status -v -- 9 dg", "dg"},
        {"timeout 5 cd", "cd"},
        {"timeout 5 $PROGRAM", ""},
        {"timeout $OPTIONS 5 dg", ""},
        {"timeout 5", ""},
        {"timeout -k", ""},
        {"timeout", ""},
        {"bin/timeout 5 dg", "dg"},
        {"chdir /", ""},
        {"timeout 5 chdir /", "chdir"},
        {"command cd /", ""},
        {"command dg", "dg"},
        {"exec cd /", "cd"},
        {"env - dg", "dg"},
        {"env -C / ./dg", ""},
        {"env -iC/ ./dg", ""},
        {"env --chdir / ./dg", ""},
        {"env --chdir=/ timeout 5 ./dg", ""},
        {"env -C / sh -c './dg'", ""},
        {"env -C / /bin/none", "/bin/none"},
        {"env -C / dg", "dg"},
        {"env -uC ./dg", "./dg"},
        {"env -C / df; ./dg", "./dg"},
        {"cd /; ./dg", ""},
        {"chdir /; ./dg", ""},
        {"cd /; sh -c ./dg", ""},
        {"sh -c 'cd /'; ./dg", "./dg"},
        {"cd /; dg", "dg"},
        {"./dg; cd /", "./dg"},
        {"command -v dg; df; dg", ""},
        {"dg; command -v dg", "dg"},
        {". /x; dg", ""},
        {"PATH=/x; dg", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(MissingIn(row.line), row.missing);
    }
}

TEST_F(MissingProgramTest, DoesNotKnowWhatIsBuiltIntoOtherShells) {
    for (const std::string shell : {"bash", "ksh", "zsh", "/usr/bin/bash"}) {
        SCOPED_TRACE(shell);
        const auto missing = [&](const std::string& script) {
            const auto programs = ProgramsStartedBy(shell + " -c '" + script + "'");
            return MissingProgram(machine, programs.back());
        };
        for (const char* const script : {"let x=1", "source /x", "shopt -s nullglob", "declare x=1",
                                         "mapfile x", "dg", "command let x=1", "time let x=1"}) {
            EXPECT_EQ(missing(script), "") << script;
        }
        EXPECT_EQ(missing("/bin/none"), "/bin/none");
        EXPECT_EQ(missing("df | timeout 5 dg"), "dg") << "no shell starts this one";
        EXPECT_EQ(missing("sh -c let"), "let");
    }
    EXPECT_EQ(MissingIn("let x=1"), "let");
    EXPECT_EQ(MissingProgram(machine, ProgramsStartedBy("time cd /").back()), "cd");
}

// What is kept and looked through must not grow with the square of the line: these would take
// minutes, or all memory.
TEST_F(MissingProgramTest, ReadsLinesOfAnyLength) {
    constexpr std::size_t many = 100'000;
    std::string line;
    for (std::size_t i = 0; i < many; ++i) {
        line += "x;";
    }
    for (const std::string& whole : {line + "dg", "sh -c '" + line + "dg'"}) {
        const auto programs = ProgramsStartedBy(whole);
        ASSERT_GT(programs.size(), many);
        EXPECT_EQ(MissingProgram(machine, programs.front()), whole.front() == 'x' ? "x" : "");
        EXPECT_EQ(MissingProgram(machine, programs.back()), "dg");
    }
    const auto asked = ProgramsStartedBy("command -v dg;" + line + "dg");
    EXPECT_EQ(MissingProgram(machine, asked.back()), "");
}

TEST_F(MissingProgramTest, LooksBehindAFewProgramsThatStartOthers) {
    const auto behind = [](int wrappers) {
        std::string line;
        for (int i = 0; i < wrappers; ++i) {
            line += "nice ";
        }
        return line + "dg";
    };
    EXPECT_EQ(NamesIn(behind(49)).back(), "dg");
    const auto programs = ProgramsStartedBy(behind(4000));
    EXPECT_EQ(programs.size(), 50U);
    EXPECT_EQ(programs.back().words.front().text, "nice");
    EXPECT_EQ(programs.back().words.size(), 4000U - 49 + 1);

    const ShellCommand command = OutlineShell(behind(4000)).commands.at(0);
    ASSERT_EQ(WorkingWords(command).size(), 1U);
    EXPECT_EQ(WorkingWords(command)[0].text, "dg");
}

TEST_F(MissingProgramTest, KnowsFunctionsOfTheLine) {
    EXPECT_EQ(MissingIn("dg() { true; }; dg /"), "");
}

TEST_F(MissingProgramTest, SaysWhereItHasLooked) {
    EXPECT_THAT(NotFound(machine, "dg"),
                HasSubstr("\"dg\" is not in the search path (" + machine.searchPath + ")"));
    machine.daemonRuns = true;
    EXPECT_THAT(NotFound(machine, "dg"), HasSubstr("not in the daemon's search path ("));
    EXPECT_THAT(NotFound(machine, "/bin/dg"), HasSubstr("\"/bin/dg\" is not there"));
    EXPECT_THAT(NotFound(machine, "/bin/dg"), Not(HasSubstr("search path")));
}

}  // namespace kennly::test
