#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "job/DogJob.h"
#include "status/DaemonProcesses.h"

namespace kennly {

/// A command that runs at the moment.
struct RunningCommand {
    pid_t number = 0;
    double seconds = 0;             // since it was started
    std::string text;               // its command line, as far as the kernel tells
    std::vector<std::string> jobs;  // whose check or remedy it may be; none is known for others
};

/// What runs for the jobs of one worker.
struct RunningCommands {
    /// Children of the worker: each is the command of a check, or about to become a remedy.
    std::vector<RunningCommand> checks;
    /// What looks like remedies that the worker has started: they have lost their parent, ignore
    /// SIGHUP and write to nowhere, as nohup has it, and have the words of a remedy. A process that
    /// somebody has started in the same way looks the same.
    std::vector<RunningCommand> remedies;
    /// False when this process may not see where the worker's commands write to.
    bool remediesKnown = true;
};

/// What runs for `jobs`, those of the worker's configuration. Any thread may call it.
RunningCommands FindRunningCommands(const DaemonProcess& worker,
                                    const std::vector<JobHandle>& jobs);

}  // namespace kennly
