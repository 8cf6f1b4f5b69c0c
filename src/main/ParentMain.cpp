#include "main/ParentMain.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "main/Heartbeat.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "main/Signals.h"
#include "sync/Pause.h"

namespace kennly {

namespace {

constexpr int GraceSeconds = 10;

bool childReaped = false;

// As waitpid without waiting. Remembers whether the child was among those reaped.
pid_t Reap(pid_t which) {
    const pid_t reaped = waitpid(which, nullptr, WNOHANG);
    if (reaped > 0 && reaped == childPid) {
        childReaped = true;
    }
    return reaped;
}

void ReapAll() {
    const pid_t anyOfThisGroup = 0;
    while (Reap(anyOfThisGroup) > 0) {
    }
}

// The number of a child that has been reaped may belong to a stranger by now.
void SignalChild(int signal) {
    if (childPid > 0 && !childReaped) {
        kill(childPid, signal);
    }
}

// Most children end within milliseconds. Without this, the first question would come too early for
// each of them, and the stop take a second more.
void AwaitPromptEnd() {
    constexpr int tries = 20;
    constexpr useconds_t step = 10'000;  // microseconds
    for (int i = 0; i < tries; ++i) {
        siginfo_t end = {};
        const int asked = waitid(P_PID, static_cast<id_t>(childPid), &end,
                                 WEXITED | WNOHANG | WNOWAIT);  // it stays to be reaped
        if (asked != 0 || end.si_pid != 0) {
            return;
        }
        usleep(step);
    }
}

[[noreturn]] void StopChild() {
    HoldSignals();  // one more would cut a second off the child's time
    SignalChild(SIGTERM);
    AwaitPromptEnd();
    bool gone = IsChildGone();
    for (int second = 0; second < GraceSeconds && !gone; ++second) {
        sleep(1);
        gone = IsChildGone();
    }
    if (!gone) {
        SignalChild(SIGKILL);
    }
    LogExit(0);
}

}  // namespace

bool IsChildGone() {
    return Reap(childPid) == -1 && errno == ECHILD;
}

void parent_main() {
    for (;;) {
        ReapAll();
        if (closingDown) {
            StopChild();
        }
        WriteParentHeartbeat();
        Pause(1);
    }
}

}  // namespace kennly
