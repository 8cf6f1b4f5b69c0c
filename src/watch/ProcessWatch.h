#pragma once

#include <cstdint>
#include <string>

namespace kennly {

/// Evaluates the check of the job with this name once and returns its result.
///
/// Returns ResultNotEvaluated without a word when the pool is being torn down, the process shuts
/// down, there is no such job or it has no check or no workers, and after "Exception while
/// processing check for job:" when anything threw. Never throws. Called on the job's check worker;
/// keeps the job alive for this one evaluation.
std::int32_t ProcessWatch(const std::string& jobName);

}  // namespace kennly
