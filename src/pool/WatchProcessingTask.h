#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "job/ResultCode.h"
#include "pool/TaskRegistry.h"
#include "pool/ThreadPool.h"

namespace kennly {

/// The check of one job, once, as a task on a worker.
///
/// Threads: constructed by the submitter, run by a worker, its result read by the submitter.
/// Ownership: waitable; queue, worker and submitter each hold it for as long as they use it. It
/// holds its registry, so that it can leave it at any time, also while the process exits.
class WatchProcessingTask : public ThreadPool::IJob {
public:
    /// A task for the job whose name has been entered in `registry`.
    WatchProcessingTask(std::shared_ptr<TaskRegistry> registry, std::string jobName);

    /// Runs ProcessWatch, keeps its result and, as the last thing, leaves the registry: that is
    /// what the submitter waits for. An exception leaves the result at ResultNotEvaluated.
    void Run(std::uint32_t context) override;

    /// Leaves the registry, the result still ResultNotEvaluated.
    void GivenUp() noexcept override;

    /// What Run has found; ResultNotEvaluated until then.
    std::int32_t Result() const { return result_; }

private:
    const std::string jobName_;
    // Atomic because a submitter that a shutdown has cut short reads it while the task runs.
    std::atomic<std::int32_t> result_{ResultNotEvaluated};
    const std::shared_ptr<TaskRegistry> registry_;
};

}  // namespace kennly
