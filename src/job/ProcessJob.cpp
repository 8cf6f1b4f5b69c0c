#include "job/ProcessJob.h"

#include <limits>

#include "config/TheConfig.h"
#include "job/JobSteps.h"
#include "job/ResultCode.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "sync/Pause.h"

namespace kennly {

namespace {

// What one cycle needs of its job; the job itself may be replaced at any time.
struct JobValues {
    std::int32_t slotBase = 0;
    std::int32_t remedyDelay = 0;
    std::int32_t checkDelay = 0;
    std::int32_t maxErrors = 0;
};

bool MustEnd() {
    return tidyingThreadPool || closingDown;
}

// Returns false when there is no such job, or only one of a load that came before this cycle began:
// that one has no workers yet. A check queued for it would wait on another job's worker, for that
// job's end, and that job for the check.
bool CopyJobValues(const std::string& name, JobValues& values) {
    const JobHandle job = FindConfiguredJob(name);
    if (!job || job->slotBase == NoWorkers) {
        return false;
    }
    values.slotBase = job->slotBase;
    values.remedyDelay = job->remedy->delay;
    values.checkDelay = job->check->delay;
    values.maxErrors = job->maxErrors;
    return true;
}

void PauseBeforeRemedy(const JobValues& job, std::int32_t errorCount) {
    if (job.maxErrors > 0 && errorCount > job.maxErrors) {
        Pause(ThrottlePauseSeconds);
    } else if (job.remedyDelay > 0) {
        Pause(static_cast<unsigned>(job.remedyDelay));
    }
}

// Evaluates the check and does what its result asks for. Returns false when the job has to end.
bool RunCycle(const std::string& name, const JobValues& job, std::int32_t& errorCount) {
    const std::int32_t result = RunCheck(job.slotBase, name);
    if (MustEnd()) {
        return false;
    }
    if (result == ResultHealthy) {
        errorCount = 0;
        return true;
    }
    if (errorCount < std::numeric_limits<std::int32_t>::max()) {
        ++errorCount;
    }
    if (result == ResultNotEvaluated) {
        return true;
    }
    PauseBeforeRemedy(job, errorCount);
    if (MustEnd()) {
        return false;
    }
    RunRemedy(job.slotBase, name);  // what became of it, the next check will tell
    return true;
}

void RunCycles(const std::string& name) {
    JobValues job;
    if (!CopyJobValues(name, job)) {
        return;
    }
    std::int32_t errorCount = 0;
    while (!MustEnd() && RunCycle(name, job, errorCount)) {
        if (MustEnd()) {
            return;
        }
        // Deliberate: read as an unsigned count, so a negative delay lasts for more than a century.
        Pause(static_cast<unsigned>(job.checkDelay));
    }
}

}  // namespace

void ProcessJob(const std::string& name) {
    if (MustEnd()) {
        return;
    }
    try {
        RunCycles(name);
    } catch (...) {
        LogError("Exception in ProcessJob for job:", name.c_str());
    }
}

}  // namespace kennly
