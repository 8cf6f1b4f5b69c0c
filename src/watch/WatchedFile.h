#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>

namespace kennly {

/// The evaluation that the checks of a file's modification time have in common: looks at the file
/// that the first of `params` names, and has `judge` turn its time (seconds since the epoch) into a
/// result, which is returned.
///
/// Without a call of `judge`, returns ResultNotEvaluated when there are not exactly `paramCount`
/// parameters or the path is empty, and ResultHealthy when the file cannot be examined. Whatever
/// throws ends in ResultNotEvaluated. Logs nothing. Any thread.
std::int32_t JudgeWatchedFile(const std::list<std::string>& params, std::size_t paramCount,
                              const std::function<std::int32_t(std::int32_t)>& judge) noexcept;

}  // namespace kennly
