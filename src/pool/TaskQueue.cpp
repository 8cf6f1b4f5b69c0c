#include "pool/TaskQueue.h"

#include "main/ProcessState.h"
#include "pool/SubmitTask.h"
#include "sync/Pause.h"

namespace kennly {

std::shared_ptr<WatchProcessingTask> QueueWatch(std::uint32_t workerIndex,
                                                const std::string& jobName) {
    return SubmitTask<WatchProcessingTask>(WatchRegistry(), workerIndex, jobName);
}

std::shared_ptr<ActionProcessingTask> QueueAction(std::uint32_t workerIndex,
                                                  const std::string& jobName) {
    return SubmitTask<ActionProcessingTask>(ActionRegistry(), workerIndex, jobName);
}

void WaitForTasks(const std::shared_ptr<TaskRegistry>& registry) {
    while (!closingDown) {
        if (!registry || registry->IsEmpty()) {
            return;
        }
        Pause(1);
    }
}

std::int32_t GetResult(const WatchProcessingTask& task) {
    return task.Result();
}

std::int32_t GetResult(const ActionProcessingTask& task) {
    return task.Result();
}

}  // namespace kennly
