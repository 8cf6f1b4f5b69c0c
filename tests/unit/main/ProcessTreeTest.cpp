#include "main/ProcessTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "main/Log.h"
#include "main/ProcessState.h"
#include "main/Signals.h"
#include "support/RecordedLog.h"
#include "support/SandboxPolling.h"
#include "support/TemporaryDirectory.h"
#include "unit/main/ForkedProcess.h"

namespace {

// What happens in the place of a fork and of an execution; both return as the real ones do. Null
// for the real ones.
std::function<pid_t()> insteadOfFork;
std::function<int(const char* path, char* const* arguments)> insteadOfExecution;

// Called before the real prctl and setsid, in the process that calls them.
std::function<void()> beforeDeathSignal;
std::function<void()> beforeNewSession;

}  // namespace

extern "C" {

pid_t __real_fork();
pid_t __wrap_fork();
int __real_execv(const char* path, char* const* arguments);
int __wrap_execv(const char* path, char* const* arguments);
int __real_prctl(int option, ...);
int __wrap_prctl(int option, ...);
pid_t __real_setsid();
pid_t __wrap_setsid();

pid_t __wrap_fork() {
    return insteadOfFork ? insteadOfFork() : __real_fork();
}

int __wrap_execv(const char* path, char* const* arguments) {
    return insteadOfExecution ? insteadOfExecution(path, arguments) : __real_execv(path, arguments);
}

int __wrap_prctl(int option, ...) {
    va_list arguments;
    va_start(arguments, option);
    const int argument = va_arg(arguments, int);
    va_end(arguments);
    if (beforeDeathSignal && option == PR_SET_PDEATHSIG) {
        beforeDeathSignal();
    }
    return __real_prctl(option, argument);
}

pid_t __wrap_setsid() {
    if (beforeNewSession) {
        beforeNewSession();
    }
    return __real_setsid();
}
}

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

constexpr int Entries = 20;
constexpr std::chrono::seconds Limit(30);

using Start = void (*)(int argumentCount, char* const* arguments);

struct Starter {
    std::string name;
    Start start;
    std::string option;
};
const Starter Watcher = {"create_watchdogwatcher", create_watchdogwatcher, "-W"};
const Starter Child = {"createchildprocess", createchildprocess, "-Z"};

/// Calls `start` as a parent that was started with these arguments would.
void StartWith(Start start, std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    start(static_cast<int>(arguments.size()), pointers.data());
}

/// All entries of an argument vector, those that are null as a dash.
std::string Text(const std::vector<const char*>& vector) {
    std::string text;
    for (const char* const entry : vector) {
        text += entry == nullptr ? "-" : "[" + std::string(entry) + "]";
    }
    return text;
}

/// In the place of an execution: notes what would be executed, and does not return.
int NoteExecution(const char* path, char* const* arguments) {
    Note(std::string(path) + " as " + Text({arguments, arguments + Entries}));
    _exit(0);
}

/// In the place of an execution: fails.
int CannotExecute(const char* /*path*/, char* const* /*arguments*/) {
    errno = ENOENT;
    return -1;
}

bool IsPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

}  // namespace

class ProcessTreeTest : public ::testing::Test {
protected:
    ProcessTreeTest() { roleTag = "P "; }
    ~ProcessTreeTest() override {
        roleTag = "  ";
        createWatcher = false;
    }

    /// Expects a parent with these arguments to live on, and what it starts to end with a line and
    /// without a note.
    static void ExpectFailureOfExecution(const Starter& starter,
                                         const std::vector<std::string>& arguments,
                                         int (*execution)(const char*, char* const*)) {
        const EndedProcess parent = RunForked([&] {
            insteadOfFork = [] {
                const pid_t started = __real_fork();
                if (started > 0) {
                    Note(std::to_string(started));
                }
                return started;
            };
            insteadOfExecution = execution;
            StartWith(starter.start, arguments);
            Note(EndOfAChild());
            return 5;
        });

        EXPECT_TRUE(parent.ExitedWith(5));
        ASSERT_EQ(parent.notes.size(), 2U);
        EXPECT_EQ(parent.notes[1], "exit 1");
        EndedProcess started;
        started.pid = std::stoi(parent.notes[0]);
        EXPECT_THAT(parent.lines, ElementsAre(started.Error("P ", starter.name + " - cannot execv"),
                                              started.Exit("P ", 1)));
    }
};

TEST_F(ProcessTreeTest, HasRoomForEighteenArgumentsAndAnOptionForTheChild) {
    EXPECT_TRUE(ArgumentsFit(1));
    EXPECT_TRUE(ArgumentsFit(18));
    EXPECT_FALSE(ArgumentsFit(19));
    EXPECT_FALSE(ArgumentsFit(1000));
}

TEST_F(ProcessTreeTest, KeepsRoomForBothOptionsOfTheWatchersChild) {
    createWatcher = true;

    EXPECT_TRUE(ArgumentsFit(17));
    EXPECT_FALSE(ArgumentsFit(18));
}

TEST_F(ProcessTreeTest, GoesOnInANewProcessWithASessionOfItsOwn) {
    const EndedProcess first = RunForked([] {
        const pid_t starter = getpid();
        const pid_t session = getsid(0);
        DetachFromStarter();
        const bool isNew = getpid() != starter && getsid(0) == getpid() && getsid(0) != session;
        Note(isNew ? "a new process leads its session" : "not detached");
        return 0;
    });

    EXPECT_THAT(first.notes, ElementsAre("a new process leads its session"));
}

TEST_F(ProcessTreeTest, LeavesTheSessionOfTheFirstProcessAlone) {
    const EndedProcess first = RunForked([] {
        beforeNewSession = [starter = getpid()] {
            Note(getpid() == starter ? "session of the first" : "session of the new");
        };
        DetachFromStarter();
        return 0;
    });

    EXPECT_THAT(first.notes, ElementsAre("session of the new"));
}

TEST_F(ProcessTreeTest, EndsTheFirstProcessInOrderAndWithoutALine) {
    const EndedProcess first = RunForked([]() -> int {
        std::atexit([] { Note("end of " + std::to_string(getpid())); });
        DetachFromStarter();
        _exit(5);
    });

    EXPECT_TRUE(first.ExitedWith(0));
    EXPECT_THAT(first.notes, ElementsAre("end of " + std::to_string(first.pid)));
    EXPECT_THAT(first.lines, IsEmpty());
    EXPECT_EQ(first.logClosed, 0);
}

TEST_F(ProcessTreeTest, HandsATerminationThatWaitsOnToTheNewProcess) {
    struct Row {
        int waiting;  // a signal, 0 for none
        const char* note;
    };
    for (const Row& row : {Row{SIGTERM, "ends"}, Row{0, "lives"}, Row{SIGHUP, "lives"}}) {
        SCOPED_TRACE(row.waiting);

        const EndedProcess first = RunForked([&row] {
            HoldSignals();
            kill(getpid(), row.waiting);
            const pid_t starter = getpid();
            DetachFromStarter();
            // Whatever it has sent has arrived once it has ended.
            if (!WaitUntil([=] { return getppid() != starter; }, Limit)) {
                _exit(92);
            }
            Note(IsPending(SIGTERM) ? "ends" : "lives");
            return 0;
        });

        EXPECT_TRUE(first.ExitedWith(0));
        EXPECT_THAT(first.notes, ElementsAre(row.note));
    }
}

TEST_F(ProcessTreeTest, PassesItsOwnArgumentsOnWithTheOptionAfterThem) {
    const std::vector<std::string> all = {
        "sbin/kennly", "-w", "",   "-f two words", "%s", "-Z", "-W", "\xff", "$HOME",
        "*",           "-w", "-w", "-w",           "-w", "-w", "-w", "-w",   "-w"};
    ASSERT_EQ(all.size(), 18U);
    for (const Starter& starter : {Watcher, Child}) {
        for (int count = 1; count <= 18; ++count) {
            SCOPED_TRACE(starter.name + " with " + std::to_string(count));
            const std::vector<std::string> own(all.begin(), all.begin() + count);
            std::vector<const char*> expected(Entries, nullptr);
            for (std::size_t i = 0; i < own.size(); ++i) {
                expected[i] = own[i].c_str();
            }
            expected[own.size()] = starter.option.c_str();

            const EndedProcess process = RunForked([&] {
                insteadOfExecution = NoteExecution;
                StartWith(starter.start, own);
                Note("started: " + EndOfAChild());
                return 0;
            });

            EXPECT_THAT(process.notes, UnorderedElementsAre("sbin/kennly as " + Text(expected),
                                                            "started: exit 0"));
        }
    }
}

TEST_F(ProcessTreeTest, EndsAfterAFailedFork) {
    struct Row {
        std::string name;
        std::function<void()> call;
        int status;
    };
    const std::vector<Row> rows = {
        {"main", DetachFromStarter, 1},
        {Watcher.name, [] { StartWith(Watcher.start, {"kennly"}); }, 1},
        {Child.name, [] { StartWith(Child.start, {"kennly"}); }, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);

        const EndedProcess process = RunForked([&] {
            insteadOfFork = [] {
                errno = EAGAIN;
                return -1;
            };
            row.call();
            return 5;
        });

        EXPECT_TRUE(process.ExitedWith(row.status));
        EXPECT_THAT(process.lines, ElementsAre(process.Error("P ", row.name + " - cannot fork"),
                                               process.Exit("P ", row.status)));
        EXPECT_EQ(process.logClosed, 1);
    }
}

TEST_F(ProcessTreeTest, LivesOnWhenWhatItStartsCannotBeExecuted) {
    for (const Starter& starter : {Watcher, Child}) {
        SCOPED_TRACE(starter.name);
        ExpectFailureOfExecution(starter, {"kennly"}, CannotExecute);
    }
}

TEST_F(ProcessTreeTest, ExecutesNothingWhenItHasNoPathOfItsOwn) {
    for (const Starter& starter : {Watcher, Child}) {
        SCOPED_TRACE(starter.name);
        ExpectFailureOfExecution(starter, {}, NoteExecution);
    }
}

TEST_F(ProcessTreeTest, KeepsTheNumberOfTheChildAndNotThatOfTheWatcher) {
    const EndedProcess parent = RunForked([] {
        insteadOfExecution = [](const char*, char* const*) -> int {
            _exit(0);
        };
        StartWith(Watcher.start, {"kennly"});
        Note("after the watcher " + std::to_string(childPid));
        wait(nullptr);
        StartWith(Child.start, {"kennly"});
        Note(wait(nullptr) == childPid ? "after the child its number" : "another number");
        return 0;
    });

    EXPECT_THAT(parent.notes, ElementsAre("after the watcher -1", "after the child its number"));
}

TEST_F(ProcessTreeTest, ChangesNothingButTheNumberOfTheChildInTheParent) {
    const EndedProcess parent = RunForked([] {
        beforeDeathSignal = [parent = getpid()] {
            Note(getpid() == parent ? "death signal of the parent" : "death signal of the child");
        };
        beforeNewSession = [] {
            Note("a session");
        };
        insteadOfExecution = [](const char*, char* const*) -> int {
            _exit(0);
        };
        StartWith(Watcher.start, {"kennly"});
        StartWith(Child.start, {"kennly"});
        return 0;
    });

    EXPECT_THAT(parent.notes, ElementsAre("death signal of the child"));
}

/// A child whose parent may die at two points, with signals held.
class OrphanedProcessTreeTest : public ProcessTreeTest {
protected:
    /// In the child: kills the parent and waits until the child is an orphan.
    static void KillParent() {
        const pid_t parent = getppid();
        kill(parent, SIGKILL);
        if (!WaitUntil([=] { return getppid() != parent; }, Limit)) {
            _exit(92);
        }
    }

    /// The child's note of whether the signal that ends it waits when it executes the program.
    static std::vector<std::string> NoteOf(const std::function<void()>& beforeItAsksForTheSignal,
                                           const std::function<void()>& beforeItExecutes) {
        const EndedProcess parent = RunForked([&] {
            HoldSignals();
            beforeDeathSignal = beforeItAsksForTheSignal;
            insteadOfExecution = [&](const char*, char* const*) -> int {
                beforeItExecutes();
                Note(IsPending(SIGTERM) ? "ends" : "lives");
                _exit(0);
            };
            StartWith(Child.start, {"kennly"});
            wait(nullptr);
            return 0;
        });
        return parent.notes;
    }
};

TEST_F(OrphanedProcessTreeTest, EndsAChildWhoseParentDiedBeforeItAskedToBeTold) {
    EXPECT_THAT(NoteOf(KillParent, [] {}), ElementsAre("ends"));
}

TEST_F(OrphanedProcessTreeTest, EndsAChildWhoseParentDiedAfterItAskedToBeTold) {
    const auto killAndAwaitTheSignal = [] {
        KillParent();
        WaitUntil([] { return IsPending(SIGTERM); }, Limit);  // a moment later, maybe
    };

    EXPECT_THAT(NoteOf([] {}, killAndAwaitTheSignal), ElementsAre("ends"));
}

TEST_F(OrphanedProcessTreeTest, LeavesAChildAloneWhoseParentLives) {
    EXPECT_THAT(NoteOf([] {}, [] {}), ElementsAre("lives"));
}

/// Executes a real program, a script in a directory of the test.
class ExecutedProcessTreeTest : public ProcessTreeTest {
protected:
    /// Writes the script `kennly` with these lines.
    void GivenProgram(const std::string& lines) {
        const std::string path = directory_.Write("kennly", "#!/bin/sh\n" + lines + "\n");
        ASSERT_EQ(chmod(path.c_str(), 0700), 0);
    }

    /// Runs a parent in the directory of the script, started with these arguments, that does `then`
    /// after it has started something.
    EndedProcess RunParent(const Starter& starter, const std::vector<std::string>& arguments,
                           const std::function<void()>& then) {
        return RunForked([&] {
            PlayParent(starter, arguments, then);
            return 0;
        });
    }

    void PlayParent(const Starter& starter, const std::vector<std::string>& arguments,
                    const std::function<void()>& then) {
        if (chdir(directory_.Path("").c_str()) != 0) {
            _exit(90);
        }
        StartWith(starter.start, arguments);
        then();
    }

    /// How a started program ends that is sent SIGRTMIN after the death of the parent that started
    /// it. A SIGTERM that waits comes first, having the lower number.
    std::string EndOfOrphan(const Starter& starter) {
        // Starts nothing itself: another orphan might be the one whose end is noted.
        GivenProgram("echo $$ >number; exec sleep 60");
        const EndedProcess observer = RunForked([&] {
            prctl(PR_SET_CHILD_SUBREAPER, 1);
            const pid_t parent = fork();
            if (parent == 0) {
                PlayParent(starter, {"kennly"}, [&] {
                    WaitUntil([&] { return !directory_.Read("number").empty(); }, Limit);
                });
                raise(SIGKILL);
            }
            waitpid(parent, nullptr, 0);
            kill(std::stoi(directory_.Read("number")), SIGRTMIN);
            Note(EndOfAChild());
            return 0;
        });
        return observer.notes.size() == 1 ? observer.notes[0] : "(no note)";
    }

    const TemporaryDirectory directory_;
};

TEST_F(ExecutedProcessTreeTest, FindsTheProgramInTheWorkingDirectory) {
    GivenProgram("printf '[%s]' \"$@\" >arguments");
    for (const Starter& starter : {Watcher, Child}) {
        SCOPED_TRACE(starter.name);
        directory_.Write("arguments", "");

        const EndedProcess parent =
            RunParent(starter, {"kennly", "-w", "a b"}, [] { Note(EndOfAChild()); });

        EXPECT_THAT(parent.notes, ElementsAre("exit 0"));
        EXPECT_EQ(directory_.Read("arguments"), "[-w][a b][" + starter.option + "]");
    }
}

TEST_F(ExecutedProcessTreeTest, DoesNotSearchForTheProgram) {
    for (const Starter& starter : {Watcher, Child}) {
        SCOPED_TRACE(starter.name);

        const EndedProcess parent = RunParent(starter, {"true"}, [] { Note(EndOfAChild()); });

        EXPECT_THAT(parent.notes, ElementsAre("exit 1"));
    }
}

TEST_F(ExecutedProcessTreeTest, HasTheKernelEndTheChildOfAParentThatIsKilled) {
    EXPECT_EQ(EndOfOrphan(Child), "signal " + std::to_string(SIGTERM));
}

TEST_F(ExecutedProcessTreeTest, LetsTheWatcherOutliveTheParent) {
    EXPECT_EQ(EndOfOrphan(Watcher), "signal " + std::to_string(SIGRTMIN));
}

}  // namespace kennly::test
