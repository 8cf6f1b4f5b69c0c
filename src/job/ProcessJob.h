#pragma once

#include <cstdint>
#include <string>

namespace kennly {

/// How long a remedy is held back once the failures in a row have passed the job's threshold.
inline constexpr unsigned ThrottlePauseSeconds = 15;

/// Runs the cycle of the job with this name until the pool is torn down or the process shuts down:
/// check, count, pause, remedy.
///
/// The first cycle begins at once, each later one after the check's delay. A healthy result resets
/// the count of failures. One that could not be evaluated is counted and has no remedy. After a
/// failure, the remedy runs after its own delay or, once the count has passed `maxErrors` (if that
/// is above 0), after ThrottlePauseSeconds instead, be that longer or shorter.
///
/// Deliberate: a negative check delay is a pause of more than a century, a negative remedy delay
/// none.
///
/// Returns at once when there is no such job, or one that has no workers yet and is about to be
/// started anew. Works from copies of the job's values, so a load may replace the job meanwhile.
/// Logs "Exception in ProcessJob for job:" and returns when anything throws. Never throws. Called
/// on the job's first worker.
void ProcessJob(const std::string& name);

}  // namespace kennly
