#include "pool/JobQueue.h"

#include "pool/SubmitTask.h"

namespace kennly {

bool QueueJob(std::uint32_t workerIndex, const std::string& jobName) {
    SubmitTask<JobProcessingTask>(JobRegistry(), workerIndex, jobName);
    return true;
}

bool HasStarted(const JobProcessingTask& task) {
    return task.Started();
}

}  // namespace kennly
