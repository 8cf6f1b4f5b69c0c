#include "pool/WatchDogThreadPool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>

#include "main/ProcessState.h"
#include "pool/TaskRegistry.h"
#include "support/FailingAllocation.h"
#include "support/ProbeJob.h"
#include "support/RecordedLog.h"

namespace {

constexpr int None = -1;
std::atomic<int> refusedThread{None};  // counted from 0
std::atomic<int> creations{0};
std::atomic<int> threads{0};  // created and not joined
std::atomic<int> joinsAsked{0};
// The next short sleep of this thread throws, as the wait for a worker may.
thread_local bool sleepThrows = false;

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __real_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __real_nanosleep(const timespec* duration, timespec* left);
int __wrap_nanosleep(const timespec* duration, timespec* left);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
    if (creations++ == refusedThread) {
        return EAGAIN;
    }
    ++threads;
    return __real_pthread_create(thread, attributes, entry, argument);
}

int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue) {
    ++joinsAsked;
    const int error = __real_pthread_tryjoin_np(thread, exitValue);
    threads -= error == 0 ? 1 : 0;
    return error;
}

int __wrap_nanosleep(const timespec* duration, timespec* left) {
    if (sleepThrows) {
        sleepThrows = false;
        throw std::runtime_error("from a sleep");
    }
    return __real_nanosleep(duration, left);
}
}

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class WatchDogThreadPoolTest : public ::testing::Test {
protected:
    WatchDogThreadPoolTest() { Reset(); }
    ~WatchDogThreadPoolTest() override {
        Reset();
        EXPECT_TRUE(TidyThreadPool());
        EXPECT_EQ(threads, 0);
    }

    static void Reset() {
        closingDown = false;
        tidyingThreadPool = false;
        refusedThread = None;
        creations = 0;
        joinsAsked = 0;
        sleepThrows = false;
        ForgetLog();
    }

    // Whether a job that is queued on this worker of the process's pool runs.
    static bool Runs(std::uint32_t worker) {
        const auto record = std::make_shared<JobRecord>();
        const auto job = PlainJob(record);
        GetThreadPool()->AddJob(worker, job);
        return job.use_count() > 1 || record->runs > 0 ? record->WaitForRun() : false;
    }
};

TEST_F(WatchDogThreadPoolTest, DoesNotExistUntilItIsCreated) {
    EXPECT_EQ(GetThreadPool(), nullptr);
}

TEST_F(WatchDogThreadPoolTest, IsCreatedWithTheNumberOfWorkersGiven) {
    EXPECT_TRUE(CreateThreadPool(3));

    ASSERT_NE(GetThreadPool(), nullptr);
    EXPECT_EQ(creations, 3);
    EXPECT_TRUE(Runs(0));
    EXPECT_TRUE(Runs(2));
    EXPECT_FALSE(Runs(3));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(WatchDogThreadPoolTest, CanBeOfNoWorkers) {
    EXPECT_TRUE(CreateThreadPool(0));

    ASSERT_NE(GetThreadPool(), nullptr);
    EXPECT_EQ(creations, 0);
    EXPECT_FALSE(Runs(0));
}

TEST_F(WatchDogThreadPoolTest, IsKeptUnchangedWhateverOtherSizeIsAskedFor) {
    ASSERT_TRUE(CreateThreadPool(3));
    const auto pool = GetThreadPool();

    for (const std::uint32_t size : {6U, 3U, 1U, 0U}) {
        SCOPED_TRACE(size);
        EXPECT_TRUE(CreateThreadPool(size));
        EXPECT_EQ(GetThreadPool(), pool);
    }

    EXPECT_EQ(creations, 3);
    EXPECT_FALSE(Runs(3));
    EXPECT_TRUE(Runs(2));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(WatchDogThreadPoolTest, GivesItsWorkersTheContextZero) {
    const auto record = std::make_shared<JobRecord>();
    record->context = 99;
    ASSERT_TRUE(CreateThreadPool(1));

    GetThreadPool()->AddJob(0, PlainJob(record));

    ASSERT_TRUE(record->WaitForDestruction());
    EXPECT_EQ(record->context, 0U);
}

TEST_F(WatchDogThreadPoolTest, ReportsAWorkerThatCannotBeStartedAndKeepsThePartialPool) {
    refusedThread = 1;

    EXPECT_FALSE(CreateThreadPool(3));

    EXPECT_EQ(creations, 2);
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("Error creating Thread Pool")));
    const auto pool = GetThreadPool();
    ASSERT_NE(pool, nullptr);
    EXPECT_TRUE(Runs(0));
    EXPECT_FALSE(Runs(1));
    EXPECT_FALSE(Runs(2));

    // It stays, and stays incomplete, until it is tidied.
    EXPECT_FALSE(CreateThreadPool(3));
    EXPECT_EQ(GetThreadPool(), pool);
    EXPECT_EQ(creations, 2);
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("Error creating Thread Pool"),
                                             Error("Error creating Thread Pool")));
    EXPECT_TRUE(TidyThreadPool());
    EXPECT_EQ(GetThreadPool(), nullptr);
    EXPECT_TRUE(CreateThreadPool(3));
}

TEST_F(WatchDogThreadPoolTest, ReportsThatItsCreationRanOutOfMemoryAndLeavesNothingBehind) {
    std::size_t failures = 0;
    for (std::size_t index = 0;; ++index) {
        SCOPED_TRACE(index);
        bool created = false;
        {
            const FailingOnceAllocation failing(index);
            created = CreateThreadPool(2);
        }
        if (created) {
            break;
        }
        ++failures;
        EXPECT_THAT(RecordedLines(), ElementsAre(Error("exception while creating threadpool!")));
        EXPECT_EQ(GetThreadPool(), nullptr);
        EXPECT_EQ(threads, 0);
        ForgetLog();
    }
    EXPECT_GE(failures, 4U);  // the pool, its slots and each worker
    EXPECT_TRUE(Runs(1));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(WatchDogThreadPoolTest, TidyingDestroysThePoolAndClearsTheRegistries) {
    ASSERT_TRUE(CreateThreadPool(2));
    const std::weak_ptr<WatchDogThreadPool> pool = GetThreadPool();
    for (const auto& registry : {JobRegistry(), WatchRegistry(), ActionRegistry()}) {
        registry->Register("web");
    }

    EXPECT_TRUE(TidyThreadPool());

    EXPECT_EQ(GetThreadPool(), nullptr);
    EXPECT_TRUE(pool.expired());
    EXPECT_EQ(threads, 0);
    EXPECT_THAT(RecordedLines(), IsEmpty());
    for (const auto& registry : {JobRegistry(), WatchRegistry(), ActionRegistry()}) {
        EXPECT_FALSE(registry->IsEmpty());  // not for those who wait
        EXPECT_TRUE(registry->Register("web"));
        registry->Unregister("web");
        EXPECT_TRUE(registry->IsEmpty());
    }
}

TEST_F(WatchDogThreadPoolTest, TidyingWithoutAPoolClearsTheRegistries) {
    for (const auto& registry : {JobRegistry(), WatchRegistry(), ActionRegistry()}) {
        registry->Register("web");
    }

    EXPECT_TRUE(TidyThreadPool());

    for (const auto& registry : {JobRegistry(), WatchRegistry(), ActionRegistry()}) {
        EXPECT_TRUE(registry->Register("web"));
        registry->Unregister("web");
    }
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(WatchDogThreadPoolTest, IsStillThereForItsJobsWhileItIsTidied) {
    const auto record = std::make_shared<JobRecord>();
    const auto queued = std::make_shared<JobRecord>();
    std::atomic<bool> there{false};
    ASSERT_TRUE(CreateThreadPool(2));
    GetThreadPool()->AddJob(0, PlainJob(record, [&] {
                                WaitUntil([] { return joinsAsked > 0; }, WaitLimit);
                                if (const auto pool = GetThreadPool()) {
                                    there = true;
                                    pool->AddJob(1, PlainJob(queued));
                                }
                            }));
    ASSERT_TRUE(record->WaitForRun());

    EXPECT_TRUE(TidyThreadPool());

    EXPECT_TRUE(there);
    EXPECT_EQ(queued->runs, 0);
    EXPECT_EQ(queued->givenUp, 1);  // its worker was stopped, or has even ended
    EXPECT_EQ(queued->destroyed, 1);
}

TEST_F(WatchDogThreadPoolTest, ReportsAnExceptionWhileItIsTidiedAndCanBeTidiedAgain) {
    const auto record = std::make_shared<JobRecord>();
    Gate gate;
    ASSERT_TRUE(CreateThreadPool(2));
    GetThreadPool()->AddJob(1, PlainJob(record, [&gate] { gate.Wait(); }));
    ASSERT_TRUE(record->WaitForRun());
    WatchRegistry()->Register("web");

    sleepThrows = true;
    EXPECT_FALSE(TidyThreadPool());

    EXPECT_FALSE(sleepThrows);
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("exception while tidying threadpool!")));
    EXPECT_NE(GetThreadPool(), nullptr);
    EXPECT_FALSE(WatchRegistry()->Register("web"));  // not cleared

    gate.Open();
    EXPECT_TRUE(TidyThreadPool());
    EXPECT_EQ(GetThreadPool(), nullptr);
    EXPECT_EQ(threads, 0);
}

TEST_F(WatchDogThreadPoolTest, HasAHookThatGivesEveryWorkerTheContextZero) {
    WatchDogThreadPool::COMInitialisation hook;

    EXPECT_EQ(hook.Initialise(), 0U);
    EXPECT_EQ(hook.Initialise(), 0U);
}

}  // namespace kennly::test
