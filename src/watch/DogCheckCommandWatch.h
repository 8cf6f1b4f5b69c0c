#pragma once

#include <cstdint>
#include <string>

#include "watch/DogWatch.h"

namespace kennly {

/// The check that runs a shell command and judges its exit status. It takes one parameter, the
/// command, which reaches the shell as it stands.
///
/// Threads and ownership: as DogWatch. The evaluating thread is blocked until the command has
/// ended; there is no time limit.
class DogCheckCommandWatch : public DogWatch {
public:
    /// Runs the command, its standard output and error discarded.
    ///
    /// With `anyNonZeroFails` every exit status but 0 is a failure, without it only
    /// `runActionResult` is. Deliberate: a shell ended by a signal counts as exit status 0, a
    /// command that cannot be found or run as the shell's 127 or 126. A shell that cannot be
    /// started at all is 127 as well.
    ///
    /// Returns ResultNotEvaluated with one logged line when there is not exactly one parameter,
    /// when that is empty, when system() itself fails (the exit status was lost) and when anything
    /// throws.
    std::int32_t DoWatch() override;

    /// What the shell is given for `command`.
    static std::string CommandLineOf(const std::string& command);

    /// ResultHealthy or ResultFailed, for an exit status of the command.
    std::int32_t Judge(std::int32_t exitStatus) const;

    bool anyNonZeroFails = true;
    std::int32_t runActionResult = 0;  // not looked at while anyNonZeroFails is set

private:
    std::int32_t Evaluate() const;
    void LogSystemFailure(const std::string& commandLine, int error) const;
};

}  // namespace kennly
