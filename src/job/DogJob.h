#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "action/DogAction.h"
#include "watch/DogWatch.h"

namespace kennly {

/// The `slotBase` of a job that has been loaded and not yet been given its workers.
inline constexpr std::int32_t NoWorkers = -1;

/// One supervised unit: a check, a remedy and an error threshold under a unique name.
///
/// Threads: filled by the main thread before it is entered in the configuration, read by any thread
/// that has found it there. Only `slotBase` is set later, while there are no workers that look.
/// Ownership: handed about as JobHandle. The configuration holds a job until the next load; whoever
/// runs its check or remedy holds it for that one run, and nobody holds one across a cycle.
class DogJob {
public:
    DogJob() = default;

    /// Leaves check and remedy alone: DestroyJob has destroyed them.
    virtual ~DogJob() = default;

    DogJob(const DogJob&) = delete;
    DogJob& operator=(const DogJob&) = delete;

    bool enabled = false;  // true for every job of a configuration
    std::string name;      // unique in its configuration
    std::int32_t maxErrors =
        0;  // more failures in a row than this are throttled; 0 or below: never
    DogAction* remedy = nullptr;        // owned
    DogWatch* check = nullptr;          // owned
    std::int32_t slotBase = NoWorkers;  // index of the first of the job's three workers
};

/// A hold on a job, its check and its remedy.
using JobHandle = std::shared_ptr<DogJob>;

/// An empty job whose last holder destroys it as DestroyJob does. Throws std::bad_alloc.
JobHandle NewJob();

/// Destroys the job's remedy, then its check, then the job. For NewJob; null is ignored.
void DestroyJob(DogJob* job) noexcept;

}  // namespace kennly
