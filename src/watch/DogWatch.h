#pragma once

#include <cstdint>
#include <list>
#include <string>

namespace kennly {

/// The codes of the check types.
inline constexpr std::int32_t CheckTypeUnknown = 0;
inline constexpr std::int32_t CheckTypeCommandResult = 1;
inline constexpr std::int32_t CheckTypeFileChange = 2;
inline constexpr std::int32_t CheckTypeNoFileChange = 3;
inline constexpr std::int32_t CheckTypeSocketListening = 4;
inline constexpr std::int32_t CheckTypeListeningSocketResponse = 5;

/// A check: what every kind of check has, and the kind that never reaches a verdict.
///
/// Threads: filled by the main thread while it loads the configuration; afterwards evaluated by one
/// worker at a time, so that checks hold no locks.
/// Ownership: owned by its job, which destroys it after the remedy.
class DogWatch {
public:
    DogWatch() = default;
    virtual ~DogWatch() = default;
    DogWatch(const DogWatch&) = delete;
    DogWatch& operator=(const DogWatch&) = delete;

    /// Evaluates the check once and returns ResultHealthy, ResultFailed or ResultNotEvaluated. This
    /// one always returns ResultNotEvaluated and does nothing else.
    virtual std::int32_t DoWatch();

    std::string jobName;            // the owning job, named in every log line
    std::int32_t type = 0;          // the code that CreateWatch was given
    std::int32_t delay = 0;         // seconds between two evaluations; for the job cycle
    std::list<std::string> params;  // in document order; each kind takes them by position
    bool firstCall = true;          // no evaluation has seen the watched file yet
};

}  // namespace kennly
