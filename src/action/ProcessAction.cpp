#include "action/ProcessAction.h"

#include "config/TheConfig.h"
#include "job/ResultCode.h"
#include "main/Log.h"
#include "main/ProcessState.h"

namespace kennly {

std::int32_t ProcessAction(const std::string& jobName) {
    if (tidyingThreadPool || closingDown) {
        return ResultNotEvaluated;
    }
    try {
        const JobHandle job = FindConfiguredJob(jobName);
        return job && job->remedy != nullptr ? job->remedy->DoAction() : ResultNotEvaluated;
    } catch (...) {  // whatever it was, a worker must not end by it
        LogError("Exception processing remedy for job", jobName.c_str());
        return ResultNotEvaluated;
    }
}

}  // namespace kennly
