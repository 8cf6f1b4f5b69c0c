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
        // A job without workers has just been loaded, and this is a worker of the pool that ends
        // for it: what it found out would be lost, and with it the change of a file.
        if (!job || job->slotBase == NoWorkers || job->check == nullptr) {
            return ResultNotEvaluated;
        }
        return job->check->DoWatch();
    } catch (...) {  // whatever it was, a worker must not end by it
        LogError("Exception while processing check for job:", jobName.c_str());
        return ResultNotEvaluated;
    }
}

}  // namespace kennly
