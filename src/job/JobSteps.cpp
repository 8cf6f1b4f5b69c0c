#include "job/JobSteps.h"

#include <memory>

#include "job/ResultCode.h"
#include "pool/TaskQueue.h"
#include "pool/WatchDogThreadPool.h"

namespace kennly {

namespace {

// Queues a task with `queue`, waits until its registry is empty, and returns what it has found.
// Giving up the hold on the task does not end one that still runs.
template <typename Task>
std::int32_t RunTask(std::shared_ptr<Task> (*queue)(std::uint32_t, const std::string&),
                     std::shared_ptr<TaskRegistry> (*registry)(), std::int32_t workerIndex,
                     const std::string& name) {
    try {
        const std::shared_ptr<Task> task = queue(static_cast<std::uint32_t>(workerIndex), name);
        if (!task) {
            return ResultNotEvaluated;
        }
        WaitForTasks(registry());
        return GetResult(*task);
    } catch (...) {  // without a task, or without a wait, nothing is known
        return ResultNotEvaluated;
    }
}

}  // namespace

std::int32_t RunCheck(std::int32_t slotBase, const std::string& name) {
    return RunTask(QueueWatch, WatchRegistry, slotBase + CheckWorkerOffset, name);
}

std::int32_t RunRemedy(std::int32_t slotBase, const std::string& name) {
    return RunTask(QueueAction, ActionRegistry, slotBase + RemedyWorkerOffset, name);
}

}  // namespace kennly
