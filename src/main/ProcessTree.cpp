#include "main/ProcessTree.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdlib>

#include "main/Log.h"
#include "main/ProcessState.h"

namespace kennly {

namespace {

constexpr int ArgumentVectorEntries = 20;

// Returns only when the program cannot be executed.
void ExecuteAgain(int argumentCount, char* const* arguments, const char* addedOption) {
    if (argumentCount < 1) {  // then the option would be the path
        return;
    }
    std::array<char*, ArgumentVectorEntries> vector = {};
    std::copy_n(arguments, argumentCount, vector.begin());
    vector.at(static_cast<std::size_t>(argumentCount)) =
        const_cast<char*>(addedOption);  // execv changes no text
    execv(vector.front(), vector.data());
}

// A fork does not inherit what waits; whoever wanted to end the one meant the other.
void HandOnTermination(pid_t successor) {
    sigset_t waiting;
    sigemptyset(&waiting);
    sigpending(&waiting);
    if (sigismember(&waiting, SIGTERM) == 1) {
        kill(successor, SIGTERM);
    }
}

// A number that is taken over by a stranger hides a parent's death from the child's own look at it;
// the kernel's word does not.
void EndWithParent(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {  // it died before
        raise(SIGTERM);         // waits for the handler
    }
}

}  // namespace

bool ArgumentsFit(int argumentCount) {
    const int added = createWatcher ? 2 : 1;
    const int terminator = 1;
    return argumentCount + added + terminator <= ArgumentVectorEntries;
}

void DetachFromStarter() {
    const pid_t parent = fork();
    if (parent < 0) {
        LogErrorAndExit(1, "main - cannot fork");
    }
    if (parent > 0) {
        HandOnTermination(parent);
        std::exit(0);
    }
    setsid();
}

void create_watchdogwatcher(int argumentCount, char* const* arguments) {
    const pid_t watcher = fork();
    if (watcher < 0) {
        LogErrorAndExit(1, "create_watchdogwatcher - cannot fork");
    }
    if (watcher == 0) {
        ExecuteAgain(argumentCount, arguments, "-W");
        LogErrorAndExit(1, "create_watchdogwatcher - cannot execv");
    }
}

void createchildprocess(int argumentCount, char* const* arguments) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        LogErrorAndExit(0, "createchildprocess - cannot fork");
    }
    if (child == 0) {
        EndWithParent(parent);
        ExecuteAgain(argumentCount, arguments, "-Z");
        LogErrorAndExit(1, "createchildprocess - cannot execv");
    }
    childPid = child;
}

}  // namespace kennly
