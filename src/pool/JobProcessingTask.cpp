#include "pool/JobProcessingTask.h"

#include <utility>

#include "job/ProcessJob.h"

namespace kennly {

JobProcessingTask::JobProcessingTask(std::shared_ptr<TaskRegistry> registry, std::string jobName)
    : IJob(false), jobName_(std::move(jobName)), registry_(std::move(registry)) {}

void JobProcessingTask::Run(std::uint32_t /*context*/) {
    started_ = true;
    try {
        ProcessJob(jobName_);
    } catch (...) {  // the job has ended, and that is all there is to tell
    }
    registry_->Unregister(jobName_);
}

void JobProcessingTask::GivenUp() noexcept {
    registry_->Unregister(jobName_);
}

}  // namespace kennly
