#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "pool/TaskRegistry.h"
#include "pool/WatchDogThreadPool.h"

namespace kennly {

/// Enters `jobName` in `registry` and queues a new Task for it on the worker with the index given.
///
/// Returns a hold on the task, or null when the name was there already or there is no pool; in the
/// latter case the name stays. It also stays when the index lies outside the pool, because nobody
/// is told. When something throws, the name is taken out again: no task will ever do so. Any thread
/// may call it.
template <typename Task>
std::shared_ptr<Task> SubmitTask(const std::shared_ptr<TaskRegistry>& registry,
                                 std::uint32_t workerIndex, const std::string& jobName) {
    if (!registry || !registry->Register(jobName)) {
        return nullptr;
    }
    const auto pool = GetThreadPool();
    if (!pool) {
        return nullptr;
    }
    try {
        auto task = std::make_shared<Task>(registry, jobName);
        pool->AddJob(workerIndex, task);
        return task;
    } catch (...) {
        registry->Unregister(jobName);
        throw;
    }
}

}  // namespace kennly
