#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "job/ResultCode.h"
#include "pool/TaskRegistry.h"
#include "pool/ThreadPool.h"

namespace kennly {

/// One step of a job, once, as a task on a worker: `Step` is given the job's name and returns a
/// result code.
///
/// Threads: constructed by the submitter, run by a worker, its result read by the submitter.
/// Ownership: waitable; queue, worker and submitter each hold it for as long as they use it. It
/// holds its registry, so that it can leave it at any time, also while the process exits.
template <std::int32_t (*Step)(const std::string& jobName)>
class ResultTask : public ThreadPool::IJob {
public:
    /// A task for the job whose name has been entered in `registry`.
    ResultTask(std::shared_ptr<TaskRegistry> registry, std::string jobName)
        : IJob(true), jobName_(std::move(jobName)), registry_(std::move(registry)) {}

    /// Runs the step, keeps its result and, as the last thing, leaves the registry: that is what
    /// the submitter waits for. An exception leaves the result at ResultNotEvaluated.
    void Run(std::uint32_t /*context*/) override {
        result_ = ResultNotEvaluated;
        try {
            result_ = Step(jobName_);
        } catch (...) {  // the result stays as it was
        }
        registry_->Unregister(jobName_);
    }

    /// Leaves the registry, the result still ResultNotEvaluated.
    void GivenUp() noexcept override { registry_->Unregister(jobName_); }

    /// What Run has found; ResultNotEvaluated until then.
    std::int32_t Result() const { return result_; }

private:
    const std::string jobName_;
    // Atomic because a submitter that a shutdown has cut short reads it while the task runs.
    std::atomic<std::int32_t> result_{ResultNotEvaluated};
    const std::shared_ptr<TaskRegistry> registry_;
};

}  // namespace kennly
