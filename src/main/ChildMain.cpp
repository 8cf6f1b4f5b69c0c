#include "main/ChildMain.h"

#include <unistd.h>

#include <csignal>
#include <cstdint>

#include "config/TheConfig.h"
#include "main/Heartbeat.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "pool/WatchDogThreadPool.h"
#include "sync/Pause.h"

namespace kennly {

namespace {

constexpr unsigned PauseAfterLoadSeconds = 5;
constexpr unsigned PauseWhenUnchangedSeconds = 1;
constexpr unsigned PauseAfterFailedRebuildSeconds = 1;
constexpr unsigned PauseAfterFailedLoadSeconds = 2;

struct LoopState {
    const pid_t parent = getppid();
    std::int32_t errorCount = 0;  // failed cycles in a row
    unsigned delay = 0;           // seconds before the next cycle
};

class RaisedFlag {
public:
    explicit RaisedFlag(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
    ~RaisedFlag() { flag_ = false; }
    RaisedFlag(const RaisedFlag&) = delete;
    RaisedFlag& operator=(const RaisedFlag&) = delete;

private:
    std::atomic<bool>& flag_;
};

// In short steps: a signal that comes just before a sleep, or goes to another thread, does not end
// it.
void PauseUnlessClosing(unsigned seconds) {
    for (unsigned left = seconds; left > 0 && !closingDown; --left) {
        Pause(1);
    }
}

bool HasLostParent(const LoopState& state) {
    return !foregroundMode && kill(state.parent, 0) != 0;
}

// Pauses and makes sure that another cycle is due. Returns false when the loop has to end.
bool AwaitNextCycle(const LoopState& state) {
    if (closingDown) {
        return false;
    }
    if (state.errorCount > maxLoadErrors) {
        closingDown = true;
        LogError("watchdog closing down as there have been too many load config errors");
        return false;
    }
    PauseUnlessClosing(state.delay);
    if (closingDown) {
        return false;
    }
    if (HasLostParent(state)) {
        closingDown = true;
        return false;
    }
    return true;
}

// The flag makes the running cycles end; without it the pool would wait for them for ever.
bool TidyRunningPool() {
    const RaisedFlag tidying(tidyingThreadPool);
    const bool tidied = TidyThreadPool();
    WriteChildHeartbeat();
    return tidied;
}

bool RebuildPool() {
    if (!firstLoad && !TidyRunningPool()) {
        return false;
    }
    if (closingDown) {  // then workers of the old pool may still run, and nobody needs new ones
        return false;
    }
    const auto jobCount = static_cast<std::int32_t>(theConfig->Jobs().size());
    const auto threadCount = static_cast<std::uint32_t>(WorkersPerJob * jobCount);
    return CreateThreadPool(threadCount) && theConfig->AssignJobs();
}

void TakeUpNewConfiguration(LoopState& state) {
    WriteChildHeartbeat();
    if (RebuildPool()) {
        state.errorCount = 0;
        state.delay = PauseAfterLoadSeconds;
        return;
    }
    if (!closingDown) {     // else the shutdown does it
        TidyRunningPool();  // what of it failed has been logged
    }
    ++state.errorCount;
    state.delay = PauseAfterFailedRebuildSeconds;
}

void RunCycle(LoopState& state) {
    WriteChildHeartbeat();
    switch (theConfig->ReloadConfigIfConfigHasChanged()) {
        case ReloadLoaded:
            TakeUpNewConfiguration(state);
            break;
        case ReloadUnchanged:
            state.errorCount = 0;
            state.delay = PauseWhenUnchangedSeconds;
            break;
        default:
            ++state.errorCount;
            state.delay = PauseAfterFailedLoadSeconds;
            break;
    }
    firstLoad = false;
    WriteChildHeartbeat();
}

void RunLoop() {
    try {
        LoopState state;
        while (AwaitNextCycle(state)) {
            RunCycle(state);
        }
    } catch (...) {
        LogError("exception in child loop");
    }
}

[[noreturn]] void ShutDown() {
    closingDown = true;  // also after an exception: nobody may wait for a running command now
    TidyThreadPool();    // what of it failed has been logged
    DestroyTheConfig();
    LogExit(0);
}

}  // namespace

void child_main() {
    try {
        CreateTheConfig();
    } catch (...) {
        LogErrorAndExit(1, "exception while new-ing DogConfig!");
    }
    RunLoop();
    ShutDown();
}

}  // namespace kennly
