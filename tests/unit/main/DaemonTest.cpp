#include "main/Daemon.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "main/ChildMain.h"
#include "main/Heartbeat.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "main/Signals.h"
#include "support/RecordedLog.h"
#include "support/TemporaryDirectory.h"
#include "unit/main/ForkedProcess.h"

namespace {

// What the child loop does in the place of the real one.
std::function<void()> childLoop;

std::string OpenDescriptors() {
    std::string open;
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            open += std::to_string(descriptor);
        }
    }
    return open;
}

std::string DispositionOf(int signal) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == kennly::OnTerminate) {
        return "ends";
    }
    return action.sa_handler == SIG_IGN ? "ignored" : "default";
}

}  // namespace

namespace kennly {

// Stand-ins: the real ones would write below /opt and never return.
void WriteHeartbeat(const char* path) noexcept {
    test::Note(std::string("heartbeat of ") + path);
}

void WriteChildHeartbeat() noexcept {
    test::Note("heartbeat, open descriptors [" + OpenDescriptors() + "], SIGTERM " +
               DispositionOf(SIGTERM));
}

void child_main() {
    childLoop();
    LogExit(0);
}

}  // namespace kennly

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class DaemonTest : public ::testing::Test {
protected:
    /// Runs the program with these arguments after its path; `before` comes first, in the fork.
    static EndedProcess Run(
        std::vector<std::string> arguments, const std::function<void()>& before = [] {}) {
        arguments.insert(arguments.begin(), "/usr/sbin/kennly");
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        return RunForked([&] {
            before();
            return RunDaemon(static_cast<int>(pointers.size()) - 1, pointers.data());
        });
    }

    /// The note that the child loop leaves of what `look` finds.
    static std::function<void()> ChildLoopNotes(const std::function<std::string()>& look) {
        return [look] {
            childLoop = [look] {
                Note("loop: " + look());
            };
        };
    }
};

constexpr char Usage[] =
    "Usage: kennly\n"
    "Optional arguments:\n"
    "    -w                  (to run a watchdog watcher)\n"
    "    -f                  (to run in foreground)\n";

TEST_F(DaemonTest, WritesTheUsageForAnUnknownArgumentAndFails) {
    const TemporaryDirectory directory;
    for (const char* const argument : {"-x", "", "help"}) {
        SCOPED_TRACE(argument);
        const std::string text = directory.Write("error", "");

        const EndedProcess process = Run({"-f", argument}, [&] {
            dup2(open(text.c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        });

        EXPECT_TRUE(process.ExitedWith(1));
        EXPECT_EQ(directory.Read("error"), Usage);
        EXPECT_THAT(process.lines, IsEmpty());
        EXPECT_THAT(process.notes, IsEmpty());
    }
}

TEST_F(DaemonTest, LogsAnExceptionWhileItWritesTheUsage) {
    const EndedProcess process = Run({"-x"}, [] {
        close(STDERR_FILENO);
        std::cerr.exceptions(std::ios::badbit);
    });

    EXPECT_TRUE(process.ExitedWith(1));
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("??", "exception while parsing arguments!")));
}

TEST_F(DaemonTest, OpensTheLogBeforeItReadsTheArguments) {
    const EndedProcess process = Run({"-x"}, [] {
        close(STDERR_FILENO);
        std::atexit([] {
            const RecordedConnection connection = LogConnection();
            Note(connection.identity + " " + std::to_string(connection.options) + " " +
                 std::to_string(connection.facility));
        });
    });

    EXPECT_THAT(process.notes, ElementsAre("kennly 0 " + std::to_string(LOG_LOCAL4)));
}

TEST_F(DaemonTest, ForgetsTheRoleBeforeItReadsTheArguments) {
    const EndedProcess process = Run({"-x"}, [] {
        close(STDERR_FILENO);
        roleTag = "WC";
        childPid = 4711;
        childMode = watcherMode = createWatcher = true;
        std::atexit([] {
            Note(std::string(roleTag) + " " + std::to_string(childPid) + " " +
                 std::to_string(childMode || watcherMode || createWatcher));
        });
    });

    EXPECT_THAT(process.notes, ElementsAre("?? -1 0"));
}

TEST_F(DaemonTest, PlaysTheChildUnderTheTagOfItsRole) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{"-f"}, "  "},       {{"-f", "-W"}, "  "},       {{"-f", "-Z"}, "  "},
        {{"-Z"}, "C "},       {{"-w", "-Z"}, "C "},       {{"-W", "-Z"}, "WC"},
        {{"-Z", "-W"}, "WC"}, {{"-f", "-Z", "-W"}, "  "},
    };
    for (const auto& [arguments, tag] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const EndedProcess process = Run(arguments, ChildLoopNotes([] { return "reached"; }));

        EXPECT_TRUE(process.ExitedWith(0));
        EXPECT_THAT(process.notes, ElementsAre(HasSubstr("heartbeat"), "loop: reached"));
        EXPECT_THAT(process.lines, ElementsAre(process.Exit(tag, 0)));
    }
}

TEST_F(DaemonTest, ClosesTheStandardDescriptorsBeforeAnythingElseIsOpened) {
    for (const char* const option : {"-f", "-Z"}) {
        SCOPED_TRACE(option);

        const EndedProcess process = Run({option}, ChildLoopNotes(OpenDescriptors));

        EXPECT_THAT(process.notes,
                    ElementsAre("heartbeat, open descriptors [], SIGTERM default", "loop: "));
    }
}

TEST_F(DaemonTest, InstallsTheDispositionsOfTheRole) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{"-f"}, "loop: ends ends ignored"},
        {{"-Z"}, "loop: ends ignored ignored"},
        {{"-f", "-Z"}, "loop: ends ignored ignored"},
        {{"-Z", "-f"}, "loop: ends ignored ignored"},
    };
    for (const auto& [arguments, dispositions] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const EndedProcess process = Run(arguments, ChildLoopNotes([] {
                                             return DispositionOf(SIGTERM) + " " +
                                                    DispositionOf(SIGUSR1) + " " +
                                                    DispositionOf(SIGPIPE);
                                         }));

        EXPECT_THAT(process.notes, ElementsAre(HasSubstr("heartbeat"), dispositions));
    }
}

TEST_F(DaemonTest, UndoesInheritedSignalState) {
    const EndedProcess process = Run({"-f"}, [] {
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        childLoop = [] {
            sigset_t mask;
            pthread_sigmask(SIG_SETMASK, nullptr, &mask);
            Note("SIGCHLD " + DispositionOf(SIGCHLD) + ", SIGTERM blocked " +
                 std::to_string(sigismember(&mask, SIGTERM)));
        };
    });

    EXPECT_THAT(process.notes,
                ElementsAre(HasSubstr("heartbeat"), "SIGCHLD default, SIGTERM blocked 0"));
}

TEST_F(DaemonTest, MeetsASignalThatWaitedBehindTheInheritedMaskWithItsHandler) {
    const EndedProcess process = Run({"-f"}, [] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        std::raise(SIGTERM);
        childLoop = [] {
            Note(closingDown ? "closing down" : "not closing down");
        };
    });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_THAT(process.notes, ElementsAre(HasSubstr("heartbeat"), "closing down"));
}

TEST_F(DaemonTest, KnowsTheTimeZoneBeforeTheLoopBegins) {
    const EndedProcess process = Run({"-f"}, [] {
        setenv("TZ", "KEN-3", 1);
        childLoop = [] {
            Note(tzname[0]);
        };
    });

    EXPECT_THAT(process.notes, ElementsAre(HasSubstr("heartbeat"), "KEN"));
}

TEST_F(DaemonTest, LogsAnExceptionThatLeavesTheLoopAndFails) {
    const EndedProcess process = Run({"-Z"}, [] {
        childLoop = [] {
            throw std::runtime_error("unforeseen");
        };
    });

    EXPECT_TRUE(process.ExitedWith(1));
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("C ", "exception in parent_main or child_main!")));
}

TEST_F(DaemonTest, CannotRunInTheBackgroundYet) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{}, "P "}, {{"-w"}, "P "}, {{"-W"}, "WP"}, {{"-W", "-w"}, "WP"}};
    for (const auto& [arguments, tag] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const EndedProcess process =
            Run(arguments, [] { std::atexit([] { Note("open [" + OpenDescriptors() + "]"); }); });

        EXPECT_TRUE(process.ExitedWith(1));
        EXPECT_THAT(process.lines, ElementsAre(process.Error(tag,
                                                             "cannot run in the background yet - "
                                                             "start with -f"),
                                               process.Exit(tag, 1)));
        EXPECT_THAT(process.notes, ElementsAre("open []"));
    }
}

TEST_F(DaemonTest, RefusesAsAParentMoreArgumentsThanCanBePassedOn) {
    const EndedProcess process = Run(std::vector<std::string>(18, "-W"));

    EXPECT_TRUE(process.ExitedWith(1));
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("WP", "too many arguments"), process.Exit("WP", 1)));
}

TEST_F(DaemonTest, RefusesOneArgumentLessWhenAWatcherIsAskedFor) {
    const EndedProcess process = Run(std::vector<std::string>(17, "-w"));

    EXPECT_TRUE(process.ExitedWith(1));
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("P ", "too many arguments"), process.Exit("P ", 1)));
}

TEST_F(DaemonTest, TakesAnyNumberOfArgumentsInTheForeground) {
    const EndedProcess process =
        Run(std::vector<std::string>(100, "-f"), ChildLoopNotes([] { return "reached"; }));

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_THAT(process.notes, ElementsAre(HasSubstr("heartbeat"), "loop: reached"));
}

}  // namespace kennly::test
