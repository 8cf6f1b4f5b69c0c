#include "pool/ThreadPool.h"

#include <utility>

namespace kennly {

ThreadPool::IJob::IJob(bool waitable) : waitable_(waitable) {}

void ThreadPool::IJob::SetFinished(bool succeeded) {
    {
        AutoLock lock(&lock_);
        if (finished_) {
            return;
        }
        finished_ = true;
        succeeded_ = succeeded;
    }
    finishedEvent_.Set();
}

bool ThreadPool::IJob::IsFinished() const {
    return finishedEvent_.IsSet();
}

bool ThreadPool::IJob::HasSucceeded() const {
    AutoLock lock(&lock_);
    return succeeded_;
}

ThreadPool::ThreadPool(std::uint32_t threadCount,
                       const std::shared_ptr<IThreadInitialisation>& initialisation)
    : threadCount_(threadCount) {
    try {
        StartWorkers(initialisation);
    } catch (...) {
        // The destructor does not run for a half-built pool; its workers must not stay behind.
        Destroy();
        throw;
    }
}

ThreadPool::~ThreadPool() {
    Destroy();
}

void ThreadPool::StartWorkers(const std::shared_ptr<IThreadInitialisation>& initialisation) {
    workers_.resize(threadCount_);
    for (std::shared_ptr<JobThread>& slot : workers_) {
        slot = JobThread::StartNew(initialisation);
        if (!slot) {
            return;
        }
    }
    created_ = true;
}

std::shared_ptr<ThreadPool::JobThread> ThreadPool::WorkerAt(std::size_t index) {
    AutoLock lock(&lock_);
    return index < workers_.size() ? workers_[index] : nullptr;
}

std::shared_ptr<ThreadPool::JobThread> ThreadPool::TakeWorkerOut(std::size_t index) {
    AutoLock lock(&lock_);
    return std::move(workers_[index]);
}

void ThreadPool::AddJob(std::uint32_t workerIndex, std::shared_ptr<IJob> job) {
    if (const std::shared_ptr<JobThread> worker = WorkerAt(workerIndex)) {
        worker->AddJob(std::move(job));
    } else if (workerIndex < threadCount_ && job) {
        job->GivenUp();  // its worker is gone, and whoever waits for its end must not wait for ever
    }
}

void ThreadPool::Destroy() {
    {
        AutoLock lock(&lock_);
        if (destroyed_) {
            return;
        }
    }
    for (std::size_t i = 0; i < workers_.size(); ++i) {
        if (const std::shared_ptr<JobThread> worker = WorkerAt(i)) {
            worker->Stop();
        }
    }
    for (std::size_t i = 0; i < workers_.size(); ++i) {
        // Joined while it still stands in its slot: a job that runs meanwhile may queue on it.
        if (const std::shared_ptr<JobThread> worker = WorkerAt(i)) {
            worker->Join();  // should it fail, there is nothing left to wait for
            TakeWorkerOut(i);
        }
    }
    AutoLock lock(&lock_);
    workers_.clear();
    destroyed_ = true;
}

}  // namespace kennly
