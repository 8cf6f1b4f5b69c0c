#include "lint/ShellSyntax.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "support/Dice.h"
#include "support/TemporaryDirectory.h"

namespace {

int spawned = 0;
int failure = 0;  // what posix_spawn returns instead of its work

}  // namespace

extern "C" {

int __real_posix_spawn(pid_t*, const char*, const posix_spawn_file_actions_t*,
                       const posix_spawnattr_t*, char* const[], char* const[]);
int __wrap_posix_spawn(pid_t*, const char*, const posix_spawn_file_actions_t*,
                       const posix_spawnattr_t*, char* const[], char* const[]);

int __wrap_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const arguments[],
                       char* const environment[]) {
    ++spawned;
    return failure != 0
               ? failure
               : __real_posix_spawn(process, path, actions, attributes, arguments, environment);
}

}  // extern "C"

namespace kennly::test {

class ShellSyntaxTest : public ::testing::Test {
protected:
    ShellSyntaxTest() {
        spawned = 0;
        failure = 0;
    }

    // What the shell itself says, asked in this test's own way.
    static bool TheShellAccepts(const std::string& line) {
        const pid_t process = fork();
        if (process == 0) {
            close(STDERR_FILENO);
            execl("/bin/sh", "sh", "-n", "-c", line.c_str(), nullptr);
            _exit(99);
        }
        int status = 0;
        EXPECT_EQ(waitpid(process, &status, 0), process);
        EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 2));
        return WEXITSTATUS(status) == 0;
    }
};

const std::string Silenced = " 1>/dev/null 2>/dev/null";

TEST_F(ShellSyntaxTest, AgreesWithTheShell) {
    for (const char* const line : {"echo 'a'",
                                   "echo 'a",
                                   "echo \"a",
                                   "(true)",
                                   "(true",
                                   "true)",
                                   "if true",
                                   "{ true; }",
                                   "{ true }",
                                   "if true; then true; fi",
                                   "true &&",
                                   "true & true",
                                   "& true",
                                   "true ;; true",
                                   "$(true",
                                   "a `b",
                                   "case x in x) ;; esac",
                                   "for i in 1 2; do true; done",
                                   "f() { true; }",
                                   "true # '",
                                   "true \\",
                                   "",
                                   " ",
                                   "# x",
                                   "true | | true",
                                   "-x true",
                                   "-c",
                                   "+o true",
                                   "!",
                                   "then",
                                   "fi",
                                   "do",
                                   "done",
                                   "true fi",
                                   "if",
                                   "a\nif",
                                   "a <",
                                   "a > | b"}) {
        SCOPED_TRACE(line);
        EXPECT_EQ(ShellAccepts(line), TheShellAccepts(line));
        EXPECT_EQ(ShellAccepts(line + Silenced), TheShellAccepts(line + Silenced));
    }
}

TEST_F(ShellSyntaxTest, AgreesWithTheShellOnWhateverIsPutTogether) {
    int plain = 0;
    int refused = 0;
    for (unsigned seed = 63001; seed < 63301; ++seed) {
        Dice dice(seed);
        std::string line;
        for (std::size_t left = dice.Below(5); left > 0; --left) {
            line +=
                dice.Pick({"a",   "if",   "then",        "fi",          "do",    "done", "for",
                           "in",  "case", "esac",        "while",       "until", "else", "elif",
                           "A=1", "-x",   "+x",          "1",           "2>",    "&",    "/bin/df",
                           "a.b", "50%",  "@",           ":",           ",",     ";",    "'x y'",
                           "{",   "}",    "1>/dev/null", "2>/dev/null", "=",     "!"});
            line += dice.Pick({"", " ", "  ", "\t", " ", " "});
        }
        line = (dice.OneIn(3) ? "nohup " : "") + line + (dice.OneIn(2) ? Silenced : "") +
               (dice.OneIn(3) ? " &" : "");
        SCOPED_TRACE(std::to_string(seed) + ": " + line);
        spawned = 0;
        const bool accepted = ShellAccepts(line);
        plain += spawned == 0 ? 1 : 0;
        refused += accepted ? 0 : 1;
        EXPECT_EQ(accepted, TheShellAccepts(line));
    }
    EXPECT_GT(plain, 20);
    EXPECT_GT(refused, 20);
}

TEST_F(ShellSyntaxTest, AsksNoShellAboutPlainCommands) {
    for (const std::string& command :
         {std::string("true"), std::string("timeout 10 systemctl is-active --quiet cron"),
          std::string("/usr/lib/plugins/check_disk -w 10% -c 5% -p /,/var a@b.c A=1 +5 x:y_z"),
          std::string("  df  / ")}) {
        SCOPED_TRACE(command);
        EXPECT_TRUE(ShellAccepts(command + Silenced));
        EXPECT_TRUE(ShellAccepts("nohup " + command + Silenced + " &"));
    }
    EXPECT_EQ(spawned, 0);
    EXPECT_FALSE(ShellAccepts("echo '" + Silenced));
    EXPECT_EQ(spawned, 1);
}

TEST_F(ShellSyntaxTest, RunsNothing) {
    const TemporaryDirectory directory;
    const std::string path = directory.Path("made");
    for (const std::string& line : {">" + path, "/usr/bin/touch '" + path + "'",
                                    ": $(/usr/bin/touch " + path + ")", "exit 2; >" + path}) {
        SCOPED_TRACE(line);
        EXPECT_TRUE(ShellAccepts(line));
        EXPECT_FALSE(std::filesystem::exists(path));
    }
    EXPECT_EQ(spawned, 4);
}

TEST_F(ShellSyntaxTest, TakesALineForGoodWhenTheShellCannotBeAsked) {
    EXPECT_FALSE(ShellAccepts("echo '"));
    for (const int reason : {EAGAIN, ENOMEM, E2BIG}) {
        failure = reason;
        EXPECT_TRUE(ShellAccepts("echo '"));
    }
    EXPECT_EQ(spawned, 4);
}

}  // namespace kennly::test
