#include "watch/ProcessWatch.h"

#include "config/TheConfig.h"
#include "job/ResultCode.h"
#include "main/Log.h"
#include "main/ProcessState.h"

namespace kennly {

std::int32_t ProcessWatch(const std::string& jobName) {
    if (tidyingThreadPool || closingDown) {
        return ResultNotEvaluated;
    }
    try {
        const JobHandle job = FindConfiguredJob(jobName);
        return job && job->check != nullptr ? job->check->DoWatch() : ResultNotEvaluated;
    } catch (...) {  // whatever it was, a worker must not end by it
        LogError("Exception while processing check for job:", jobName.c_str());
        return ResultNotEvaluated;
    }
}

}  // namespace kennly
