#include "pool/ThreadPool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include "main/ProcessState.h"
#include "support/FailingAllocation.h"
#include "support/ProbeJob.h"
#include "support/RecordedLog.h"

namespace {

// Keeps count of threads; refuses to create the one with the number `refused` (from 0), if any.
struct Library {
    static constexpr int None = -1;
    std::atomic<int> refused{None};
    std::atomic<int> creations{0};  // asked for, the refused one included
    std::atomic<int> joinsAsked{0};
    std::mutex mutex;
    std::vector<pthread_t> unjoined;  // guarded by mutex
} library;

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __real_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
    if (library.creations++ == library.refused) {
        return EAGAIN;
    }
    const int error = __real_pthread_create(thread, attributes, entry, argument);
    if (error == 0) {
        const std::lock_guard lock(library.mutex);
        library.unjoined.push_back(*thread);
    }
    return error;
}

int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue) {
    ++library.joinsAsked;
    const int error = __real_pthread_tryjoin_np(thread, exitValue);
    if (error == 0) {
        const std::lock_guard lock(library.mutex);
        auto& threads = library.unjoined;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            if (pthread_equal(threads[i], thread) != 0) {
                threads.erase(threads.begin() + static_cast<std::ptrdiff_t>(i));
                break;
            }
        }
    }
    return error;
}
}

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// For every class derived from them as well.
static_assert(std::is_nothrow_destructible_v<ThreadPool>);
static_assert(std::is_nothrow_destructible_v<ThreadPool::IJob>);
static_assert(std::is_nothrow_destructible_v<ThreadPool::IThreadInitialisation>);

namespace {

// Gives each worker a word of its own, counted from 101, and remembers which came back.
class CountingHook : public ThreadPool::IThreadInitialisation {
public:
    std::uint32_t Initialise() override {
        const std::uint32_t context = ++last_;
        if (throwsAtStart) {
            throw std::runtime_error("from Initialise");
        }
        return context;
    }
    void Uninitialise(std::uint32_t context) override {
        {
            const std::lock_guard lock(mutex_);
            ended_.insert(context);
            endThreads_.insert(std::this_thread::get_id());
        }
        if (throwsAtEnd) {
            throw std::runtime_error("from Uninitialise");
        }
    }

    std::multiset<std::uint32_t> Ended() const {
        const std::lock_guard lock(mutex_);
        return ended_;
    }
    bool HasEndedOn(std::thread::id thread) const {
        const std::lock_guard lock(mutex_);
        return endThreads_.count(thread) == 1;
    }

    std::atomic<bool> throwsAtStart{false};
    std::atomic<bool> throwsAtEnd{false};

private:
    std::atomic<std::uint32_t> last_{100};
    mutable std::mutex mutex_;
    std::multiset<std::uint32_t> ended_;
    std::set<std::thread::id> endThreads_;
};

using Record = std::shared_ptr<JobRecord>;

Record NewRecord() {
    return std::make_shared<JobRecord>();
}

}  // namespace

class ThreadPoolTest : public ::testing::Test {
protected:
    ThreadPoolTest() {
        Reset();
        ForgetLog();
        const std::lock_guard lock(library.mutex);
        library.unjoined.clear();
        library.unjoined.reserve(64);  // keeping count must not run out of memory
    }
    ~ThreadPoolTest() override {
        Reset();
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happened
    }

    static void Reset() {
        closingDown = false;
        library.refused = Library::None;
        library.creations = 0;
        library.joinsAsked = 0;
    }

    static std::size_t UnjoinedThreads() {
        const std::lock_guard lock(library.mutex);
        return library.unjoined.size();
    }

    // Waits in the pool's place for threads that it has left running.
    static void JoinThreadsLeftBehind() {
        const std::lock_guard lock(library.mutex);
        for (const pthread_t thread : library.unjoined) {
            EXPECT_EQ(pthread_join(thread, nullptr), 0);
        }
        library.unjoined.clear();
    }

    // Runs one more job on a worker; when it has run, all before it are done with.
    static bool Flush(ThreadPool& pool, std::uint32_t worker) {
        const Record record = NewRecord();
        pool.AddJob(worker, PlainJob(record));
        return record->WaitForDestruction();
    }

    // A job that ends when Destroy has stopped all workers and begun to join them.
    static bool WaitForTheFirstJoin() {
        return WaitUntil([] { return library.joinsAsked > 0; }, WaitLimit);
    }

    std::shared_ptr<CountingHook> hook = std::make_shared<CountingHook>();
};

TEST_F(ThreadPoolTest, RunsFromItsConstructionWithAllItsWorkers) {
    ThreadPool pool(3, nullptr);
    const Record records[] = {NewRecord(), NewRecord(), NewRecord()};

    for (std::uint32_t i = 0; i < 3; ++i) {
        pool.AddJob(i, PlainJob(records[i]));
    }

    EXPECT_TRUE(pool.IsCreated());
    EXPECT_EQ(library.creations, 3);
    std::set<std::thread::id> threads;
    for (const Record& record : records) {
        EXPECT_TRUE(record->WaitForDestruction());
        EXPECT_EQ(record->runs, 1);
        EXPECT_EQ(record->context, 0U);  // without a hook
        threads.insert(record->thread);
    }
    EXPECT_EQ(threads.size(), 3U);
}

TEST_F(ThreadPoolTest, OfNoWorkersIsCreatedAndDropsEveryJob) {
    ThreadPool pool(0, hook);
    const Record record = NewRecord();
    const auto job = WaitableJob(record);

    pool.AddJob(0, job);

    EXPECT_TRUE(pool.IsCreated());
    EXPECT_EQ(library.creations, 0);
    EXPECT_EQ(job.use_count(), 1);
    pool.Destroy();
    EXPECT_EQ(record->runs + record->givenUp, 0);
    EXPECT_FALSE(job->IsFinished());
}

TEST_F(ThreadPoolTest, DropsAJobWithAnIndexOutsideIt) {
    ThreadPool pool(2, hook);
    for (const std::uint32_t index : {2U, 3U, 4294967295U}) {
        SCOPED_TRACE(index);
        const Record record = NewRecord();
        const auto job = WaitableJob(record);
        pool.AddJob(index, job);
        EXPECT_EQ(job.use_count(), 1);  // nobody has queued it
        EXPECT_EQ(record->runs + record->givenUp, 0);
        EXPECT_FALSE(job->IsFinished());
    }
}

TEST_F(ThreadPoolTest, RunsTheJobsOfAWorkerOneAtATimeInTheOrderGiven) {
    constexpr int count = 50;
    ThreadPool pool(1, nullptr);
    std::vector<int> order;  // a race if two of them ran at once
    std::atomic<int> running{0};
    std::atomic<int> most{0};

    for (int i = 0; i < count; ++i) {
        pool.AddJob(0, PlainJob(NewRecord(), [&, i] {
                        most = std::max(most.load(), ++running);
                        order.push_back(i);
                        --running;
                    }));
    }

    ASSERT_TRUE(Flush(pool, 0));
    ASSERT_EQ(order.size(), static_cast<std::size_t>(count));
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(most, 1);
}

TEST_F(ThreadPoolTest, RunsTheJobsOfDifferentWorkersInParallel) {
    ThreadPool pool(2, nullptr);
    Gate gates[2];
    std::atomic<int> met{0};

    for (std::uint32_t i = 0; i < 2; ++i) {
        pool.AddJob(i, PlainJob(NewRecord(), [&gates, &met, i] {
                        gates[i].Open();
                        met += gates[1 - i].Wait() ? 1 : 0;
                    }));
    }

    EXPECT_TRUE(Flush(pool, 0) && Flush(pool, 1));
    EXPECT_EQ(met, 2);
}

TEST_F(ThreadPoolTest, SkipsANullJob) {
    ThreadPool pool(1, nullptr);
    const Record record = NewRecord();

    pool.AddJob(0, nullptr);
    pool.AddJob(0, PlainJob(record));
    pool.AddJob(0, nullptr);

    EXPECT_TRUE(record->WaitForDestruction());
    EXPECT_TRUE(Flush(pool, 0));
}

TEST_F(ThreadPoolTest, DestroysAJobThatIsNotWaitableBeforeTheNextOneRuns) {
    ThreadPool pool(1, nullptr);
    const Record first = NewRecord();
    const Record second = NewRecord();
    std::atomic<int> destroyed{-1};

    pool.AddJob(0, PlainJob(first));
    pool.AddJob(0, PlainJob(second, [&] { destroyed = first->destroyed.load(); }));

    ASSERT_TRUE(second->WaitForDestruction());
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(first->runs, 1);
    EXPECT_EQ(first->givenUp, 0);
}

TEST_F(ThreadPoolTest, MarksAWaitableJobFinishedAndLeavesItToItsSubmitter) {
    ThreadPool pool(1, nullptr);
    const Record record = NewRecord();
    auto job = WaitableJob(record);

    pool.AddJob(0, job);

    EXPECT_TRUE(WaitUntil([&job] { return job->IsFinished(); }, WaitLimit));
    EXPECT_TRUE(job->HasSucceeded());
    ASSERT_TRUE(Flush(pool, 0));
    EXPECT_EQ(record->destroyed, 0);
    EXPECT_EQ(job.use_count(), 1);
    job.reset();
    EXPECT_EQ(record->destroyed, 1);
}

TEST_F(ThreadPoolTest, MarksAWaitableJobThatThrowsAsFailedAndWorksOn) {
    ThreadPool pool(1, nullptr);
    const auto throwsException =
        WaitableJob(NewRecord(), [] { throw std::runtime_error("from Run"); });
    const auto throwsNumber = WaitableJob(NewRecord(), [] { throw 42; });
    const auto last = WaitableJob(NewRecord());

    pool.AddJob(0, throwsException);
    pool.AddJob(0, throwsNumber);
    pool.AddJob(0, last);

    EXPECT_TRUE(WaitUntil([&last] { return last->IsFinished(); }, WaitLimit));
    EXPECT_TRUE(throwsException->IsFinished());
    EXPECT_FALSE(throwsException->HasSucceeded());
    EXPECT_TRUE(throwsNumber->IsFinished());
    EXPECT_FALSE(throwsNumber->HasSucceeded());
    EXPECT_TRUE(last->HasSucceeded());
}

TEST_F(ThreadPoolTest, DestroysAThrowingJobThatIsNotWaitable) {
    ThreadPool pool(1, nullptr);
    const Record record = NewRecord();

    pool.AddJob(0, PlainJob(record, [] { throw std::runtime_error("from Run"); }));

    EXPECT_TRUE(record->WaitForDestruction());
    EXPECT_TRUE(Flush(pool, 0));
}

TEST_F(ThreadPoolTest, AJobKeepsTheFirstOutcome) {
    for (const bool first : {true, false}) {
        SCOPED_TRACE(first);
        const auto job = WaitableJob(NewRecord());
        EXPECT_FALSE(job->IsFinished());
        EXPECT_FALSE(job->HasSucceeded());

        job->SetFinished(first);
        job->SetFinished(!first);

        EXPECT_TRUE(job->IsFinished());
        EXPECT_EQ(job->HasSucceeded(), first);
    }
}

TEST_F(ThreadPoolTest, KeepsTheOutcomeThatAJobGaveItself) {
    ThreadPool pool(1, nullptr);
    ThreadPool::IJob* self = nullptr;
    const auto job = WaitableJob(NewRecord(), [&self] { self->SetFinished(false); });
    self = job.get();

    pool.AddJob(0, job);

    ASSERT_TRUE(Flush(pool, 0));
    EXPECT_TRUE(job->IsFinished());
    EXPECT_FALSE(job->HasSucceeded());
}

TEST_F(ThreadPoolTest, LetsAJobQueueAnotherOnItsOwnWorker) {
    ThreadPool pool(1, nullptr);
    const Record second = NewRecord();

    pool.AddJob(0, PlainJob(NewRecord(), [&] { pool.AddJob(0, PlainJob(second)); }));

    EXPECT_TRUE(second->WaitForDestruction());
    EXPECT_EQ(second->runs, 1);
}

TEST_F(ThreadPoolTest, NeitherMarksNorDestroysAWaitableJobWhileTheProcessShutsDown) {
    ThreadPool pool(1, nullptr);
    const Record record = NewRecord();
    const auto job = WaitableJob(record, [] { closingDown = true; });
    const Record plain = NewRecord();

    pool.AddJob(0, job);
    pool.AddJob(0, PlainJob(plain));

    EXPECT_TRUE(plain->WaitForDestruction());  // one that is not waitable is destroyed as ever
    EXPECT_FALSE(job->IsFinished());
    EXPECT_EQ(record->runs, 1);
    EXPECT_EQ(record->destroyed, 0);
    EXPECT_EQ(record->givenUp, 0);
    closingDown = false;  // so that the pool joins its worker
}

TEST_F(ThreadPoolTest, DestroyWaitsForRunningJobsAndGivesUpQueuedOnesExactlyOnce) {
    ThreadPool pool(1, hook);
    const Record running = NewRecord();
    const Record waitable = NewRecord();
    const Record plain = NewRecord();
    std::atomic<int> plainDestroyedTooEarly{-1};
    const auto runningJob = WaitableJob(running, [&] {
        plainDestroyedTooEarly = plain->destroyed.load();
        WaitForTheFirstJoin();
    });
    const auto queuedJob = WaitableJob(waitable);
    pool.AddJob(0, runningJob);
    pool.AddJob(0, queuedJob);
    pool.AddJob(0, nullptr);
    pool.AddJob(0, PlainJob(plain));
    ASSERT_TRUE(running->WaitForRun());

    pool.Destroy();

    EXPECT_TRUE(runningJob->IsFinished() && runningJob->HasSucceeded());
    EXPECT_EQ(running->givenUp, 0);
    EXPECT_TRUE(queuedJob->IsFinished());
    EXPECT_FALSE(queuedJob->HasSucceeded());
    EXPECT_EQ(waitable->runs, 0);
    EXPECT_EQ(waitable->givenUp, 1);
    EXPECT_EQ(waitable->destroyed, 0);
    EXPECT_EQ(plainDestroyedTooEarly, 0);
    EXPECT_EQ(plain->runs, 0);
    EXPECT_EQ(plain->givenUp, 1);
    EXPECT_EQ(plain->destroyed, 1);
    EXPECT_EQ(UnjoinedThreads(), 0U);
}

TEST_F(ThreadPoolTest, DestroyStopsAllWorkersBeforeItWaitsForTheFirst) {
    ThreadPool pool(2, hook);
    const Record first = NewRecord();
    const Record second = NewRecord();
    const Record queued = NewRecord();
    std::atomic<bool> secondEnded{false};
    pool.AddJob(1, PlainJob(second, [] { WaitForTheFirstJoin(); }));
    pool.AddJob(1, PlainJob(queued));
    ASSERT_TRUE(second->WaitForRun());
    pool.AddJob(0, PlainJob(first, [&] {
                    secondEnded =
                        WaitUntil([&] { return hook->HasEndedOn(second->thread); }, WaitLimit);
                }));
    ASSERT_TRUE(first->WaitForRun());

    pool.Destroy();

    EXPECT_TRUE(secondEnded);
    EXPECT_EQ(queued->runs, 0);
    EXPECT_EQ(queued->givenUp, 1);
}

TEST_F(ThreadPoolTest, GivesUpWhatAJobQueuesOnItsOwnWorkerWhileThatIsJoined) {
    ThreadPool pool(1, nullptr);
    const Record running = NewRecord();
    const Record queued = NewRecord();
    pool.AddJob(0, PlainJob(running, [&] {
                    WaitForTheFirstJoin();
                    pool.AddJob(0, PlainJob(queued));
                }));
    ASSERT_TRUE(running->WaitForRun());

    pool.Destroy();

    EXPECT_EQ(queued->runs, 0);
    EXPECT_EQ(queued->givenUp, 1);
    EXPECT_EQ(queued->destroyed, 1);
}

TEST_F(ThreadPoolTest, DestroyDoesNothingTheSecondTime) {
    ThreadPool pool(2, hook);
    pool.Destroy();
    EXPECT_THAT(hook->Ended(), ElementsAre(101, 102));
    const int joins = library.joinsAsked;
    const Record record = NewRecord();
    const auto job = WaitableJob(record);
    pool.AddJob(0, job);  // there is no worker any more

    pool.Destroy();

    EXPECT_EQ(library.joinsAsked, joins);
    EXPECT_THAT(hook->Ended(), ElementsAre(101, 102));
    EXPECT_EQ(job.use_count(), 1);
    EXPECT_EQ(record->runs, 0);
    EXPECT_EQ(record->givenUp, 1);
}

TEST_F(ThreadPoolTest, ItsDestructorStopsAndJoinsAllWorkers) {
    const Record record = NewRecord();
    {
        ThreadPool pool(3, hook);
        pool.AddJob(1, PlainJob(record, [] { WaitForTheFirstJoin(); }));
        ASSERT_TRUE(record->WaitForRun());
    }
    EXPECT_THAT(hook->Ended(), ElementsAre(101, 102, 103));
    EXPECT_EQ(UnjoinedThreads(), 0U);
    EXPECT_EQ(hook.use_count(), 1);
}

TEST_F(ThreadPoolTest, LeavesRunningWorkersAliveWhileTheProcessShutsDown) {
    Gate gate;
    const Record record = NewRecord();
    const Record queued = NewRecord();
    {
        ThreadPool pool(2, hook);
        pool.AddJob(0, PlainJob(record, [&gate] { gate.Wait(); }));
        pool.AddJob(0, PlainJob(queued));
        ASSERT_TRUE(record->WaitForRun());
        closingDown = true;
    }
    EXPECT_FALSE(gate.IsOpen());  // nobody has waited for the job
    EXPECT_EQ(library.joinsAsked, 0);
    EXPECT_EQ(record->destroyed, 0);

    gate.Open();
    JoinThreadsLeftBehind();

    // The thread has kept its worker, queue and all, until it had left it.
    EXPECT_EQ(record->destroyed, 1);
    EXPECT_EQ(queued->runs, 0);
    EXPECT_EQ(queued->givenUp, 1);
    EXPECT_EQ(queued->destroyed, 1);
    EXPECT_THAT(hook->Ended(), ElementsAre(101, 102));
    EXPECT_EQ(hook.use_count(), 1);
}

TEST_F(ThreadPoolTest, DestroyIsLeftWhenAShutdownIsAskedForWhileItJoins) {
    Gate gate;
    const Record record = NewRecord();
    ThreadPool pool(1, hook);
    pool.AddJob(0, PlainJob(record, [&gate] {
                    WaitForTheFirstJoin();
                    closingDown = true;
                    gate.Wait();
                }));
    ASSERT_TRUE(record->WaitForRun());

    pool.Destroy();

    EXPECT_FALSE(gate.IsOpen());
    EXPECT_GT(library.joinsAsked, 0);
    gate.Open();
    JoinThreadsLeftBehind();
    EXPECT_EQ(record->destroyed, 1);
}

TEST_F(ThreadPoolTest, EndsItsConstructionAtTheFirstWorkerThatCannotBeStarted) {
    constexpr int count = 3;
    for (int refused = 0; refused < count; ++refused) {
        SCOPED_TRACE(refused);
        Reset();
        library.refused = refused;
        const auto workersHook = std::make_shared<CountingHook>();
        ThreadPool pool(count, workersHook);

        EXPECT_FALSE(pool.IsCreated());
        EXPECT_EQ(library.creations, refused + 1);
        for (int i = 0; i < count; ++i) {
            const Record record = NewRecord();
            const auto job = WaitableJob(record);
            pool.AddJob(static_cast<std::uint32_t>(i), job);
            if (i < refused) {
                EXPECT_TRUE(record->WaitForRun());
            } else {
                EXPECT_EQ(job.use_count(), 1);
                EXPECT_EQ(record->runs, 0);
                EXPECT_EQ(record->givenUp, 1);
            }
        }
        EXPECT_EQ(UnjoinedThreads(), static_cast<std::size_t>(refused));

        pool.Destroy();

        EXPECT_EQ(UnjoinedThreads(), 0U);
        EXPECT_EQ(workersHook->Ended().size(), static_cast<std::size_t>(refused));
        EXPECT_EQ(workersHook.use_count(), 1);
    }
}

TEST_F(ThreadPoolTest, LeavesNoThreadBehindWhenItsConstructionRunsOutOfMemory) {
    int failures = 0;
    int mostStarted = 0;
    for (std::size_t index = 0;; ++index) {
        SCOPED_TRACE(index);
        Reset();
        bool created = false;
        {
            const FailingAllocation failing(index);
            try {
                created = ThreadPool(3, hook).IsCreated();
            } catch (const std::bad_alloc&) {
                ++failures;
            }
        }
        if (created) {
            break;
        }
        EXPECT_EQ(UnjoinedThreads(), 0U);
        EXPECT_EQ(hook.use_count(), 1);
        mostStarted = std::max(mostStarted, library.creations.load());
    }
    EXPECT_GE(failures, 4);  // the slots and each worker
    EXPECT_EQ(mostStarted, 2);
    EXPECT_EQ(UnjoinedThreads(), 0U);
}

TEST_F(ThreadPoolTest, RunsTheHookOnEachWorkerBeforeAndAfterItsJobs) {
    Record records[] = {NewRecord(), NewRecord(), NewRecord()};
    std::atomic<std::size_t> endedTooEarly{99};
    {
        ThreadPool pool(2, hook);
        pool.AddJob(0, PlainJob(records[0]));
        pool.AddJob(0, PlainJob(records[1]));
        pool.AddJob(1, PlainJob(records[2], [&] { endedTooEarly = hook->Ended().size(); }));
        for (const Record& record : records) {
            ASSERT_TRUE(record->WaitForDestruction());
        }
    }
    EXPECT_EQ(records[0]->context, records[1]->context);
    EXPECT_THAT((std::set<std::uint32_t>{records[0]->context, records[2]->context}),
                ElementsAre(101, 102));
    EXPECT_EQ(endedTooEarly, 0U);
    EXPECT_THAT(hook->Ended(), ElementsAre(101, 102));
    EXPECT_TRUE(hook->HasEndedOn(records[0]->thread));
    EXPECT_TRUE(hook->HasEndedOn(records[2]->thread));
}

TEST_F(ThreadPoolTest, EndsAWorkerWhoseInitialiseThrowsAndGivesUpItsJobs) {
    hook->throwsAtStart = true;
    ThreadPool pool(1, hook);
    ASSERT_TRUE(WaitUntil([this] { return hook->Ended().size() == 1; }, WaitLimit));
    const Record record = NewRecord();
    const auto job = WaitableJob(record);

    pool.AddJob(0, job);

    EXPECT_TRUE(pool.IsCreated());
    EXPECT_THAT(hook->Ended(), ElementsAre(0));
    EXPECT_EQ(record->runs, 0);
    EXPECT_EQ(record->givenUp, 1);
    EXPECT_FALSE(job->IsFinished());
    pool.Destroy();
    EXPECT_EQ(record->runs, 0);
    EXPECT_EQ(record->givenUp, 1);
    EXPECT_EQ(job.use_count(), 1);
}

TEST_F(ThreadPoolTest, IgnoresAnExceptionOfUninitialise) {
    hook->throwsAtEnd = true;
    ThreadPool pool(2, hook);

    pool.Destroy();

    EXPECT_THAT(hook->Ended(), ElementsAre(101, 102));
    EXPECT_EQ(UnjoinedThreads(), 0U);
}

}  // namespace kennly::test
