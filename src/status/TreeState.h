#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "job/DogJob.h"
#include "status/DaemonProcesses.h"
#include "status/HeartbeatFile.h"

namespace kennly {

/// The configuration of a tree, as its file stands. What a running process has loaded is known only
/// as far as the file has not changed since.
struct ConfigState {
    std::string path;
    bool exists = false;
    bool hidden = false;    // nor can this process know whether it is there
    bool readable = false;  // by this process; without, nothing below is known
    bool loads = false;
    std::string reason;           // why it does not
    std::vector<JobHandle> jobs;  // that would run
    std::time_t changed = 0;      // its modification time
    /// How long ago, in seconds, the file or a link that leads to it has been changed in any way.
    std::optional<double> secondsSinceChange;
    /// Whether the file, or a link that leads to it, has been changed since the jobs of a running
    /// process were started, which each load does anew. Nothing when none runs or it has no jobs.
    /// As the kernel has it, by the clock: one that has been set meanwhile misleads.
    std::optional<bool> newerThanLoaded;

    /// The threads of a process that has taken it up: three a job, and its own.
    int Threads() const { return 3 * static_cast<int>(jobs.size()) + 1; }
};

/// One of the two trees. There may be more of it than there should be, and less.
struct TreeState {
    bool isWatcher = false;
    std::vector<DaemonProcess> parents;
    std::vector<DaemonProcess> workers;  // children, and processes in the foreground: they run jobs
    std::vector<DaemonProcess> ended;    // children that nobody has reaped
    HeartbeatFile parentBeat;
    HeartbeatFile workerBeat;
    std::optional<int> pausing;  // threads of the first worker's jobs that do; where that is known
    ConfigState config;

    /// Where relative paths of the jobs count from; nothing when that is not known.
    std::optional<std::string> startDirectory;

    bool Runs() const { return !parents.empty() || !workers.empty(); }
    const char* Name() const { return NameOfTree(isWatcher); }
};

/// The directory that the processes which run the jobs of a tree were started in; nothing when none
/// runs, when they are not of one mind, or when this process may not know.
std::optional<std::string> StartDirectoryOf(bool watcher,
                                            const std::vector<DaemonProcess>& processes);

/// Looks at the tree; `processes` are all of the daemon. One thread at a time.
TreeState LookAtTree(bool watcher, const std::vector<DaemonProcess>& processes);

}  // namespace kennly
