#pragma once

#include <cstdint>

#include "action/DogAction.h"

namespace kennly {

/// The remedy that starts a shell command in the background, immune to hang-up and with its output
/// discarded. It takes one parameter, the command. The command may outlive the daemon, which keeps
/// no record of it and never learns how it ended.
///
/// Threads and ownership: as DogAction.
class DogExecuteAction : public DogAction {
public:
    /// Starts the command, unless a block file exists.
    ///
    /// Returns ResultHealthy when the command was started or held back, ResultFailed when the shell
    /// reported a failure or could not be started, and ResultNotEvaluated when there is not exactly
    /// one parameter, when that is empty, when system() itself fails and when anything throws. None
    /// of these is logged. An "Execute" remedy announces itself with "check failed - running
    /// remedy:" before it starts.
    ///
    /// Deliberate: that announcement is all that tells "Execute" from "ExecuteAlways", which also
    /// runs after failed checks only.
    std::int32_t DoAction() override;

    /// What the shell is given for `command`.
    static std::string CommandLineOf(const std::string& command);

private:
    std::int32_t Start() const;
    bool IsBlocked() const;
};

}  // namespace kennly
