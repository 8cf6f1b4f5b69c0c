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
#include <utility>
#include <vector>

#include "main/ChildMain.h"
#include "main/Heartbeat.h"
#include "main/Log.h"
#include "main/ParentMain.h"
#include "main/ProcessState.h"
#include "main/ProcessTree.h"
#include "main/Signals.h"
#include "support/RecordedLog.h"
#include "support/TemporaryDirectory.h"
#include "unit/main/ForkedProcess.h"

namespace {

// What the loops do in the place of the real ones.
std::function<void()> loop = [] {
};

// What each step of the start-up adds to its note.
std::function<std::string()> look = [] {
    return "";
};

void Step(const std::string& name) {
    const std::string seen = look();
    kennly::test::Note(seen.empty() ? name : name + ": " + seen);
}

// The number of arguments, the program's path among them, that can be passed on.
int room = 100;

std::string Joined(int argumentCount, char* const* arguments) {
    std::string all;
    for (int i = 0; i < argumentCount; ++i) {
        all += std::string(" ") + arguments[i];
    }
    return all;
}

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

// Looks at one signal of each kind: one to end a process, one to interrupt it, one that is
// harmless.
std::string HeldSignals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::string held;
    for (const auto& [signal, name] :
         {std::pair{SIGTERM, " TERM"}, {SIGINT, " INT"}, {SIGCHLD, " CHLD"}}) {
        held += sigismember(&mask, signal) == 1 ? name : "";
    }
    return "held" + held;
}

}  // namespace

namespace kennly {

// Stand-ins: the real ones would write below /opt, start processes and never return.
void WriteHeartbeat(const char* path) noexcept {
    test::Note(std::string("heartbeat of ") + path);
}

void WriteParentHeartbeat() noexcept {
    Step("parent heartbeat");
}

void WriteChildHeartbeat() noexcept {
    Step("child heartbeat");
}

bool ArgumentsFit(int argumentCount) {
    return argumentCount + (createWatcher ? 1 : 0) <= room;
}

void DetachFromStarter() {
    Step("detach");
}

void create_watchdogwatcher(int argumentCount, char* const* arguments) {
    Step("watcher of" + Joined(argumentCount, arguments));
}

void createchildprocess(int argumentCount, char* const* arguments) {
    Step("child of" + Joined(argumentCount, arguments));
}

void parent_main() {
    Step("parent loop");
    loop();
    LogExit(0);
}

void child_main() {
    Step("child loop");
    loop();
    LogExit(0);
}

}  // namespace kennly

namespace kennly::test {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

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

    /// The options that lead to each of the three start-ups.
    static constexpr const char* OneOptionEach[] = {"-f", "-Z", "-w"};
};

void BlockAllSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

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
        {{"-Z", "-W"}, "WC"}, {{"-f", "-Z", "-W"}, "  "}, {{"-f", "-w"}, "  "},
    };
    for (const auto& [arguments, tag] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const EndedProcess process = Run(arguments);

        EXPECT_TRUE(process.ExitedWith(0));
        EXPECT_THAT(process.notes, ElementsAre("child heartbeat", "child loop"));
        EXPECT_THAT(process.lines, ElementsAre(process.Exit(tag, 0)));
    }
}

TEST_F(DaemonTest, PlaysTheParentUnderTheTagOfItsRole) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{}, "P "}, {{"-w"}, "P "}, {{"-W"}, "WP"}, {{"-w", "-W"}, "WP"}, {{"-W", "-w"}, "WP"},
    };
    for (const auto& [arguments, tag] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const EndedProcess process = Run(arguments, [] {
            look = [] {
                return roleTag;
            };
        });

        EXPECT_TRUE(process.ExitedWith(0));
        EXPECT_THAT(process.notes, AllOf(Not(IsEmpty()), Each(EndsWith(": " + tag))));
        EXPECT_THAT(process.lines, ElementsAre(process.Exit(tag, 0)));
    }
}

TEST_F(DaemonTest, DetachesAndBeatsBeforeItStartsTheChildWithItsOwnArguments) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{}, ""}, {{"-W"}, " -W"}, {{"-w", "-W"}, " -w -W"}, {{"-W", "-w"}, " -W -w"}};
    for (const auto& [arguments, own] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const EndedProcess process = Run(arguments);

        EXPECT_THAT(process.notes, ElementsAre("detach", "parent heartbeat",
                                               "child of /usr/sbin/kennly" + own, "parent loop"));
    }
}

TEST_F(DaemonTest, StartsTheWatcherThatIsAskedForBeforeTheChild) {
    const EndedProcess process = Run({"-w"});

    EXPECT_THAT(process.notes,
                ElementsAre("detach", "parent heartbeat", "watcher of /usr/sbin/kennly -w",
                            "child of /usr/sbin/kennly -w", "parent loop"));
}

TEST_F(DaemonTest, ClosesTheStandardDescriptorsBeforeAnythingElseIsOpened) {
    for (const char* const option : OneOptionEach) {
        SCOPED_TRACE(option);

        const EndedProcess process = Run({option}, [] {
            look = [] {
                return "open[" + OpenDescriptors() + "]";
            };
        });

        EXPECT_THAT(process.notes, AllOf(Not(IsEmpty()), Each(EndsWith(": open[]"))));
    }
}

TEST_F(DaemonTest, InstallsTheDispositionsOfTheRole) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{"-f"}, "child loop: ends ends ignored"},
        {{"-Z"}, "child loop: ends ignored ignored"},
        {{"-f", "-Z"}, "child loop: ends ignored ignored"},
        {{"-Z", "-f"}, "child loop: ends ignored ignored"},
        {{}, "parent loop: ends ignored ignored"},
        {{"-W"}, "parent loop: ends ignored ignored"},
    };
    for (const auto& [arguments, dispositions] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const EndedProcess process = Run(arguments, [] {
            look = [] {
                return DispositionOf(SIGTERM) + " " + DispositionOf(SIGUSR1) + " " +
                       DispositionOf(SIGPIPE);
            };
        });

        ASSERT_THAT(process.notes, Not(IsEmpty()));
        EXPECT_EQ(process.notes.back(), dispositions);
    }
}

TEST_F(DaemonTest, InstallsTheDispositionsRightAfterTheFirstHeartbeat) {
    const auto lookAtOne = [] {
        look = [] {
            return DispositionOf(SIGTERM);
        };
    };

    EXPECT_THAT(Run({"-Z"}, lookAtOne).notes,
                ElementsAre("child heartbeat: default", "child loop: ends"));
    EXPECT_THAT(Run({"-w"}, lookAtOne).notes,
                ElementsAre("detach: default", "parent heartbeat: default",
                            "watcher of /usr/sbin/kennly -w: ends",
                            "child of /usr/sbin/kennly -w: ends", "parent loop: ends"));
}

TEST_F(DaemonTest, HoldsSignalsUntilTheLoopBegins) {
    const std::string held = "held TERM INT CHLD";
    for (const char* const option : OneOptionEach) {
        SCOPED_TRACE(option);

        std::vector<std::string> notes = Run({option}, [] { look = HeldSignals; }).notes;

        ASSERT_THAT(notes, SizeIs(::testing::Ge(2U)));
        EXPECT_THAT(notes.back(), EndsWith(" loop: held"));
        notes.pop_back();
        EXPECT_THAT(notes, Each(EndsWith(": " + held)));
    }
}

TEST_F(DaemonTest, ReleasesSignalsThatTheLauncherHasBlocked) {
    for (const char* const option : OneOptionEach) {
        SCOPED_TRACE(option);

        const EndedProcess process = Run({option}, [] {
            BlockAllSignals();
            std::signal(SIGCHLD, SIG_IGN);
            loop = [] {
                Note(HeldSignals() + ", SIGCHLD " + DispositionOf(SIGCHLD));
            };
        });

        ASSERT_THAT(process.notes, Not(IsEmpty()));
        EXPECT_EQ(process.notes.back(), "held, SIGCHLD default");
    }
}

TEST_F(DaemonTest, MeetsASignalThatCameAtAnyStepWithItsHandler) {
    for (const char* const option : OneOptionEach) {
        const std::size_t steps = Run({option}).notes.size() - 1;  // before the loop
        for (std::size_t step = 1; step <= steps; ++step) {
            SCOPED_TRACE(std::string(option) + ", step " + std::to_string(step));

            const EndedProcess process = Run({option}, [=] {
                look = [=, now = std::size_t{0}]() mutable {
                    if (++now == step) {
                        std::raise(SIGTERM);
                    }
                    return closingDown ? "closing down" : "";
                };
            });

            EXPECT_TRUE(process.ExitedWith(0));
            ASSERT_THAT(process.notes, SizeIs(steps + 1));
            EXPECT_THAT(process.notes.back(), EndsWith(" loop: closing down"));
        }
    }
}

TEST_F(DaemonTest, MeetsASignalThatWaitedBehindTheInheritedMaskWithItsHandler) {
    for (const char* const option : OneOptionEach) {
        SCOPED_TRACE(option);

        const EndedProcess process = Run({option}, [] {
            BlockAllSignals();
            std::raise(SIGTERM);
            loop = [] {
                Note(closingDown ? "closing down" : "not closing down");
            };
        });

        EXPECT_TRUE(process.ExitedWith(0));
        ASSERT_THAT(process.notes, Not(IsEmpty()));
        EXPECT_EQ(process.notes.back(), "closing down");
    }
}

TEST_F(DaemonTest, KnowsTheTimeZoneBeforeTheLoopBegins) {
    const EndedProcess process = Run({"-f"}, [] {
        setenv("TZ", "KEN-3", 1);
        loop = [] {
            Note(tzname[0]);
        };
    });

    EXPECT_THAT(process.notes, ElementsAre("child heartbeat", "child loop", "KEN"));
}

TEST_F(DaemonTest, LogsAnExceptionThatLeavesTheLoopAndFails) {
    const std::vector<std::pair<std::string, std::string>> rows = {{"-Z", "C "}, {"-w", "P "}};
    for (const auto& [option, tag] : rows) {
        SCOPED_TRACE(option);

        const EndedProcess process = Run({option}, [] {
            loop = [] {
                throw std::runtime_error("unforeseen");
            };
        });

        EXPECT_TRUE(process.ExitedWith(1));
        EXPECT_THAT(process.lines,
                    ElementsAre(process.Error(tag, "exception in parent_main or child_main!")));
    }
}

TEST_F(DaemonTest, RefusesAsAParentMoreArgumentsThanCanBePassedOn) {
    const EndedProcess process = Run({"-W", "-W"}, [] { room = 2; });

    EXPECT_TRUE(process.ExitedWith(1));
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("WP", "too many arguments"), process.Exit("WP", 1)));
    EXPECT_THAT(process.notes, IsEmpty());
}

TEST_F(DaemonTest, RefusesThemKnowingWhetherAWatcherIsAskedFor) {
    const auto givenRoomForThree = [] {
        room = 3;
    };

    EXPECT_TRUE(Run({"-W", "-w"}, givenRoomForThree).ExitedWith(0));
    EXPECT_TRUE(Run({"-w", "-w"}, givenRoomForThree).ExitedWith(1));
}

TEST_F(DaemonTest, TakesAnyNumberOfArgumentsWhenItPassesNoneOn) {
    for (const char* const option : {"-f", "-Z"}) {
        SCOPED_TRACE(option);

        const EndedProcess process = Run(std::vector<std::string>(100, option), [] { room = 0; });

        EXPECT_TRUE(process.ExitedWith(0));
        EXPECT_THAT(process.notes, ElementsAre("child heartbeat", "child loop"));
    }
}

}  // namespace kennly::test
