#include "pool/ActionProcessingTask.h"

#include <utility>

#include "action/ProcessAction.h"

namespace kennly {

ActionProcessingTask::ActionProcessingTask(std::shared_ptr<TaskRegistry> registry,
                                           std::string jobName)
    : IJob(true), jobName_(std::move(jobName)), registry_(std::move(registry)) {}

void ActionProcessingTask::Run(std::uint32_t /*context*/) {
    result_ = ResultNotEvaluated;
    try {
        result_ = ProcessAction(jobName_);
    } catch (...) {  // the result stays as it was
    }
    registry_->Unregister(jobName_);
}

void ActionProcessingTask::GivenUp() noexcept {
    registry_->Unregister(jobName_);
}

}  // namespace kennly
