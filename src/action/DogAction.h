#pragma once

#include <cstdint>
#include <list>
#include <string>

namespace kennly {

/// The codes of the remedy types.
inline constexpr std::int32_t RemedyTypeUnknown = 0;
inline constexpr std::int32_t RemedyTypeExecute = 1;
inline constexpr std::int32_t RemedyTypeExecuteAlways = 2;

/// A remedy: what every kind of remedy has, and the kind that never does anything.
///
/// Threads: filled by the main thread while it loads the configuration; afterwards run by one
/// worker at a time. Ownership: owned by its job, which destroys it before the check.
class DogAction {
public:
    DogAction() = default;
    virtual ~DogAction() = default;
    DogAction(const DogAction&) = delete;
    DogAction& operator=(const DogAction&) = delete;

    /// Runs the remedy once and returns ResultHealthy, ResultFailed or ResultNotEvaluated. This one
    /// always returns ResultNotEvaluated and does nothing else.
    virtual std::int32_t DoAction();

    std::string jobName;    // the owning job, named in log lines
    std::int32_t type = 0;  // the code that CreateAction was given
    // Paths of files each of which holds the remedy back while it exists; empty ones are skipped.
    std::string blockAction;
    std::string blockAction2;
    std::string blockAction3;
    std::int32_t delay = 10;        // seconds before the remedy; for the job cycle
    std::list<std::string> params;  // in document order
};

}  // namespace kennly
