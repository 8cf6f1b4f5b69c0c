#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "action/ProcessAction.h"
#include "job/JobSteps.h"
#include "job/ProcessJob.h"
#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "pool/JobQueue.h"
#include "pool/TaskRegistry.h"
#include "pool/WatchDogThreadPool.h"
#include "stress/RandomDelays.h"
#include "stress/Stress.h"
#include "support/Dice.h"
#include "sync/Pause.h"
#include "watch/ProcessWatch.h"

namespace {

constexpr std::size_t JobCount = 4;
const std::array<std::string, JobCount> jobNames = {"web", "mail", "log", "time"};

std::atomic<int> cycles{0};
std::atomic<int> checks{0};
std::atomic<int> remedies{0};
std::atomic<int> strayJobs{0};  // queued from outside and not destroyed

// The threads that nobody has joined yet.
std::mutex threadsLock;
std::vector<pthread_t> unjoinedThreads;  // guarded by threadsLock

void SpinAtRandom() {
    kennly::test::SpinUpTo(1000);
}

}  // namespace

namespace kennly {

// A second would only slow the test down.
void Pause(unsigned /*seconds*/) {
    std::this_thread::sleep_for(std::chrono::microseconds(20));
}

std::int32_t ProcessWatch(const std::string& /*jobName*/) {
    if (tidyingThreadPool || closingDown) {
        return ResultNotEvaluated;
    }
    SpinAtRandom();
    ++checks;
    return ResultFailed;
}

std::int32_t ProcessAction(const std::string& /*jobName*/) {
    if (tidyingThreadPool || closingDown) {
        return ResultNotEvaluated;
    }
    SpinAtRandom();
    ++remedies;
    return ResultHealthy;
}

// The real cycle without the configuration: between each look at the flags and
// what follows, the teardown may come.
void ProcessJob(const std::string& name) {
    std::int32_t slot = 0;
    for (std::size_t i = 0; i < JobCount; ++i) {
        slot = jobNames[i] == name ? static_cast<std::int32_t>(3 * i) : slot;
    }
    while (!tidyingThreadPool && !closingDown) {
        SpinAtRandom();
        const std::int32_t result = RunCheck(slot, name);
        if (!tidyingThreadPool && !closingDown && result == ResultFailed) {
            SpinAtRandom();
            RunRemedy(slot, name);
        }
        ++cycles;
    }
}

}  // namespace kennly

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __real_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
    const int error = __real_pthread_create(thread, attributes, entry, argument);
    if (error == 0) {
        const std::lock_guard lock(threadsLock);
        unjoinedThreads.push_back(*thread);
    }
    return error;
}

int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue) {
    const int error = __real_pthread_tryjoin_np(thread, exitValue);
    if (error == 0) {
        const std::lock_guard lock(threadsLock);
        for (std::size_t i = 0; i < unjoinedThreads.size(); ++i) {
            if (pthread_equal(unjoinedThreads[i], thread) != 0) {
                unjoinedThreads.erase(unjoinedThreads.begin() + static_cast<std::ptrdiff_t>(i));
                break;
            }
        }
    }
    return error;
}
}

namespace kennly::test {

namespace {

class StrayJob : public ThreadPool::IJob {
public:
    StrayJob() : IJob(strayJobs++ % 2 == 0) {}
    ~StrayJob() override { --strayJobs; }
    StrayJob(const StrayJob&) = delete;
    StrayJob& operator=(const StrayJob&) = delete;
    void Run(std::uint32_t /*context*/) override {}
};

// Queues jobs on all workers of whatever pool there is, and drops its hold on
// them, as long as it lives.
class Intruder {
public:
    Intruder() : thread_([this] { Work(); }) {}
    ~Intruder() {
        done_ = true;
        thread_.join();
    }
    Intruder(const Intruder&) = delete;
    Intruder& operator=(const Intruder&) = delete;

private:
    void Work() {
        Dice dice(Seed, 1000);
        while (!done_) {
            if (const auto pool = GetThreadPool()) {
                pool->AddJob(dice.UpTo(3 * JobCount), std::make_shared<StrayJob>());
            }
            Spin(dice.UpTo(2000));
        }
    }

    std::atomic<bool> done_{false};
    std::thread thread_;
};

bool AllRegistriesAreEmpty() {
    return JobRegistry()->IsEmpty() && WatchRegistry()->IsEmpty() && ActionRegistry()->IsEmpty();
}

}  // namespace

class TeardownStressTest : public ::testing::Test {
protected:
    TeardownStressTest() { Reset(); }
    ~TeardownStressTest() override { Reset(); }

    static void Reset() {
        closingDown = false;
        tidyingThreadPool = false;
        cycles = 0;
        checks = 0;
        remedies = 0;
    }

    static void StartJobs() {
        ASSERT_TRUE(CreateThreadPool(3 * JobCount));
        for (std::size_t i = 0; i < JobCount; ++i) {
            QueueJob(static_cast<std::uint32_t>(3 * i), jobNames[i]);
        }
    }

    // Most rounds last no longer than it takes to come this far; now and then the
    // jobs must show that they work.
    void LetThemRun(int round) {
        if (round % 10 == 0) {
            const int before = remedies;
            EXPECT_TRUE(SpinUntil([before] { return remedies > before; }));
        }
        Spin(dice.UpTo(1U << (8 + dice.UpTo(10))));
    }

    // A cycle that met no pool any more has left its name behind, which nobody
    // would mind in a process that ends.
    static void EmptyRegistries() {
        for (const auto& registry : {JobRegistry(), WatchRegistry(), ActionRegistry()}) {
            registry->Clear();
            registry->Unregister("");
        }
    }

    static std::size_t UnjoinedThreads() {
        const std::lock_guard lock(threadsLock);
        return unjoinedThreads.size();
    }
    static std::size_t JoinThreadsLeftBehind() {
        std::vector<pthread_t> threads;
        {
            const std::lock_guard lock(threadsLock);
            threads.swap(unjoinedThreads);
        }
        for (const pthread_t thread : threads) {
            EXPECT_EQ(pthread_join(thread, nullptr), 0);
        }
        return threads.size();
    }

    Figures figures;
    Dice dice{Seed};
    RoundLimit limit;
};

TEST_F(TeardownStressTest, TidyingEndsWheneverItComesAndTheNextPoolWorks) {
    constexpr int rounds = Rounds(1000);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        limit.Begin();
        StartJobs();
        LetThemRun(round);

        tidyingThreadPool = true;
        EXPECT_TRUE(TidyThreadPool());
        tidyingThreadPool = false;

        EXPECT_TRUE(AllRegistriesAreEmpty());
        EXPECT_EQ(GetThreadPool(), nullptr);
        EXPECT_EQ(UnjoinedThreads(), 0U);
    }
    EXPECT_GT(checks, 0);
    figures.Print("%d pools torn down during %d cycles, %d checks, %d remedies", rounds,
                  cycles.load(), checks.load(), remedies.load());
}

TEST_F(TeardownStressTest, TidyingEndsWhileOthersQueueJobs) {
    constexpr int rounds = Rounds(300);
    {
        const Intruder intruder;
        for (int round = 0; round < rounds && !HasFailure(); ++round) {
            limit.Begin();
            StartJobs();
            LetThemRun(round);

            tidyingThreadPool = true;
            EXPECT_TRUE(TidyThreadPool());
            tidyingThreadPool = false;

            EXPECT_TRUE(AllRegistriesAreEmpty());
        }
    }
    EXPECT_EQ(strayJobs, 0);
    figures.Print("%d pools torn down during %d cycles", rounds, cycles.load());
}

TEST_F(TeardownStressTest, AShutdownAtAnyMomentWaitsForNobodyAndHarmsNobody) {
    constexpr int rounds = Rounds(600);
    std::size_t leftBehind = 0;
    {
        const Intruder intruder;
        for (int round = 0; round < rounds && !HasFailure(); ++round) {
            limit.Begin();
            StartJobs();
            LetThemRun(round);

            // A reload may be under way when the shutdown comes.
            tidyingThreadPool = round % 2 == 0;
            closingDown = true;
            EXPECT_TRUE(TidyThreadPool());

            EXPECT_EQ(GetThreadPool(), nullptr);
            leftBehind += JoinThreadsLeftBehind();
            EmptyRegistries();
            closingDown = false;
            tidyingThreadPool = false;
        }
    }
    EXPECT_EQ(strayJobs, 0);
    EXPECT_GT(leftBehind, 0U);
    figures.Print("%d shutdowns during %d cycles, %d threads outlived their pool", rounds,
                  cycles.load(), static_cast<int>(leftBehind));
}

}  // namespace kennly::test
