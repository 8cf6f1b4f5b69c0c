#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "action/ProcessAction.h"
#include "job/ProcessJob.h"
#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "pool/JobQueue.h"
#include "pool/TaskQueue.h"
#include "pool/TaskRegistry.h"
#include "pool/WatchDogThreadPool.h"
#include "stress/Stress.h"
#include "sync/Pause.h"
#include "watch/ProcessWatch.h"

namespace {

constexpr std::uint32_t JobCount = 3;

std::atomic<int> checks{0};

}  // namespace

// Everything here takes no notice of a shutdown, as a command does that has
// long to go: it runs until the process has ended.
namespace kennly {

void Pause(unsigned /*seconds*/) {
    std::this_thread::yield();
}

std::int32_t ProcessWatch(const std::string& /*jobName*/) {
    ++checks;
    return ResultFailed;
}

std::int32_t ProcessAction(const std::string& /*jobName*/) {
    return ResultHealthy;
}

void ProcessJob(const std::string& name) {
    for (const auto slot = static_cast<std::uint32_t>(3 * (name[0] - 'a'));;) {
        const auto check = QueueWatch(slot + 1, name);
        WaitForTasks(WatchRegistry());
        const auto remedy = QueueAction(slot + 2, name);
        WaitForTasks(ActionRegistry());
        if (const auto registry = JobRegistry()) {
            registry->Register(name + " again");
            registry->Unregister(name + " again");
        }
    }
}

}  // namespace kennly

namespace kennly::test {

namespace {

// What the child does: it starts its jobs, is asked to shut down and exits
// while they run.
[[noreturn]] void RunAndExit(std::uint32_t moment) {
    if (!CreateThreadPool(3 * JobCount)) {
        std::_Exit(EXIT_FAILURE);
    }
    for (std::uint32_t i = 0; i < JobCount; ++i) {
        QueueJob(3 * i, std::string(1, static_cast<char>('a' + i)));
    }
    if (!SpinUntil([] { return checks > 0; })) {
        std::_Exit(EXIT_FAILURE);
    }
    Spin(moment);
    closingDown = true;
    TidyThreadPool();
    std::exit(EXIT_SUCCESS);
}

// The raw wait status of the child; -1, with the child killed, when it does not
// end in time.
int StatusOf(pid_t child) {
    int status = 0;
    pid_t ended = 0;
    SpinUntil([&] {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        ended = waitpid(child, &status, WNOHANG);
        return ended != 0;
    });
    if (ended == child) {
        return status;
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
}

}  // namespace

TEST(ExitStressTest, AProcessThatExitsWhilePoolThreadsRunEndsWithItsOwnStatus) {
    constexpr int rounds = 300;
    const Figures figures;
    Random random;
    for (int round = 0; round < rounds && !::testing::Test::HasFailure(); ++round) {
        const std::uint32_t moment = random.UpTo(20000);
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            RunAndExit(moment);
        }
        ASSERT_GT(child, 0);
        EXPECT_EQ(StatusOf(child), 0) << "round " << round;
    }
    figures.Print("%d processes exited while their jobs ran", rounds);
}

}  // namespace kennly::test
