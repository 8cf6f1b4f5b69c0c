#include "pool/WatchProcessingTask.h"

#include <utility>

#include "watch/ProcessWatch.h"

namespace kennly {

WatchProcessingTask::WatchProcessingTask(std::shared_ptr<TaskRegistry> registry,
                                         std::string jobName)
    : IJob(true), jobName_(std::move(jobName)), registry_(std::move(registry)) {}

void WatchProcessingTask::Run(std::uint32_t /*context*/) {
    result_ = ResultNotEvaluated;
    try {
        result_ = ProcessWatch(jobName_);
    } catch (...) {  // the result stays as it was
    }
    registry_->Unregister(jobName_);
}

void WatchProcessingTask::GivenUp() noexcept {
    registry_->Unregister(jobName_);
}

}  // namespace kennly
