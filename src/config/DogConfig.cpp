#include "config/DogConfig.h"

#include <utility>

namespace kennly {

namespace {

// Whoever holds the job may be a worker in the middle of a long command, and the process about to
// end.
void RememberIfInUse(const JobHandle& job) noexcept {
    if (job.use_count() > 1 && job->check != nullptr) {
        job->check->Remember();
    }
}

}  // namespace

DogConfig::DogConfig() = default;

DogConfig::~DogConfig() {
    ClearJobs();
}

JobHandle DogConfig::FindJob(const std::string& name) {
    mutex_.Lock();
    const auto found = index_.find(name);
    JobHandle job = found != index_.end() ? found->second.lock() : nullptr;
    mutex_.Unlock();
    return job;
}

void DogConfig::ClearJobs() noexcept {
    index_.clear();
    while (!jobs_.empty()) {
        const JobHandle job = std::move(jobs_.front());
        jobs_.pop_front();
        RememberIfInUse(job);
    }
}

void DogConfig::AddJob(const JobHandle& job) {
    // Should there be no memory for the second step, the first has left nothing that can be found.
    index_[job->name] = job;
    jobs_.push_back(job);
}

}  // namespace kennly
