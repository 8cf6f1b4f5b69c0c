#pragma once

#include <cstdint>

namespace kennly {

/// The check passed; a remedy was started or deliberately held back.
inline constexpr std::int32_t ResultHealthy = 1;

/// The check failed; the shell that was to start a remedy reported a failure.
inline constexpr std::int32_t ResultFailed = 0;

/// The check could not be evaluated, or the remedy was not run.
inline constexpr std::int32_t ResultNotEvaluated = -1;

}  // namespace kennly
