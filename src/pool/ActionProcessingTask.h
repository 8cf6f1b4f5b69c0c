#pragma once

#include "action/ProcessAction.h"
#include "pool/ResultTask.h"

namespace kennly {

/// The remedy of one job, once, as a task on the job's third worker.
using ActionProcessingTask = ResultTask<ProcessAction>;

}  // namespace kennly
