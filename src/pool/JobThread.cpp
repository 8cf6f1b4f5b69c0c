#include <utility>

#include "main/ProcessState.h"
#include "pool/ThreadPool.h"

namespace kennly {

namespace {

// Runs one job and hands it back or, when the caller drops the last hold on it, destroys it.
void RunJob(ThreadPool::IJob& job, std::uint32_t context) {
    const bool waitable = job.IsWaitable();
    bool succeeded = true;
    try {
        job.Run(context);
    } catch (...) {  // a waitable job tells its submitter; nobody waits for the others
        succeeded = false;
    }
    if (waitable && !closingDown) {  // a submitter that shuts down waits no longer
        job.SetFinished(succeeded);
    }
}

}  // namespace

ThreadPool::JobThread::JobThread(std::shared_ptr<IThreadInitialisation> initialisation)
    : initialisation_(std::move(initialisation)) {}

std::shared_ptr<ThreadPool::JobThread> ThreadPool::JobThread::StartNew(
    const std::shared_ptr<IThreadInitialisation>& initialisation) {
    auto worker = std::make_shared<JobThread>(initialisation);
    worker->self_ = worker;
    if (!worker->Start()) {
        worker->self_.reset();
        return nullptr;
    }
    return worker;
}

void ThreadPool::JobThread::AddJob(std::shared_ptr<IJob> job) {
    AutoLock lock(&queueLock_);
    queue_.push_back(std::move(job));
    wakeEvent_.Set();
    // Nobody will run it any more, so it must not stay in a registry that others wait for.
    if (ended_ && queue_.back()) {
        queue_.back()->GivenUp();
    }
}

void ThreadPool::JobThread::Stop() {
    stopEvent_.Set();
    wakeEvent_.Set();
}

bool ThreadPool::JobThread::HasJobs() {
    AutoLock lock(&queueLock_);
    return !queue_.empty();
}

std::int32_t ThreadPool::JobThread::Run() {
    const std::shared_ptr<JobThread> self = std::move(self_);
    std::uint32_t context = 0;
    try {
        if (initialisation_) {
            context = initialisation_->Initialise();
        }
        WorkUntilStopped(context);
    } catch (...) {  // whatever failed, this worker is at its end
    }
    GiveUpQueuedJobs();
    try {
        if (initialisation_) {
            initialisation_->Uninitialise(context);
        }
    } catch (...) {  // the thread ends all the same
    }
    return 0;
}

void ThreadPool::JobThread::WorkUntilStopped(std::uint32_t context) {
    std::shared_ptr<IJob> job;
    while (WaitForJob() && TakeJob(job)) {
        if (job) {
            RunJob(*job, context);
            job.reset();
        }
    }
}

bool ThreadPool::JobThread::WaitForJob() {
    {
        // Finding the queue empty and beginning to wait are one step for AddJob. A wake event that
        // is set on an empty queue can therefore only come from Stop, and ending on it loses no
        // job.
        AutoLock lock(&queueLock_);
        if (queue_.empty() && !wakeEvent_.WaitReleasing(lock)) {
            return false;
        }
    }
    // In this order, so that a Stop in between leaves its stop event to be seen or its wake event
    // set.
    wakeEvent_.Reset();
    return !stopEvent_.IsSet();
}

bool ThreadPool::JobThread::TakeJob(std::shared_ptr<IJob>& job) {
    AutoLock lock(&queueLock_);
    if (queue_.empty()) {  // a wake with nothing queued cannot come about; the worker ends by it
        Stop();
        return false;
    }
    job = std::move(queue_.front());
    queue_.pop_front();
    return true;
}

void ThreadPool::JobThread::GiveUpQueuedJobs() {
    AutoLock lock(&queueLock_);
    ended_ = true;
    for (std::shared_ptr<IJob>& job : queue_) {
        if (!job) {
            continue;
        }
        job->GivenUp();
        if (job->IsWaitable()) {
            job->SetFinished(false);
        } else {
            job.reset();
        }
    }
}

}  // namespace kennly
