#include "main/Signals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "main/ProcessState.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::vector<int> AllSignals = {SIGINT,  SIGQUIT, SIGHUP,  SIGTERM,
                                     SIGPIPE, SIGUSR1, SIGUSR2, SIGCHLD};

struct Role {
    const char* name;
    void (*install)();
};
const Role Parent = {"parent", InstallParentSignals};
const Role Foreground = {"foreground", InstallForegroundSignals};
const Role Child = {"child", InstallChildSignals};

struct sigaction Disposition(int signal) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action;
}

void (*Handler(int signal))(int) {
    return Disposition(signal).sa_handler;
}

std::vector<int> SignalsWithHandler(void (*handler)(int)) {
    std::vector<int> found;
    for (const int signal : AllSignals) {
        if (Handler(signal) == handler) {
            found.push_back(signal);
        }
    }
    return found;
}

std::vector<int> BlockedSignals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::vector<int> blocked;
    for (int signal = 1; signal < NSIG; ++signal) {
        if (sigismember(&mask, signal) == 1) {
            blocked.push_back(signal);
        }
    }
    return blocked;
}

// What a program may block: the kernel keeps two for itself, and the C library those below
// SIGRTMIN.
std::vector<int> SignalsThatCanBeBlocked() {
    std::vector<int> signals;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP && (signal < 32 || signal >= SIGRTMIN)) {
            signals.push_back(signal);
        }
    }
    return signals;
}

}  // namespace

class SignalsTest : public ::testing::Test {
protected:
    SignalsTest() {
        pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore_);
        for (const int signal : AllSignals) {
            before_[signal] = Disposition(signal);
        }
        SetAllToDefault();
        closingDown = false;
    }

    ~SignalsTest() override {
        for (const auto& [signal, action] : before_) {
            sigaction(signal, &action, nullptr);
        }
        pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
        closingDown = false;
    }

    static void SetAllToDefault() {
        for (const int signal : AllSignals) {
            std::signal(signal, SIG_DFL);
        }
    }

    std::map<int, struct sigaction> before_;
    sigset_t maskBefore_;
};

TEST_F(SignalsTest, OnlyAsksForTheEndInItsHandler) {
    errno = EAGAIN;

    OnTerminate(SIGTERM);

    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(closingDown);
    EXPECT_FALSE(tidyingThreadPool);
    EXPECT_TRUE(firstLoad);
    EXPECT_EQ(maxLoadErrors, 10);
    EXPECT_EQ(childPid, -1);
}

TEST_F(SignalsTest, LetsEverySignalEndAForegroundProcessButIgnoresBrokenPipes) {
    InstallForegroundSignals();

    EXPECT_THAT(SignalsWithHandler(OnTerminate),
                ElementsAre(SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR1, SIGUSR2));
    EXPECT_THAT(SignalsWithHandler(SIG_IGN), ElementsAre(SIGPIPE));
    EXPECT_THAT(SignalsWithHandler(SIG_DFL), ElementsAre(SIGCHLD));
}

TEST_F(SignalsTest, LetsOnlyTheTerminateSignalEndAParentOrAChild) {
    for (const Role& role : {Parent, Child}) {
        SCOPED_TRACE(role.name);
        SetAllToDefault();

        role.install();

        EXPECT_THAT(SignalsWithHandler(OnTerminate), ElementsAre(SIGTERM));
        EXPECT_THAT(SignalsWithHandler(SIG_IGN),
                    ElementsAre(SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2));
        EXPECT_THAT(SignalsWithHandler(SIG_DFL), ElementsAre(SIGCHLD));
    }
}

TEST_F(SignalsTest, LetsTheChildsDispositionsWinOverTheForegroundOnes) {
    InstallForegroundSignals();
    InstallChildSignals();

    EXPECT_THAT(SignalsWithHandler(OnTerminate), ElementsAre(SIGTERM));
    EXPECT_THAT(SignalsWithHandler(SIG_IGN),
                ElementsAre(SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2));
}

TEST_F(SignalsTest, EndsAForegroundProcessAtTheArrivalOfASignal) {
    InstallForegroundSignals();

    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR1, SIGUSR2}) {
        SCOPED_TRACE(signal);
        for (int times = 0; times < 2; ++times) {  // a handler that is used up would kill
            closingDown = false;
            raise(signal);
            EXPECT_TRUE(closingDown);
        }
    }
}

TEST_F(SignalsTest, IgnoresTheOtherSignalsInAParentOrAChild) {
    for (const Role& role : {Parent, Child}) {
        SCOPED_TRACE(role.name);
        SetAllToDefault();
        closingDown = false;

        role.install();

        for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2}) {
            SCOPED_TRACE(signal);
            raise(signal);
            EXPECT_FALSE(closingDown);
        }
        raise(SIGTERM);
        EXPECT_TRUE(closingDown);
    }
}

TEST_F(SignalsTest, LeavesTheIgnoredSignalsIgnoredInCommands) {
    const TemporaryDirectory directory;
    InstallChildSignals();

    const std::string command = "grep SigIgn: /proc/self/status >" + directory.Path("status");
    ASSERT_EQ(std::system(command.c_str()), 0);

    const std::string line = directory.Read("status");
    const std::uint64_t ignored = std::stoull(line.substr(line.find('\t')), nullptr, 16);
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2}) {
        EXPECT_NE(ignored & (1ULL << (signal - 1)), 0U) << "signal " << signal;
    }
    EXPECT_EQ(ignored & (1ULL << (SIGTERM - 1)), 0U);
}

TEST_F(SignalsTest, RestartsInterruptedCallsAndBlocksNothingInTheHandler) {
    for (const Role& role : {Parent, Foreground, Child}) {
        SCOPED_TRACE(role.name);
        SetAllToDefault();

        role.install();

        const struct sigaction action = Disposition(SIGTERM);
        EXPECT_EQ(action.sa_flags & SA_RESTART, SA_RESTART);
        EXPECT_EQ(action.sa_flags & SA_SIGINFO, 0);
        for (const int signal : AllSignals) {
            EXPECT_EQ(sigismember(&action.sa_mask, signal), 0) << "signal " << signal;
        }
    }
}

TEST_F(SignalsTest, UndoesAnInheritedIgnoredChildSignalInEveryRole) {
    for (const Role& role : {Parent, Foreground, Child}) {
        SCOPED_TRACE(role.name);
        std::signal(SIGCHLD, SIG_IGN);

        role.install();

        EXPECT_EQ(Handler(SIGCHLD), SIG_DFL);
        EXPECT_EQ(std::system("exit 3"), 3 << 8);
    }
}

TEST_F(SignalsTest, HoldsEverySignal) {
    HoldSignals();

    EXPECT_EQ(BlockedSignals(), SignalsThatCanBeBlocked());
}

TEST_F(SignalsTest, ReleasesSignalsThatTheLauncherHasBlocked) {
    HoldSignals();

    ReleaseSignals();

    EXPECT_THAT(BlockedSignals(), IsEmpty());
}

TEST_F(SignalsTest, MeetsAHeldSignalWithTheDispositionOfTheRelease) {
    HoldSignals();
    raise(SIGTERM);  // would end this process here and now
    raise(SIGHUP);
    InstallParentSignals();
    EXPECT_FALSE(closingDown);

    ReleaseSignals();

    EXPECT_TRUE(closingDown);
}

}  // namespace kennly::test
