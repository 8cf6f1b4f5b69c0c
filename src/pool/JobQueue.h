#pragma once

#include <cstdint>
#include <string>

#include "pool/JobProcessingTask.h"

namespace kennly {

/// Starts the cycle of a job on a worker of the process's pool, unless it is running already.
///
/// Deliberate: always true; the caller cannot tell a job that was refused or dropped from one that
/// was queued. Throws std::bad_alloc, with nothing queued. Main thread only.
bool QueueJob(std::uint32_t workerIndex, const std::string& jobName);

/// Whether the run of a task has begun. Any thread may call it.
bool HasStarted(const JobProcessingTask& task);

}  // namespace kennly
