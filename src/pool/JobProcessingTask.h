#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "pool/TaskRegistry.h"
#include "pool/ThreadPool.h"

namespace kennly {

/// The endless cycle of one job, as a task on a worker.
///
/// Threads: constructed by the main thread, run by a worker.
/// Ownership: not waitable; the pool destroys it after its run. It holds its registry.
class JobProcessingTask : public ThreadPool::IJob {
public:
    /// A task for the job whose name has been entered in `registry`.
    JobProcessingTask(std::shared_ptr<TaskRegistry> registry, std::string jobName);

    /// Runs ProcessJob, then leaves the registry. Exceptions are dropped.
    void Run(std::uint32_t context) override;

    /// Leaves the registry.
    void GivenUp() noexcept override;

    /// Whether Run has begun.
    bool Started() const { return started_; }

private:
    const std::string jobName_;
    std::atomic<bool> started_{false};
    const std::shared_ptr<TaskRegistry> registry_;
};

}  // namespace kennly
