#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "sync/AutoLock.h"
#include "sync/CriticalSection.h"
#include "sync/Event.h"
#include "sync/Thread.h"

namespace kennly {

/// A fixed number of worker threads, each with a queue of its own that it works off in order.
///
/// The submitter chooses the worker by index: there is no shared queue, no balancing, no priority.
/// A pool runs from its construction until Destroy; another size means another pool.
///
/// Threads: AddJob may be called from any thread, also from a job; the rest belongs to the owner.
/// The pool's lock is never held together with a worker's.
/// Ownership: the pool owns its workers. While the process shuts down nobody waits for a worker's
/// thread, so a running thread keeps its own worker alive until it has left Run.
class ThreadPool {
public:
    /// A piece of work.
    ///
    /// Threads: the flags are guarded by the job's own lock.
    /// Ownership: queue and worker hold a job while they use it. One that is not waitable belongs
    /// to the pool once it is queued, which destroys it after its run; a waitable one is marked
    /// finished instead and lives until its submitter has given up its own hold as well.
    /// Deliberate: once the process shuts down it is not even marked, because its submitter no
    /// longer waits.
    class IJob {
    public:
        /// With `waitable` the submitter keeps the job after its run, else it hands the job over.
        explicit IJob(bool waitable);
        virtual ~IJob() = default;
        IJob(const IJob&) = delete;
        IJob& operator=(const IJob&) = delete;

        /// The work. `context` is the word that the worker's Initialise returned. An exception that
        /// leaves it makes a waitable job fail and is not reported.
        virtual void Run(std::uint32_t context) = 0;

        /// Called instead of Run, by whichever thread finds out, when the job's worker will never
        /// run it. May be called under the worker's queue lock: it must be short and must not queue
        /// anything.
        virtual void GivenUp() noexcept {}

        /// Whether the submitter keeps the job after its run.
        bool IsWaitable() const { return waitable_; }

        /// Marks the job finished and wakes whoever waits for it. The first outcome wins.
        void SetFinished(bool succeeded);

        /// Whether SetFinished has been called.
        bool IsFinished() const;

        /// Whether Run returned normally; false until the job is finished.
        bool HasSucceeded() const;

    private:
        mutable CriticalSection lock_{true};
        bool finished_ = false;   // guarded by lock_
        bool succeeded_ = false;  // guarded by lock_
        Event finishedEvent_{false};
        const bool waitable_;
    };

    /// What each worker does once when its thread starts and once when it ends.
    ///
    /// Threads: called on the workers' threads, several at a time.
    class IThreadInitialisation {
    public:
        virtual ~IThreadInitialisation() = default;

        /// Returns the word that each job's Run is given on this worker. A worker whose Initialise
        /// throws ends at once.
        virtual std::uint32_t Initialise() = 0;

        /// Given the word that Initialise returned, 0 if it threw.
        virtual void Uninitialise(std::uint32_t context) = 0;
    };

    class JobThread;

    /// Starts `threadCount` workers, without an upper bound. When one cannot be started,
    /// construction ends there: the workers before it keep running and IsCreated is false.
    /// `initialisation` may be null; the workers hold it.
    ThreadPool(std::uint32_t threadCount,
               const std::shared_ptr<IThreadInitialisation>& initialisation);

    /// As Destroy.
    virtual ~ThreadPool();

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /// Queues `job` on the worker with the index given; a job for a worker that is gone already is
    /// given up. Deliberate: with an index outside the pool it does nothing at all, and the caller
    /// is not told.
    virtual void AddJob(std::uint32_t workerIndex, std::shared_ptr<IJob> job);

    /// Stops all workers, then joins and gives up one after the other. A job that runs is waited
    /// for, unless the process is shutting down. Queued jobs do not run: waitable ones end finished
    /// without success, the others are destroyed. A second call does nothing.
    void Destroy();

    /// Whether every worker was started.
    bool IsCreated() const { return created_; }

private:
    void StartWorkers(const std::shared_ptr<IThreadInitialisation>& initialisation);
    std::shared_ptr<JobThread> WorkerAt(std::size_t index);
    std::shared_ptr<JobThread> TakeWorkerOut(std::size_t index);

    CriticalSection lock_{true};
    bool destroyed_ = false;  // guarded by lock_
    bool created_ = false;    // written by the constructor only
    // Guarded by lock_ once the pool is built; only the owner changes the size. A slot is empty
    // when its worker could not be started or was given up.
    std::vector<std::shared_ptr<JobThread>> workers_;
    const std::uint32_t threadCount_;
};

/// One worker of the pool: a thread and its queue.
///
/// It waits for work without polling and ends for good when it is told to stop, when its Initialise
/// throws or when a wait fails. A worker that has ended is not replaced; what is queued on it
/// afterwards stays queued, is given up at once, and deliberately is not marked finished.
///
/// Threads: AddJob, Stop and HasJobs may be called from any thread.
/// Ownership: held by the pool and, when it was started through StartNew, by its own thread.
class ThreadPool::JobThread : public Thread {
public:
    /// Does not start the thread.
    explicit JobThread(std::shared_ptr<IThreadInitialisation> initialisation);

    /// Neither stops nor joins the thread. The hold on jobs still queued ends, and that is all that
    /// happens to them.
    ~JobThread() override = default;

    /// A worker whose thread runs and holds it, or null when the thread could not be created.
    static std::shared_ptr<JobThread> StartNew(
        const std::shared_ptr<IThreadInitialisation>& initialisation);

    /// Appends `job` to the queue and wakes the worker.
    void AddJob(std::shared_ptr<IJob> job);

    /// Asks the worker to end after the job that it runs. Takes no lock.
    void Stop();

    /// Whether the queue holds a job.
    bool HasJobs();

    /// The worker's loop; returns 0 when it has ended.
    std::int32_t Run() override;

private:
    void WorkUntilStopped(std::uint32_t context);
    bool WaitForJob();
    bool TakeJob(std::shared_ptr<IJob>& job);
    void GiveUpQueuedJobs();

    std::list<std::shared_ptr<IJob>> queue_;  // guarded by queueLock_
    bool ended_ = false;                      // guarded by queueLock_
    CriticalSection queueLock_{true};
    Event stopEvent_{false};
    Event wakeEvent_{false};  // set under queueLock_ when a job is queued, without it by Stop
    const std::shared_ptr<IThreadInitialisation> initialisation_;
    std::shared_ptr<JobThread> self_;  // the thread's own hold, until Run takes it over
};

}  // namespace kennly
