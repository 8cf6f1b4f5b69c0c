#include "status/TreeState.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "lint/DaemonVerdict.h"
#include "main/Paths.h"
#include "status/ProcFile.h"

namespace kennly {

namespace {

ConfigState LookAtConfig(const std::string& path) {
    ConfigState config;
    config.path = path;
    struct stat status = {};
    config.exists = stat(path.c_str(), &status) == 0;
    config.hidden = !config.exists && errno == EACCES;
    config.changed = status.st_mtime;
    config.readable = config.exists && access(path.c_str(), R_OK) == 0;
    if (config.readable) {
        const DaemonVerdict verdict = AskDaemon(path);
        config.loads = verdict.outcome == DaemonVerdict::Outcome::Loads;
        config.reason = verdict.reason;
        config.jobs = verdict.jobs;
    }
    return config;
}

double Age(const timespec& moment) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr double nanosecondsPerSecond = 1e9;
    return static_cast<double>(now.tv_sec - moment.tv_sec) +
           static_cast<double>(now.tv_nsec - moment.tv_nsec) / nanosecondsPerSecond;
}

// How long ago the file has last been changed in any way, or the link to it.
std::optional<double> SecondsSinceChange(const std::string& path) {
    struct stat file = {};
    struct stat link = {};
    if (stat(path.c_str(), &file) != 0 || lstat(path.c_str(), &link) != 0) {
        return std::nullopt;
    }
    return std::min(Age(file.st_ctim), Age(link.st_ctim));
}

// How long the jobs of a worker have been running: all its threads but the first are theirs.
std::optional<double> SecondsOfJobs(pid_t worker) {
    std::optional<double> longest;
    for (const pid_t thread : ThreadsOf(worker)) {
        const auto stat = thread == worker ? std::nullopt : ReadThreadStat(worker, thread);
        if (stat) {
            longest = std::max(longest.value_or(0), SecondsSince(stat->startTicks));
        }
    }
    return longest;
}

std::optional<bool> IsNewerThanLoaded(const std::string& path,
                                      const std::vector<DaemonProcess>& workers) {
    constexpr double tolerance = 0.05;  // times of files and threads are rounded to hundredths
    std::optional<bool> newer;
    for (const DaemonProcess& worker : workers) {
        const std::optional<double> jobs = SecondsOfJobs(worker.number);
        const std::optional<double> file = SecondsSinceChange(path);
        if (jobs && file) {
            newer = newer.value_or(false) || *jobs - *file > tolerance;
        }
    }
    return newer;
}

}  // namespace

std::optional<std::string> StartDirectoryOf(bool watcher,
                                            const std::vector<DaemonProcess>& processes) {
    std::set<std::string> directories;
    for (const DaemonProcess& process : processes) {
        if (process.RunsJobs(watcher)) {
            directories.insert(process.directory);
        }
    }
    if (directories.size() != 1 || directories.begin()->empty()) {
        return std::nullopt;
    }
    return *directories.begin();
}

TreeState LookAtTree(bool watcher, const std::vector<DaemonProcess>& processes) {
    TreeState tree;
    tree.isWatcher = watcher;
    for (const DaemonProcess& process : processes) {
        if (process.isWatcher != watcher) {
            continue;
        }
        if (process.hasEnded) {
            tree.ended.push_back(process);
        } else if (process.role == DaemonProcess::Role::Parent) {
            tree.parents.push_back(process);
        } else {
            tree.workers.push_back(process);
        }
    }
    tree.parentBeat = LookAtHeartbeat(watcher ? WatcherParentHeartbeatPath : ParentHeartbeatPath);
    tree.workerBeat = LookAtHeartbeat(watcher ? WatcherChildHeartbeatPath : ChildHeartbeatPath);
    tree.config = LookAtConfig(watcher ? WatcherConfigPath : MainConfigPath);
    tree.config.secondsSinceChange = SecondsSinceChange(tree.config.path);
    tree.config.newerThanLoaded = IsNewerThanLoaded(tree.config.path, tree.workers);
    tree.startDirectory = StartDirectoryOf(watcher, processes);
    if (!tree.workers.empty()) {
        tree.pausing = ThreadsInPause(tree.workers.front().number);
    }
    return tree;
}

}  // namespace kennly
