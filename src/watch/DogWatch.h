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
/// worker at a time, so that checks hold no locks. Only Remember may come from another thread.
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

    /// Stores what this check must still know after a reload or a restart; here, nothing.
    ///
    /// The main thread calls it when the configuration gives the job up while a worker holds it:
    /// the process may end before that worker destroys the check. May be called during an
    /// evaluation.
    virtual void Remember() noexcept {}

    std::string jobName;            // the owning job, named in every log line
    std::int32_t type = 0;          // the code that CreateWatch was given
    std::int32_t delay = 0;         // seconds between two evaluations; for the job cycle
    std::list<std::string> params;  // in document order; each kind takes them by position
    bool firstCall = true;  // DogCheckForFileChangeWatch alone clears it: it has seen its file
};

}  // namespace kennly
