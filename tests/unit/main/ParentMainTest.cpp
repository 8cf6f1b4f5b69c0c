#include "main/ParentMain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "main/Heartbeat.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "main/Signals.h"
#include "support/RecordedLog.h"
#include "sync/Pause.h"
#include "unit/main/ForkedProcess.h"

namespace {

using kennly::test::Note;

constexpr pid_t ChildNumber = 4711;
constexpr int FarTooManyPauses = 10'000;
constexpr std::int64_t Never = INT64_MAX;
constexpr std::int64_t Second = 1'000'000;  // times are microseconds

// The processes of a simulated parent, and its time, which only its own sleeps let pass.
struct World {
    bool simulated = false;  // otherwise all is real but what a test asks for
    std::int64_t now = 0;
    std::int64_t childEnds = Never;
    std::int64_t lifeAfterSignal = Never;  // what the child takes to end after SIGTERM
    bool childReaped = false;
    std::deque<pid_t> othersEnded;  // processes of the group that wait to be reaped
    int failure = 0;                // the error of every question about the child, unless 0
    bool quickSleeps = false;       // real processes, but nobody sleeps
} world;

// Called in the pause with this number, counted from 1, and in every pause.
std::map<int, std::function<void()>> atPause;
std::function<void()> atEachPause = [] {
};
int pauses = 0;

pid_t Failed(int error) {
    errno = error;
    return -1;
}

pid_t ReapChild() {
    if (world.failure != 0) {
        return Failed(world.failure);
    }
    if (world.childReaped) {
        return Failed(ECHILD);
    }
    world.childReaped = world.now >= world.childEnds;
    return world.childReaped ? ChildNumber : 0;
}

pid_t ReapAny() {
    if (world.othersEnded.empty()) {
        return ReapChild();
    }
    const pid_t reaped = world.othersEnded.front();
    world.othersEnded.pop_front();
    return reaped;
}

std::string NameOf(int signal) {
    return signal == SIGTERM ? "SIGTERM" : signal == SIGKILL ? "SIGKILL" : std::to_string(signal);
}

}  // namespace

extern "C" {

pid_t __real_waitpid(pid_t which, int* status, int options);
pid_t __wrap_waitpid(pid_t which, int* status, int options);
int __real_waitid(idtype_t kind, id_t which, siginfo_t* end, int options);
int __wrap_waitid(idtype_t kind, id_t which, siginfo_t* end, int options);
int __real_kill(pid_t process, int signal);
int __wrap_kill(pid_t process, int signal);
unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds);
int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);

pid_t __wrap_waitpid(pid_t which, int* status, int options) {
    if (!world.simulated) {
        return __real_waitpid(which, status, options);
    }
    if (status != nullptr || options != WNOHANG) {
        Note("a status, or a wait");
    }
    const pid_t reaped = which == ChildNumber ? ReapChild() : ReapAny();
    Note("reap " + std::to_string(which) + ": " + std::to_string(reaped));
    return reaped;
}

int __wrap_waitid(idtype_t kind, id_t which, siginfo_t* end, int options) {
    if (!world.simulated) {
        return __real_waitid(kind, which, end, options);
    }
    if (kind != P_PID || which != static_cast<id_t>(ChildNumber) || world.childReaped) {
        return Failed(ECHILD);
    }
    const bool ended = world.now >= world.childEnds;
    world.childReaped = ended && (options & WNOWAIT) == 0;
    end->si_pid = ended ? ChildNumber : 0;
    return 0;
}

int __wrap_kill(pid_t process, int signal) {
    Note("kill " + std::to_string(process) + " " + NameOf(signal));
    if (!world.simulated) {
        return __real_kill(process, signal);
    }
    if (signal == SIGTERM && world.lifeAfterSignal != Never) {
        world.childEnds = std::min(world.childEnds, world.now + world.lifeAfterSignal);
    }
    return 0;
}

unsigned __wrap_sleep(unsigned seconds) {
    Note("sleep " + std::to_string(seconds));
    world.now += seconds * Second;
    return world.simulated || world.quickSleeps ? 0 : __real_sleep(seconds);
}

int __wrap_usleep(useconds_t microseconds) {
    world.now += microseconds;
    return world.simulated || world.quickSleeps ? 0 : __real_usleep(microseconds);
}
}

namespace kennly {

void WriteParentHeartbeat() noexcept {
    Note("beat");
}

void Pause(unsigned seconds) {
    Note("pause " + std::to_string(seconds));
    world.now += seconds * Second;
    const auto action = atPause.find(++pauses);
    if (action != atPause.end()) {
        action->second();
    }
    atEachPause();
    if (pauses > FarTooManyPauses) {
        _exit(91);
    }
}

}  // namespace kennly

namespace kennly::test {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

using Strings = std::vector<std::string>;

const std::string AskChild = "kill 4711 SIGTERM";
const std::string KillChild = "kill 4711 SIGKILL";

/// In the fork: closes down in the pause with this number.
void CloseAtPause(int number) {
    atPause[number] = [] {
        closingDown = true;
    };
}

/// Plays the parent of a simulated child; `prepare` comes first, in the fork.
EndedProcess RunParent(const std::function<void()>& prepare) {
    return RunForked([&]() -> int {
        roleTag = "P ";
        childPid = ChildNumber;
        world.simulated = true;
        prepare();
        parent_main();
    });
}

/// The notes that begin with one of these words.
Strings NotesOf(const EndedProcess& process, const Strings& words) {
    Strings found;
    for (const std::string& note : process.notes) {
        const std::string word = note.substr(0, note.find(' '));
        if (std::find(words.begin(), words.end(), word) != words.end()) {
            found.push_back(note);
        }
    }
    return found;
}

Strings Joined(Strings first, const Strings& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace

TEST(ParentMainTest, ReapsWhatHasEndedThenBeatsThenPausesForASecond) {
    const EndedProcess process = RunParent([] {
        world.othersEnded = {201, 202};
        atPause[1] = [] {
            world.othersEnded = {203};
        };
        CloseAtPause(3);
    });

    const Strings cycles = {"reap 0: 201", "reap 0: 202", "reap 0: 0", "beat",    "pause 1",
                            "reap 0: 203", "reap 0: 0",   "beat",      "pause 1", "reap 0: 0",
                            "beat",        "pause 1",     "reap 0: 0", AskChild};
    ASSERT_GE(process.notes.size(), cycles.size());
    EXPECT_EQ(Strings(process.notes.begin(),
                      process.notes.begin() + static_cast<std::ptrdiff_t>(cycles.size())),
              cycles);
}

TEST(ParentMainTest, GoesOnBeatingAfterTheEndOfTheChildAndStartsNoOther) {
    const EndedProcess process = RunParent([] {
        world.childEnds = Second;
        CloseAtPause(3);
    });

    EXPECT_THAT(process.notes, ElementsAre("reap 0: 0", "beat", "pause 1", "reap 0: 4711",
                                           "reap 0: -1", "beat", "pause 1", "reap 0: -1", "beat",
                                           "pause 1", "reap 0: -1", "reap 4711: -1"));
}

TEST(ParentMainTest, BeatsNoMoreOnceItClosesDown) {
    const EndedProcess process = RunParent([] { closingDown = true; });

    EXPECT_THAT(process.notes, AllOf(Contains(AskChild), Not(Contains("beat"))));
    EXPECT_THAT(NotesOf(process, {"pause"}), IsEmpty());
}

TEST(ParentMainTest, GivesTheChildTenSecondsToEndBeforeItKillsIt) {
    struct Row {
        std::int64_t lifeAfterSignal;
        std::size_t sleeps;
        bool killed;
    };
    const std::vector<Row> rows = {
        {0, 1, false},            // the first question reaps it, the second finds it gone
        {Second / 10, 1, false},  // as most children do
        {Second / 2, 2, false},
        {Second * 3 / 2, 3, false},
        {Second * 17 / 2, 10, false},
        {Second * 19 / 2, 10, false},  // reaped by the last question
        {Second * 21 / 2, 10, true},
        {Never, 10, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.lifeAfterSignal);
        Strings expected = Joined({AskChild}, Strings(row.sleeps, "sleep 1"));
        if (row.killed) {
            expected.push_back(KillChild);
        }

        const EndedProcess process = RunParent([&] {
            world.lifeAfterSignal = row.lifeAfterSignal;
            CloseAtPause(1);
        });

        EXPECT_EQ(NotesOf(process, {"kill", "sleep"}), expected);
        EXPECT_TRUE(process.ExitedWith(0));
        EXPECT_THAT(process.lines, ElementsAre(process.Exit("P ", 0)));
        EXPECT_EQ(process.logClosed, 1);
    }
}

TEST(ParentMainTest, TakesHardlyMoreThanTenSecondsToStop) {
    const EndedProcess process = RunParent([] {
        closingDown = true;
        std::atexit([] { Note("took " + std::to_string(world.now)); });
    });

    const Strings took = NotesOf(process, {"took"});
    ASSERT_THAT(took, SizeIs(1));
    EXPECT_LT(std::stol(took[0].substr(5)), Second * 21 / 2);
}

TEST(ParentMainTest, NeverSignalsAChildThatItHasReapedBefore) {
    for (const int pausesBefore : {1, 2}) {  // reaped in the cycle of the stop, and before it
        SCOPED_TRACE(pausesBefore);

        const EndedProcess process = RunParent([=] {
            world.childEnds = Second;
            CloseAtPause(pausesBefore);
        });

        EXPECT_THAT(process.notes, Contains("reap 0: 4711"));
        EXPECT_THAT(NotesOf(process, {"kill", "sleep"}), IsEmpty());
        EXPECT_TRUE(process.ExitedWith(0));
    }
}

TEST(ParentMainTest, KillsNobodyInThePlaceOfAChildThatItFindsGone) {
    const EndedProcess process = RunParent([] {
        closingDown = true;
        world.childReaped = true;  // by the kernel, which tells nobody
    });

    EXPECT_THAT(NotesOf(process, {"kill", "sleep"}), ElementsAre(AskChild));
}

TEST(ParentMainTest, NeverSignalsEverybodyForWantOfAChild) {
    const EndedProcess process = RunParent([] {
        childPid = -1;
        closingDown = true;
    });

    EXPECT_THAT(process.notes, Contains("reap -1: 0"));
    EXPECT_THAT(NotesOf(process, {"kill"}), IsEmpty());
    EXPECT_TRUE(process.ExitedWith(0));
}

TEST(ParentMainTest, NeedsNoSignalToReapRealProcesses) {
    const EndedProcess process = RunForked([]() -> int {
        HoldSignals();
        for (int count = 0; count < 3; ++count) {
            childPid = fork();
            if (childPid == 0) {
                _exit(0);
            }
        }
        atEachPause = [] {
            siginfo_t end = {};
            closingDown = __real_waitid(P_ALL, 0, &end, WEXITED | WNOHANG | WNOWAIT) != 0;
            __real_usleep(10'000);
        };
        parent_main();
    });

    EXPECT_TRUE(process.ExitedWith(0));  // none is left
    EXPECT_THAT(NotesOf(process, {"kill", "sleep"}), IsEmpty());
}

/// Asks twice whether the simulated child is gone.
class IsChildGoneTest : public ::testing::Test {
protected:
    static Strings Ask(const std::function<void()>& prepare) {
        const EndedProcess process = RunForked([&] {
            childPid = ChildNumber;
            world.simulated = true;
            prepare();
            for (int times = 0; times < 2; ++times) {
                errno = ECHILD;  // left by some other call
                Note(IsChildGone() ? "gone" : "not gone");
            }
            return 0;
        });
        return process.notes;
    }
};

TEST_F(IsChildGoneTest, IsFalseForAChildThatRuns) {
    EXPECT_THAT(Ask([] {}), ElementsAre("reap 4711: 0", "not gone", "reap 4711: 0", "not gone"));
}

TEST_F(IsChildGoneTest, IsTrueOnlyAfterTheCallThatReaps) {
    EXPECT_THAT(Ask([] { world.childEnds = 0; }),
                ElementsAre("reap 4711: 4711", "not gone", "reap 4711: -1", "gone"));
}

TEST_F(IsChildGoneTest, IsFalseAfterAnyOtherFailure) {
    for (const int error : {EINTR, EINVAL}) {
        SCOPED_TRACE(error);

        EXPECT_THAT(Ask([=] { world.failure = error; }),
                    ElementsAre("reap 4711: -1", "not gone", "reap 4711: -1", "not gone"));
    }
}

/// Plays the parent of a real child in a process of its own, and tells how both end.
class RealChildTest : public ::testing::Test {
protected:
    /// `child` is what the child does until a signal ends it, or an alarm.
    static EndedProcess Run(const std::function<void()>& prepareParent,
                            const std::function<void()>& child) {
        return RunForked([&] {
            prctl(PR_SET_CHILD_SUBREAPER, 1);
            if (fork() == 0) {
                prepareParent();
                childPid = fork();
                if (childPid == 0) {
                    alarm(30);
                    child();
                    _exit(0);
                }
                closingDown = true;
                parent_main();
            }
            Note("parent: " + EndOfAChild());
            Note("child: " + EndOfAChild());
            return 0;
        });
    }

    static void SleepForEver() {
        for (;;) {
            pause();
        }
    }
};

TEST_F(RealChildTest, IsKilledWhenItIgnoresTheSignal) {
    const EndedProcess process = Run(
        [] {
            world.quickSleeps = true;
            std::signal(SIGTERM, SIG_IGN);  // the child inherits it
        },
        SleepForEver);

    EXPECT_THAT(NotesOf(process, {"parent:", "child:"}),
                ElementsAre("parent: exit 0", "child: signal " + std::to_string(SIGKILL)));
}

TEST_F(RealChildTest, IsReapedWhenItObeys) {
    const EndedProcess process = Run([] {}, SleepForEver);

    EXPECT_THAT(NotesOf(process, {"parent:", "child:"}),
                ElementsAre("parent: exit 0", "child: no child"));
    EXPECT_THAT(NotesOf(process, {"kill"}), ElementsAre(HasSubstr("SIGTERM")));
}

/// Sends SIGTERM to this process every 50 ms.
void KeepSendingTheSignal() {
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGTERM;
    timer_t timer = {};
    constexpr timespec often = {0, 50'000'000};
    const itimerspec times = {often, often};
    if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0 ||
        timer_settime(timer, 0, &times, nullptr) != 0) {
        _exit(93);
    }
}

TEST_F(RealChildTest, HasItsTimeThoughTheParentIsToldToEndAgainAndAgain) {
    const EndedProcess process = Run(
        [] {
            std::signal(SIGTERM, OnTerminate);
            KeepSendingTheSignal();  // a fork does not inherit the timer
        },
        [] {
            std::signal(SIGTERM, SIG_IGN);  // until then the handler, which does not end it either
            __real_sleep(2);
        });

    EXPECT_THAT(NotesOf(process, {"parent:", "child:"}),
                ElementsAre("parent: exit 0", "child: no child"));
    EXPECT_THAT(NotesOf(process, {"kill"}), ElementsAre(HasSubstr("SIGTERM")));
}

}  // namespace kennly::test
