#include "job/DogJob.h"

namespace kennly {

JobHandle NewJob() {
    return {new DogJob, DestroyJob};
}

void DestroyJob(DogJob* job) noexcept {
    if (job == nullptr) {
        return;
    }
    delete job->remedy;
    delete job->check;
    delete job;
}

}  // namespace kennly
