#pragma once

#include "pool/ResultTask.h"
#include "watch/ProcessWatch.h"

namespace kennly {

/// The check of one job, once, as a task on the job's second worker.
using WatchProcessingTask = ResultTask<ProcessWatch>;

}  // namespace kennly
