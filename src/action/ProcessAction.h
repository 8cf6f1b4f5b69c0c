#pragma once

#include <cstdint>
#include <string>

namespace kennly {

/// Runs the remedy of the job with this name once and returns its result.
///
/// Returns ResultNotEvaluated without a word when the pool is being torn down, the process shuts
/// down or there is no such job, and after "Exception processing remedy for job" (deliberate: no
/// colon) when the remedy threw. Never throws. Called on the job's remedy worker; keeps the job
/// alive for this one run.
std::int32_t ProcessAction(const std::string& jobName);

}  // namespace kennly
