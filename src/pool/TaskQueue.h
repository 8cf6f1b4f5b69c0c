#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "pool/ActionProcessingTask.h"
#include "pool/WatchProcessingTask.h"

namespace kennly {

/// Queues the check of a job on a worker of the process's pool.
///
/// Returns the task, which the caller holds, or null when a check of this job is still pending or
/// there is no pool; in the latter case the name stays registered until the pool is tidied. Throws
/// std::bad_alloc, with nothing queued. Any thread may call it.
std::shared_ptr<WatchProcessingTask> QueueWatch(std::uint32_t workerIndex,
                                                const std::string& jobName);

/// As QueueWatch, for the job's remedy.
std::shared_ptr<ActionProcessingTask> QueueAction(std::uint32_t workerIndex,
                                                  const std::string& jobName);

/// Waits until `registry` is empty or the process shuts down, looking once and then once a second.
///
/// Deliberate: it waits for the tasks of all jobs, not for one. When the process is shutting down
/// already it returns at once. `registry` may be null (the process exits), which counts as empty.
void WaitForTasks(const std::shared_ptr<TaskRegistry>& registry);

/// The result of a task; ResultNotEvaluated until its run has stored one.
std::int32_t GetResult(const WatchProcessingTask& task);
std::int32_t GetResult(const ActionProcessingTask& task);

}  // namespace kennly
