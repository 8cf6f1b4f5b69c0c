#include "config/DogConfig.h"

namespace kennly {

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
        jobs_.pop_front();
    }
}

void DogConfig::AddJob(const JobHandle& job) {
    // Should there be no memory for the second step, the first has left nothing that can be found.
    index_[job->name] = job;
    jobs_.push_back(job);
}

}  // namespace kennly
