#pragma once

#include <cstdint>
#include <string>

namespace kennly {

/// Has the check of a job evaluated on the second of its three workers, of which `slotBase` is the
/// first, and waits for the result.
///
/// Returns the check's result code, ResultNotEvaluated also when a check of this job is still
/// pending, when there is no pool and when anything throws. When the process shuts down meanwhile,
/// returns what has been found so far. Waits until no job has a check pending. Never throws. Called
/// on the job's first worker.
std::int32_t RunCheck(std::int32_t slotBase, const std::string& name);

/// As RunCheck, for the remedy, on the third of the workers.
std::int32_t RunRemedy(std::int32_t slotBase, const std::string& name);

}  // namespace kennly
