#include "status/Snapshot.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>

#include "main/Paths.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

std::string RecordDirectory() {
    return std::string(ConfigDirectoryPath) + "/filetimes";
}

// What one worker has started looks as if any other of the tree had.
void Add(const std::vector<RunningCommand>& more, std::vector<RunningCommand>& commands) {
    std::copy_if(
        more.begin(), more.end(), std::back_inserter(commands), [&](const RunningCommand& command) {
            return std::none_of(commands.begin(), commands.end(), [&](const RunningCommand& other) {
                return other.number == command.number;
            });
        });
}

TreeView LookAt(bool watcher, const std::vector<DaemonProcess>& processes) {
    TreeView view;
    view.tree = LookAtTree(watcher, processes);
    RunningCommands running;
    for (const DaemonProcess& worker : view.tree.workers) {
        const RunningCommands more = FindRunningCommands(worker, view.tree.config.jobs);
        running.checks.insert(running.checks.end(), more.checks.begin(), more.checks.end());
        running.remediesKnown = running.remediesKnown && more.remediesKnown;
        Add(more.remedies, running.remedies);
    }
    view.jobs =
        LookAtJobs(view.tree.config.jobs, running, RecordDirectory(), view.tree.startDirectory);
    std::copy_if(running.checks.begin(), running.checks.end(), std::back_inserter(view.strangers),
                 [](const RunningCommand& command) { return command.jobs.empty(); });
    return view;
}

void FindOrphanRecords(Snapshot& snapshot) {
    std::set<std::string> names;
    for (const TreeView* view : {&snapshot.main, &snapshot.watcher}) {
        const ConfigState& config = view->tree.config;
        if (config.hidden || (config.exists && !config.loads)) {
            snapshot.recordsHidden = true;  // nobody knows its jobs
            return;
        }
        for (const JobState& state : view->jobs) {
            if (state.job->check->type == CheckTypeFileChange) {
                names.insert(state.job->name);
            }
        }
    }
    std::vector<std::string>& orphans = snapshot.orphanRecords;
    std::error_code error;
    std::filesystem::directory_iterator entry(RecordDirectory(), error);
    snapshot.recordsHidden = error == std::errc::permission_denied;
    for (const std::filesystem::directory_iterator end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (names.count(name) == 0) {
            orphans.push_back(name);
        }
    }
    std::sort(orphans.begin(), orphans.end());
}

}  // namespace

Snapshot TakeSnapshot() {
    Snapshot snapshot;
    snapshot.processes = FindDaemonProcesses();
    snapshot.main = LookAt(false, snapshot.processes);
    snapshot.watcher = LookAt(true, snapshot.processes);
    FindOrphanRecords(snapshot);
    snapshot.processesHidden = AreProcessesHidden();
    snapshot.detailsHidden = std::any_of(
        snapshot.processes.begin(), snapshot.processes.end(),
        [](const DaemonProcess& process) { return !process.hasEnded && process.program.empty(); });
    return snapshot;
}

}  // namespace kennly
