#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "main/ProcessState.h"
#include "pool/ThreadPool.h"
#include "support/ProbeJob.h"
#include "support/RecordedLog.h"

namespace {

std::atomic<bool> creationFails{false};
std::atomic<int> creations{0};
std::atomic<bool> waitingFails{false};
std::atomic<int> waits{0};
std::atomic<pthread_mutex_t*> waitedWith{nullptr};  // the mutex of the wake event

// What this thread does while it waits, before it next takes the wake event's mutex, and before it
// next takes any.
thread_local std::function<void()> whileWaiting;
thread_local std::function<void()> beforeWaiting;
thread_local std::function<void()> beforeAnyLock;

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_cond_wait(pthread_cond_t* variable, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* variable, pthread_mutex_t* mutex);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
    ++creations;
    return creationFails ? EAGAIN : __real_pthread_create(thread, attributes, entry, argument);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (beforeAnyLock) {
        std::exchange(beforeAnyLock, nullptr)();
    }
    if (beforeWaiting && mutex == waitedWith) {
        std::exchange(beforeWaiting, nullptr)();
    }
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_cond_wait(pthread_cond_t* variable, pthread_mutex_t* mutex) {
    waitedWith = mutex;
    ++waits;
    if (whileWaiting) {
        pthread_mutex_unlock(mutex);
        std::exchange(whileWaiting, nullptr)();
        pthread_mutex_lock(mutex);
    }
    return waitingFails ? EINVAL : __real_pthread_cond_wait(variable, mutex);
}
}

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class RecordingHook : public ThreadPool::IThreadInitialisation {
public:
    std::uint32_t Initialise() override {
        calls.emplace_back("Initialise");
        if (throws) {
            throw std::runtime_error("from Initialise");
        }
        return 7;
    }
    void Uninitialise(std::uint32_t context) override {
        calls.emplace_back("Uninitialise " + std::to_string(context));
        if (throws) {
            throw std::runtime_error("from Uninitialise");
        }
    }

    bool throws = false;
    std::vector<std::string> calls;
};

}  // namespace

// The worker's loop runs on the test's own thread wherever nobody has to wait for it.
class JobThreadTest : public ::testing::Test {
protected:
    JobThreadTest() {
        Reset();
        ForgetLog();
        creations = 0;
        waits = 0;
    }
    ~JobThreadTest() override {
        Reset();
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happened
    }

    static void Reset() {
        closingDown = false;
        creationFails = false;
        waitingFails = false;
    }

    std::shared_ptr<RecordingHook> hook = std::make_shared<RecordingHook>();
    ThreadPool::JobThread worker{hook};
    std::shared_ptr<JobRecord> first = std::make_shared<JobRecord>();
    std::shared_ptr<JobRecord> second = std::make_shared<JobRecord>();
};

TEST_F(JobThreadTest, IsMadeWithoutAThread) {
    EXPECT_EQ(creations, 0);
    EXPECT_FALSE(worker.HasJobs());
    EXPECT_THAT(hook->calls, IsEmpty());
}

TEST_F(JobThreadTest, HasJobsUntilTheLastOneIsTaken) {
    std::vector<bool> hadJobs;
    const auto look = [&] {
        hadJobs.push_back(worker.HasJobs());
    };
    worker.AddJob(PlainJob(first, look));
    worker.AddJob(PlainJob(second, [&] {
        look();
        worker.Stop();
    }));
    EXPECT_TRUE(worker.HasJobs());

    EXPECT_EQ(worker.Run(), 0);

    EXPECT_THAT(hadJobs, ElementsAre(true, false));
    EXPECT_FALSE(worker.HasJobs());
    EXPECT_THAT(hook->calls, ElementsAre("Initialise", "Uninitialise 7"));
    EXPECT_EQ(first->context, 7U);
}

TEST_F(JobThreadTest, PrefersAStopToQueuedJobsAndGivesThemUpExactlyOnce) {
    const auto waitable = WaitableJob(first);
    worker.AddJob(waitable);
    worker.AddJob(nullptr);
    worker.AddJob(PlainJob(second));
    worker.Stop();

    EXPECT_EQ(worker.Run(), 0);

    EXPECT_EQ(first->runs + second->runs, 0);
    EXPECT_EQ(first->givenUp, 1);
    EXPECT_TRUE(waitable->IsFinished());
    EXPECT_FALSE(waitable->HasSucceeded());
    EXPECT_EQ(second->givenUp, 1);
    EXPECT_EQ(second->destroyed, 1);
    EXPECT_THAT(hook->calls, ElementsAre("Initialise", "Uninitialise 7"));
}

TEST_F(JobThreadTest, EndsAfterTheJobThatRunsWhenItIsStopped) {
    worker.AddJob(PlainJob(first, [this] { worker.Stop(); }));
    worker.AddJob(PlainJob(second));

    EXPECT_EQ(worker.Run(), 0);

    EXPECT_EQ(first->runs, 1);
    EXPECT_EQ(first->givenUp, 0);
    EXPECT_EQ(second->runs, 0);
    EXPECT_EQ(second->givenUp, 1);
}

TEST_F(JobThreadTest, EndsWithoutAJobWhenItIsStopped) {
    worker.Stop();
    EXPECT_EQ(worker.Run(), 0);
    EXPECT_EQ(waits, 0);
}

TEST_F(JobThreadTest, SleepsUntilAJobIsQueuedOrItIsStopped) {
    std::thread thread([this] { worker.Run(); });
    EXPECT_TRUE(WaitUntil([] { return waits == 1; }, WaitLimit));

    worker.AddJob(PlainJob(first));

    EXPECT_TRUE(first->WaitForDestruction());
    EXPECT_TRUE(WaitUntil([] { return waits == 2; }, WaitLimit));
    worker.Stop();
    thread.join();
    EXPECT_EQ(waits, 2);
}

TEST_F(JobThreadTest, RunsAJobThatIsQueuedWhenItIsAboutToWait) {
    std::atomic<bool> added{false};
    std::thread submitter;
    const auto submitWhileItIsAboutToWait = [&] {
        submitter = std::thread([&] {
            worker.AddJob(PlainJob(second));
            added = true;
        });
        // Time enough to get the job in, if it can be had before the wait begins.
        WaitUntil([&] { return added.load(); }, std::chrono::milliseconds(50));
    };
    std::thread thread([this] { worker.Run(); });
    ASSERT_TRUE(WaitUntil([] { return waits == 1; }, WaitLimit));

    worker.AddJob(PlainJob(first, [&] { beforeWaiting = submitWhileItIsAboutToWait; }));

    EXPECT_TRUE(second->WaitForDestruction());
    EXPECT_EQ(second->runs, 1);
    EXPECT_EQ(second->givenUp, 0);
    worker.Stop();
    thread.join();
    submitter.join();
}

TEST_F(JobThreadTest, HoldsAWaitableJobUntilItHasMarkedIt) {
    Gate ran;
    Gate gate;
    auto job = WaitableJob(first, [&] {
        beforeAnyLock = [&] {  // the job's own, to mark it
            ran.Open();
            gate.Wait();
        };
    });
    const std::weak_ptr<ProbeJob> observed = job;
    std::thread thread([this] { worker.Run(); });
    worker.AddJob(job);
    EXPECT_TRUE(ran.Wait());
    EXPECT_FALSE(job->IsFinished());

    job.reset();  // as a submitter does that knows the job's result already

    EXPECT_FALSE(observed.expired());
    gate.Open();
    EXPECT_TRUE(WaitUntil([&] { return observed.expired(); }, WaitLimit));
    worker.Stop();
    thread.join();
}

TEST_F(JobThreadTest, GivesUpAtOnceWhatIsQueuedAfterItsEnd) {
    worker.Stop();
    worker.Run();
    const auto waitable = WaitableJob(first);

    worker.AddJob(waitable);
    worker.AddJob(nullptr);
    worker.AddJob(PlainJob(second));

    EXPECT_EQ(first->givenUp, 1);
    EXPECT_EQ(second->givenUp, 1);
    EXPECT_EQ(first->runs + second->runs, 0);
    EXPECT_FALSE(waitable->IsFinished());
    EXPECT_EQ(second->destroyed, 0);  // it stays queued as long as the worker exists
    EXPECT_TRUE(worker.HasJobs());
}

TEST_F(JobThreadTest, EndsForGoodWhenAWaitFails) {
    waitingFails = true;

    EXPECT_EQ(worker.Run(), 0);

    EXPECT_EQ(waits, 1);
    EXPECT_THAT(hook->calls, ElementsAre("Initialise", "Uninitialise 7"));
    worker.AddJob(PlainJob(first));
    EXPECT_EQ(first->givenUp, 1);
}

TEST_F(JobThreadTest, GivesUpAJobThatIsQueuedDuringAWaitThatFails) {
    waitingFails = true;
    whileWaiting = [this] {
        worker.AddJob(PlainJob(first));
    };

    EXPECT_EQ(worker.Run(), 0);

    EXPECT_EQ(waits, 1);
    EXPECT_EQ(first->runs, 0);
    EXPECT_EQ(first->givenUp, 1);
}

TEST_F(JobThreadTest, EndsWithoutRunningAJobWhenInitialiseThrows) {
    hook->throws = true;
    worker.AddJob(PlainJob(first));

    EXPECT_EQ(worker.Run(), 0);

    EXPECT_EQ(first->runs, 0);
    EXPECT_EQ(first->givenUp, 1);
    EXPECT_EQ(first->destroyed, 1);
    EXPECT_THAT(hook->calls, ElementsAre("Initialise", "Uninitialise 0"));
}

TEST_F(JobThreadTest, WorksOnAfterAJobHasThrown) {
    worker.AddJob(PlainJob(first, [] { throw std::runtime_error("from Run"); }));
    worker.AddJob(PlainJob(second, [this] { worker.Stop(); }));

    EXPECT_EQ(worker.Run(), 0);

    EXPECT_EQ(first->destroyed, 1);
    EXPECT_EQ(second->runs, 1);
}

TEST_F(JobThreadTest, DestroysQueuedJobsWithItselfWithoutMarkingThem) {
    const auto waitable = WaitableJob(first);
    {
        ThreadPool::JobThread neverStarted(nullptr);
        neverStarted.AddJob(waitable);
        neverStarted.AddJob(PlainJob(second));
    }
    EXPECT_EQ(waitable.use_count(), 1);
    EXPECT_FALSE(waitable->IsFinished());
    EXPECT_EQ(second->destroyed, 1);
    EXPECT_EQ(first->runs + second->runs + first->givenUp + second->givenUp, 0);
}

TEST_F(JobThreadTest, ThatIsStartedLivesUntilItIsJoinedAndDropped) {
    auto started = ThreadPool::JobThread::StartNew(nullptr);
    ASSERT_NE(started, nullptr);
    const std::weak_ptr<ThreadPool::JobThread> observed = started;
    started->AddJob(PlainJob(first));
    ASSERT_TRUE(first->WaitForDestruction());
    EXPECT_GE(started.use_count(), 2);  // the thread holds it as well

    started->Stop();
    EXPECT_TRUE(started->Join());

    EXPECT_EQ(started.use_count(), 1);
    started.reset();
    EXPECT_TRUE(observed.expired());
}

TEST_F(JobThreadTest, ThatCannotBeStartedIsGivenUp) {
    creationFails = true;
    const auto otherHook = std::make_shared<RecordingHook>();

    EXPECT_EQ(ThreadPool::JobThread::StartNew(otherHook), nullptr);

    EXPECT_EQ(creations, 1);
    EXPECT_EQ(otherHook.use_count(), 1);
    EXPECT_THAT(otherHook->calls, IsEmpty());
}

}  // namespace kennly::test
