#include "lint/ShellOutline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/Dice.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

using ::testing::UnorderedElementsAreArray;

using Words = std::vector<std::string>;

// Runs lines by the real shell, which finds no programs but stubs: each notes its arguments and
// which of its descriptors are not those of the shell. "no" fails, the others do not.
class ShellOutlineTest : public ::testing::Test {
protected:
    ShellOutlineTest() {
        directory.Write("in", "");
        std::filesystem::create_directory(directory.Path("bin"));
        for (const char* const name : {"one", "two", "no", "inner", "outer", "if", "fi"}) {
            const std::string path = directory.Write(
                std::string("bin/") + name,
                "#!/bin/sh\n"
                "in=same; out=same\n"
                "[ /proc/$$/fd/0 -ef \"$STUBS/in\" ] || in=moved\n"
                "[ /proc/$$/fd/1 -ef \"$STUBS/out\" ] || out=moved\n"
                "printf '%s\\037' \"$in\" \"$out\" \"${0##*/}\" \"$@\" '\036' >>\"$STUBS/calls\"\n"
                "[ \"${0##*/}\" != no ]\n");
            std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        }
    }

    struct Call {
        Words words;
        bool inputMoved = false;
        bool outputMoved = false;
    };

    std::vector<Call> Run(const std::string& line) const {
        directory.Write("calls", "");
        directory.Write("line", line);
        // Read by the shell that runs the line, so that no quotes are needed around it.
        const std::string command = "export STUBS='" + directory.Path("") +
                                    "'; cd \"$STUBS\" && exec <in >out 2>/dev/null; "
                                    "PATH=\"$STUBS/bin\"; export PATH; . ./line\nwait";
        EXPECT_NE(std::system(command.c_str()), -1);
        return Parsed(directory.Read("calls"));
    }

    const TemporaryDirectory directory;

private:
    static std::vector<Call> Parsed(const std::string& calls) {
        std::vector<Call> parsed;
        Words texts;
        for (std::size_t at = 0; at < calls.size();) {
            const std::size_t end = calls.find('\037', at);
            const std::string text = calls.substr(at, end - at);
            at = end + 1;
            if (text != "\036") {
                texts.push_back(text);
                continue;
            }
            parsed.push_back(
                {{texts.begin() + 2, texts.end()}, texts.at(0) == "moved", texts.at(1) == "moved"});
            texts.clear();
        }
        return parsed;
    }
};

Words TextsOf(const std::vector<ShellWord>& words) {
    Words texts;
    for (const ShellWord& word : words) {
        texts.push_back(word.text);
    }
    return texts;
}

// What a shell would call of the commands at the top of a line in which only "no" fails.
std::vector<Words> CallsIn(const ShellOutline& outline) {
    std::vector<Words> calls;
    bool succeeds = true;
    std::string before;
    for (const ShellCommand& command : outline.commands) {
        const bool isSkipped =
            (before == "&&" && !succeeds) || (before == "||" && succeeds) || before == "skipped |";
        const Words words = TextsOf(ProgramWords(command));
        if (!isSkipped) {
            succeeds = words.empty() || words.front() != "no";
            if (!words.empty()) {
                calls.push_back(words);
            }
        }
        before = isSkipped && command.separator == "|" ? "skipped |" : command.separator;
    }
    return calls;
}

class RandomLine {
public:
    explicit RandomLine(Dice& dice) : dice_(dice) {}

    std::string Next() {
        std::string line = Blanks() + Command();
        for (std::size_t left = dice_.Below(4); left > 0; --left) {
            line += Blanks() + dice_.Pick({"&&", "||", "|", ";", "\n", " &", "&&\n", " # it's\n"}) +
                    Blanks() + Command();
        }
        return line + dice_.Pick({"", ";", " &", "\n", " # a \"comment", "\n# one", " "});
    }

private:
    std::string Blanks() { return dice_.Pick({"", " ", "\t", "  ", " \\\n "}); }

    std::string Command() {
        if (dice_.OneIn(4)) {
            return Group();
        }
        std::string command;
        while (dice_.OneIn(4)) {
            command += dice_.Pick({"A=1 ", "B_2='x y' ", "C= ", "2>e "});
        }
        command += dice_.Pick({"one", "two", "no", "'one'", "o\\ne", "\"t\"wo"});
        for (std::size_t left = dice_.Below(4); left > 0; --left) {
            command += " " + Blanks() + (dice_.OneIn(4) ? Redirection() : Word());
        }
        return command;
    }

    std::string Word() {
        std::string word;
        for (std::size_t left = 1 + dice_.Below(3); left > 0; --left) {
            word +=
                dice_.Pick({"a",          "/b",       "A=1",    "-x",
                            "if",         "}",        "{",      "fi",
                            "done",       "2",        "%",      "!",
                            "''",         "\"\"",     "'x  y'", "\"a 'b' \\\" \\\\ \\$ \\` \\n\"",
                            "'\"'",       "\\;",      "\\ ",    "\\'",
                            "';|&<>()'",  "\"#;\"",   "'$A`'",  "a\\\nb",
                            "\"a\\\nb\"", "'a\\\nb'", "'\n'",   "esac",
                            "\\*",        "'~'",      "b#c"});
        }
        return word;
    }

    std::string Redirection() {
        return dice_.Pick({">e", "> e", ">>e", "2>e", "2>&1", "<in", "< in", "3>e", "1>'e'", ">|e",
                           "'2'>e", "2>e >&2", "0<in"});
    }

    // "inner" is what stands inside, "outer" has arguments that the shell replaces.
    std::string Group() {
        return dice_.Pick(
            {"{ inner a; }",
             "( inner; inner )",
             "(inner)",
             "{ ( inner ); }",
             "{ { inner; }; }",
             "if inner; then inner a; else inner b; fi",
             "if no_such || inner; then inner; fi",
             "for i in one two; do inner $i; done",
             "for i in if; do { inner; } done",
             "until inner; do inner; done",
             "case x in (y) inner;; x|if) inner 'a)';; esac",
             "case x in a) inner;; esac",
             "case if in if) if inner; then inner; fi;; esac",
             "case x in\nx) (inner);;\nesac",
             "case x in y) inner;; fi) inner;; x) inner;; esac",
             "case in in in) inner;; esac",
             "f() { inner \"$@\"; }",
             "f ( ) ( inner )",
             "{ inner; } >e",
             "while inner && false; do inner; done; outer $(inner ')') `inner`",
             "{ inner; inner & } | outer \"${A:-it's}\" \"$(inner \"a)\")\" $((1+(2)))",
             "outer ${A:-'}'} \"`inner \"b\"`\"",
             "{ inner <<E\none two\nE\n}",
             "if inner\nthen inner\nfi",
             "outer <<-'E E' <<F\n\tno\n\tE E\nno\nF\nouter",
             "{ inner; } 2>e <in",
             "{ inner; A=1 inner if; inner >e fi; }"});
    }

    Dice& dice_;
};

TEST_F(ShellOutlineTest, HasTheCommandsThatTheShellRuns) {
    std::size_t callCount = 0;
    for (unsigned seed = 65001; seed < 65301; ++seed) {
        Dice dice(seed);
        const std::string line = RandomLine(dice).Next();
        SCOPED_TRACE(std::to_string(seed) + ": " + line);
        std::vector<Words> calls;
        for (const Call& call : Run(line)) {
            if (call.words.front() != "inner" && call.words.front() != "outer") {
                calls.push_back(call.words);
            }
        }
        std::vector<Words> outlined;
        for (const Words& words : CallsIn(OutlineShell(line))) {
            EXPECT_NE(words.front(), "inner");
            if (words.front() != "outer") {
                outlined.push_back(words);
            }
        }
        EXPECT_THAT(outlined, UnorderedElementsAreArray(calls));
        callCount += calls.size();
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(callCount, 300U);
}

TEST_F(ShellOutlineTest, KnowsWhereInputAndOutputGo) {
    for (const char* const line :
         {"one",      "one a >e",     "one >>e a", "one 2>e",   "one 2>&1",    "one >&2",
          "one 1>e",  "one <e",       "one 0<e",   "one 3<in",  "one 3>e",     "one >|e",
          "one <>e",  "one <<E\nE\n", ">e one",    "<e one",    "one 2>e >&2", "one <e >e",
          "one '>e'", "one \\>e",     "one 1 >e",  "one '1'>e", "one a2>e",    "one \"<\"e",
          "one <&-",  "one >&-",      ">e if a",   "2>e fi",    "A=1 if a"}) {
        SCOPED_TRACE(line);
        directory.Write("e", "");
        const std::vector<Call> calls = Run(line);
        const ShellOutline outline = OutlineShell(line);
        ASSERT_EQ(calls.size(), 1U);
        ASSERT_EQ(outline.commands.size(), 1U);
        EXPECT_EQ(outline.commands[0].redirectsInput, calls[0].inputMoved);
        EXPECT_EQ(outline.commands[0].redirectsOutput, calls[0].outputMoved);
        EXPECT_EQ(TextsOf(ProgramWords(outline.commands[0])), calls[0].words);
    }
}

TEST_F(ShellOutlineTest, TellsWhatSwallowsTextThatIsPutBehind) {
    for (const char* const line :
         {"one", "one # a", "one a#", "one '#'", "one #\n", "one # a\ntwo", "one;#", "one \\",
          "one \\\\", "one '\\'", "one # \\", "one \\\n", "one a\\", "# a\none", "one \"#\" \\#"}) {
        SCOPED_TRACE(line);
        const std::vector<Call> calls = Run(line + std::string(" >e"));
        ASSERT_FALSE(calls.empty());
        const ShellOutline outline = OutlineShell(line);
        ASSERT_FALSE(outline.commands.empty());
        const bool isOfThisCommand = std::string(line).back() != '\n';
        const bool isRedirected = calls.back().outputMoved &&
                                  calls.back().words == TextsOf(outline.commands.back().words);
        EXPECT_EQ(outline.hasComment || outline.endsInBackslash, isOfThisCommand && !isRedirected);
        EXPECT_FALSE(outline.hasComment && outline.endsInBackslash);
    }
}

TEST_F(ShellOutlineTest, MarksWordsThatTheShellReplaces) {
    const struct {
        const char* word;
        bool isExact;
    } rows[] = {
        {"a", true},
        {"'$A'", true},
        {"\"*?[a]~\"", true},
        {"\\$A", true},
        {"\"\\$A\"", true},
        {"a=b", true},
        {"-", true},
        {"$B", false},
        {"\"$B\"", false},
        {"*", false},
        {"b?n", false},
        {"b[i]n", false},
        {"`true`", false},
        {"\"`true`\"", false},
        {"$(true)", false},
        {"~", false},
        {"a${B}c", false},
        {"$((1 + 2))", false},
        {"\"$(true a)\"", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.word);
        const std::string line = std::string("one x ") + row.word;
        const ShellOutline outline = OutlineShell(line);
        ASSERT_EQ(outline.commands.size(), 1U);
        ASSERT_EQ(outline.commands[0].words.size(), 3U);
        EXPECT_EQ(outline.commands[0].words[2].isExact, row.isExact);

        const std::vector<Call> calls = Run("B='p q'; true() { :; }; " + line);
        ASSERT_EQ(calls.size(), 1U);
        const bool isAsItStands = calls[0].words == TextsOf(outline.commands[0].words);
        EXPECT_EQ(isAsItStands, row.isExact);
    }
}

TEST_F(ShellOutlineTest, KeepsReplacedTextTogether) {
    for (const char* const word :
         {"$(a; b | c)", "`a; b`", "${A:-b c}", "\"$(a \"b c\")\"", "$(a ')')", "$(a \\) b)",
          "$((1 + (2)))", "$(a $(b c))", "\"${A:-it's}\"", "${A:-'}'}", "\"$(echo 'it')\"",
          "`a \\`b c\\``", "\"`a b`\"", "$(echo \"`)`\")", "$(a \"it's\")"}) {
        SCOPED_TRACE(word);
        const ShellOutline outline = OutlineShell(std::string("one ") + word + " z; two");
        ASSERT_EQ(outline.commands.size(), 2U);
        const std::string written = word;
        const std::string text =
            written.front() == '"' ? written.substr(1, written.size() - 2) : written;
        EXPECT_EQ(TextsOf(outline.commands[0].words), (Words{"one", text, "z"}));
        EXPECT_EQ(TextsOf(outline.commands[1].words), Words{"two"});
        const std::vector<Call> calls = Run(std::string("one ") + word + " z; two");
        ASSERT_FALSE(calls.empty()) << "to the shell this is no valid line";
        EXPECT_EQ(calls.back().words, Words{"two"});
    }
}

TEST_F(ShellOutlineTest, ListsNoWordsOfGroups) {
    for (const char* const line :
         {"{ a; }", "(a)", "if a; then b; fi", "for a in b; do c; done", "while a; do b; done",
          "case a in b) c;; esac", "f() { a; }", "f() (a)", "until a; do b; done >c"}) {
        SCOPED_TRACE(line);
        const ShellOutline outline = OutlineShell(std::string(line) + " && z");
        ASSERT_EQ(outline.commands.size(), 2U);
        EXPECT_TRUE(outline.commands[0].isCompound);
        EXPECT_TRUE(outline.commands[0].words.empty());
        EXPECT_EQ(outline.commands[0].separator, "&&");
        EXPECT_FALSE(outline.commands[1].isCompound);
        EXPECT_EQ(TextsOf(outline.commands[1].words), Words{"z"});
    }
}

TEST_F(ShellOutlineTest, KnowsSeparators) {
    const struct {
        const char* line;
        Words separators;
    } rows[] = {
        {"a", {""}},
        {"a;", {";"}},
        {"a &", {"&"}},
        {"a&&b||c|d", {"&&", "||", "|", ""}},
        {"a;b&c\nd", {";", "&", "\n", ""}},
        {"a;\n", {";"}},
        {"a &&\n\n b", {"&&", ""}},
        {"a\n\n\nb\n", {"\n", "\n"}},
        {"a |\n b # c", {"|", ""}},
        {"a # b\nc", {"\n", ""}},
        {"", {}},
        {" \t\n", {}},
        {"# a", {}},
        {"a '&&' b", {""}},
        {"! a; b", {";", ""}},
        {">x; y", {";", ""}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Words separators;
        for (const ShellCommand& command : OutlineShell(row.line).commands) {
            separators.push_back(command.separator);
        }
        EXPECT_EQ(separators, row.separators);
    }
}

TEST_F(ShellOutlineTest, TellsAssignmentsFromPrograms) {
    const struct {
        const char* line;
        Words words;
    } rows[] = {
        {"A=1 one b", {"one", "b"}},     {"A=1 B='2 3' one C=4", {"one", "C=4"}},
        {"_a1= one", {"one"}},           {"A=1", {}},
        {"1A=1 one", {"1A=1", "one"}},   {"=1 one", {"=1", "one"}},
        {"'A=1' one", {"A=1", "one"}},   {"A\\=1 one", {"A=1", "one"}},
        {"A-B=1 one", {"A-B=1", "one"}}, {"! one", {"one"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ShellOutline outline = OutlineShell(row.line);
        ASSERT_EQ(outline.commands.size(), 1U);
        EXPECT_EQ(TextsOf(ProgramWords(outline.commands[0])), row.words);
    }
}

TEST_F(ShellOutlineTest, KnowsFunctionsFromPrograms) {
    const ShellOutline outline = OutlineShell("f() { a; }; f b; g");
    ASSERT_EQ(outline.commands.size(), 3U);
    EXPECT_FALSE(outline.commands[1].words[0].isExact);
    EXPECT_TRUE(outline.commands[1].words[1].isExact);
    EXPECT_TRUE(outline.commands[2].words[0].isExact);
}

TEST_F(ShellOutlineTest, KnowsWhatIsBuiltIntoTheShell) {
    std::string line = "PATH=; for name in";
    const Words names = {".",      ":",       "[",      "alias",   "bg",       "break",  "cd",
                         "case",   "command", "do",     "done",    "continue", "echo",   "elif",
                         "else",   "esac",    "eval",   "exec",    "exit",     "export", "false",
                         "fg",     "fi",      "for",    "getopts", "hash",     "if",     "in",
                         "jobs",   "kill",    "local",  "printf",  "pwd",      "read",   "readonly",
                         "return", "set",     "shift",  "test",    "then",     "times",  "trap",
                         "true",   "type",    "ulimit", "umask",   "unalias",  "unset",  "until",
                         "wait",   "while",   "{",      "}",       "!",        "cat",    "df",
                         "env",    "expr",    "grep",   "ls",      "nohup",    "ps",     "sed",
                         "sh",     "sleep",   "sort",   "su",      "timeout",  "wget",   "kennly"};
    for (const std::string& name : names) {
        line += " '" + name + "'";
    }
    line += "; do command -v \"$name\"; done >'" + directory.Path("known") + "' 2>/dev/null";
    ASSERT_NE(std::system(line.c_str()), -1);
    Words known;
    for (const std::string& name : names) {
        if (IsShellBuiltin(name)) {
            known.push_back(name);
        }
    }
    std::string listed;
    for (const std::string& name : known) {
        listed += name + "\n";
    }
    EXPECT_EQ(listed, directory.Read("known"));
    for (const char* const name : {"", "ech", "echoo", "ECHO"}) {
        EXPECT_FALSE(IsShellBuiltin(name));
    }
}

// A shell would refuse most of these; the outline may say anything of them, and must come back.
TEST_F(ShellOutlineTest, TakesAnyText) {
    for (unsigned seed = 66001; seed < 71001; ++seed) {
        Dice dice(seed);
        std::string line;
        for (std::size_t left = dice.Below(30); left > 0; --left) {
            line += dice.Pick({"a",  " ",  "'",    "\"", "\\", "`",     "$",    "$(",   "${",
                               "(",  ")",  "{",    "}",  "<",  ">",     "<<",   "<<-",  "&",
                               "|",  ";",  ";;",   "\n", "#",  "case ", " in ", "esac", "if ",
                               "fi", "do", "done", "!",  "=",  "1",     "\xC3"});
        }
        SCOPED_TRACE(std::to_string(seed) + ": " + line);
        for (const ShellCommand& command : OutlineShell(line).commands) {
            EXPECT_LE(ProgramWords(command).size(), command.words.size());
            EXPECT_TRUE(command.words.empty() || !command.isCompound);
        }
    }
    for (const char* const part : {"$(", "(", "{ ", "`", "\"$(", "${", "case x in ", "<<a\n"}) {
        std::string deep;
        for (int i = 0; i < 100000; ++i) {
            deep += part;
        }
        EXPECT_LE(OutlineShell(deep).commands.size(), deep.size());
    }
}

}  // namespace kennly::test
