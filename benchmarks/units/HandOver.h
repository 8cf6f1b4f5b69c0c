#pragma once

#include <semaphore.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "pool/ThreadPool.h"

namespace kennly::bench {

/// The floor of a worker of the pool: a thread with a std::deque under a std::mutex, and a
/// std::condition_variable on which it waits.
class LockedDeque {
public:
    /// A piece of work; the last holder destroys it.
    class Job {
    public:
        Job() = default;
        virtual ~Job() = default;
        Job(const Job&) = delete;
        Job& operator=(const Job&) = delete;
        virtual void Run() = 0;
    };

    LockedDeque() : worker_([this] { Work(); }) {}
    ~LockedDeque() {
        Add(nullptr);
        worker_.join();
    }
    LockedDeque(const LockedDeque&) = delete;
    LockedDeque& operator=(const LockedDeque&) = delete;

    /// Queues a job; null ends the thread.
    void Add(std::shared_ptr<Job> job) {
        {
            const std::lock_guard<std::mutex> held(lock_);
            jobs_.push_back(std::move(job));
        }
        added_.notify_one();
    }

private:
    std::shared_ptr<Job> Take() {
        std::unique_lock<std::mutex> held(lock_);
        added_.wait(held, [this] { return !jobs_.empty(); });
        std::shared_ptr<Job> job = std::move(jobs_.front());
        jobs_.pop_front();
        return job;
    }
    void Work() {
        while (const std::shared_ptr<Job> job = Take()) {
            job->Run();
        }
    }

    std::mutex lock_;
    std::condition_variable added_;
    std::deque<std::shared_ptr<Job>> jobs_;  // guarded by lock_
    std::thread worker_;
};

/// Tells one who waits when so many jobs have run on one worker.
class Countdown {
public:
    explicit Countdown(int jobs) : left_(jobs) { sem_init(&last_, 0, 0); }
    ~Countdown() { sem_destroy(&last_); }
    Countdown(const Countdown&) = delete;
    Countdown& operator=(const Countdown&) = delete;

    /// Called by the worker.
    void Count() {
        if (--left_ == 0) {
            sem_post(&last_);
        }
    }
    /// Called by the one who waits.
    void Await() {
        while (sem_wait(&last_) != 0) {
        }
    }

private:
    int left_;  // the worker's alone
    sem_t last_ = {};
};

/// The floor as a worker to whom jobs are handed.
class DequeWorker {
public:
    /// Hands over one that counts down.
    void Add(Countdown& jobs) { deque_.Add(std::make_shared<Counted>(jobs)); }

private:
    class Counted : public LockedDeque::Job {
    public:
        explicit Counted(Countdown& jobs) : jobs_(jobs) {}
        void Run() override { jobs_.Count(); }

    private:
        Countdown& jobs_;
    };
    LockedDeque deque_;
};

/// The only worker of a pool.
class PoolWorker {
public:
    /// Throws std::runtime_error when it has not been started.
    PoolWorker() {
        if (!pool_.IsCreated()) {
            throw std::runtime_error("no worker");
        }
    }

    /// Hands over one that counts down.
    void Add(Countdown& jobs) { pool_.AddJob(0, std::make_shared<Counted>(jobs)); }

private:
    class Counted : public ThreadPool::IJob {
    public:
        explicit Counted(Countdown& jobs) : IJob(true), jobs_(jobs) {}
        void Run(std::uint32_t /*context*/) override { jobs_.Count(); }

    private:
        Countdown& jobs_;
    };
    ThreadPool pool_{1, nullptr};
};

/// Hands over so many jobs at once and waits for the end of the last. With one, the worker sleeps
/// before each, as the daemon's do.
template <typename Worker>
void HandOver(Worker& worker, int jobs) {
    Countdown left(jobs);
    for (int i = 0; i < jobs; ++i) {
        worker.Add(left);
    }
    left.Await();
}

}  // namespace kennly::bench
