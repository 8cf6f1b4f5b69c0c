#include "config/DogConfig.h"
#include "main/Log.h"
#include "pool/JobQueue.h"
#include "pool/WatchDogThreadPool.h"

namespace kennly {

bool DogConfig::AssignJobs() {
    try {
        // No lock: only this thread changes the list, and workers must be able to look jobs up.
        std::int32_t slot = 0;
        for (const JobHandle& job : jobs_) {
            if (!job) {
                continue;
            }
            job->slotBase = slot;
            slot += WorkersPerJob;
            // Deliberate: a job that was refused or dropped looks like one that was queued.
            QueueJob(static_cast<std::uint32_t>(job->slotBase), job->name);
        }
        return true;
    } catch (...) {
        LogError("exception while assigning jobs!");
        return false;
    }
}

}  // namespace kennly
