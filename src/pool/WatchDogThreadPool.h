#pragma once

#include <cstdint>
#include <memory>

#include "pool/ThreadPool.h"

namespace kennly {

/// The three workers of a job, counted from its first one, which runs its cycle.
inline constexpr std::int32_t WorkersPerJob = 3;
inline constexpr std::int32_t CheckWorkerOffset = 1;
inline constexpr std::int32_t RemedyWorkerOffset = 2;

/// The daemon's pool: job number k, counted from 0 in file order, has worker 3k for its cycle, 3k+1
/// for its checks and 3k+2 for its remedies.
///
/// Threads and ownership: as ThreadPool. The process has one at a time, see below.
class WatchDogThreadPool : public ThreadPool {
public:
    /// The hook of this pool's workers. Deliberate: it does nothing, and every context word is 0.
    class COMInitialisation : public IThreadInitialisation {
    public:
        std::uint32_t Initialise() override { return 0; }
        void Uninitialise(std::uint32_t /*context*/) override {}
    };

    /// Starts the workers; all of them or, see IsCreated, the first ones. Throws std::bad_alloc.
    explicit WatchDogThreadPool(std::uint32_t threadCount);
};

/// Makes the process's pool, unless there is one: that is kept unchanged, whatever its size.
///
/// Returns whether there is a pool all of whose workers were started. Otherwise logs "Error
/// creating Thread Pool" and keeps the partial pool until it is tidied, or "exception while
/// creating threadpool!" when there is none. Main thread only.
bool CreateThreadPool(std::uint32_t threadCount);

/// Destroys the process's pool, if there is one, and clears the registries of checks, remedies and
/// jobs. Waits for every running task, so `tidyingThreadPool` must be set, unless the process is
/// shutting down. Returns false and logs "exception while tidying threadpool!" when something
/// threw. Main thread only.
bool TidyThreadPool();

/// A hold on the process's pool, or null. Any thread may call it.
std::shared_ptr<WatchDogThreadPool> GetThreadPool();

}  // namespace kennly
