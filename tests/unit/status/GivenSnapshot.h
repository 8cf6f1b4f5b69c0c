#pragma once

#include <string>
#include <vector>

#include "action/DogAction.h"
#include "ctl/StatusView.h"
#include "status/Snapshot.h"
#include "watch/DogWatch.h"

namespace kennly::test {

// Snapshots that a test makes up.

inline JobState GivenJob(const std::string& name, const std::string& command = "probe",
                         std::int32_t type = CheckTypeCommandResult) {
    JobState state;
    state.job = NewJob();
    state.job->name = name;
    state.job->check = new DogWatch;
    state.job->check->type = type;
    state.job->check->delay = 30;
    state.job->check->params = {command};
    state.job->remedy = new DogAction;
    state.job->remedy->delay = 5;
    state.check = NameOfCheckType(type);
    state.subject = command;
    return state;
}

inline HeartbeatFile Beat(const std::string& path, double age) {
    HeartbeatFile beat;
    beat.path = path;
    beat.exists = true;
    beat.age = age;
    return beat;
}

inline DaemonProcess Running(pid_t number, DaemonProcess::Role role, pid_t parent = 1) {
    DaemonProcess process;
    process.number = number;
    process.role = role;
    process.parent = parent;
    process.threads = role == DaemonProcess::Role::Parent ? 1 : 4;
    process.program = "/usr/sbin/kennly";
    process.directory = "/srv";
    return process;
}

/// A tree that does what it should.
inline TreeView HealthyTree(bool isWatcher, const std::vector<JobState>& jobs) {
    const pid_t first = isWatcher ? 31 : 11;
    TreeView view;
    view.tree.isWatcher = isWatcher;
    view.tree.parents = {Running(first, DaemonProcess::Role::Parent)};
    view.tree.workers = {Running(first + 1, DaemonProcess::Role::Child, first)};
    view.tree.parentBeat = Beat(isWatcher ? "watcherparent" : "parent", 0.5);
    view.tree.workerBeat = Beat(isWatcher ? "watcherchild" : "child", 1.5);
    view.tree.startDirectory = "/srv";
    ConfigState& config = view.tree.config;
    config.path = isWatcher ? "dogdog.xml" : "kennly.xml";
    config.exists = config.readable = config.loads = true;
    config.newerThanLoaded = false;
    view.jobs = jobs;
    for (const JobState& state : jobs) {
        config.jobs.push_back(state.job);
    }
    view.tree.workers[0].threads = config.Threads();
    return view;
}

inline TreeView NoTree(bool isWatcher) {
    TreeView view;
    view.tree.isWatcher = isWatcher;
    view.tree.config.path = isWatcher ? "dogdog.xml" : "kennly.xml";
    view.tree.parentBeat.path = isWatcher ? "watcherparent" : "parent";
    view.tree.workerBeat.path = isWatcher ? "watcherchild" : "child";
    return view;
}

/// A main tree with one job, "web", and no watcher tree.
inline Snapshot Healthy() {
    Snapshot snapshot;
    snapshot.main = HealthyTree(false, {GivenJob("web")});
    snapshot.watcher = NoTree(true);
    return snapshot;
}
inline Snapshot HealthyBoth() {
    Snapshot snapshot = Healthy();
    snapshot.watcher = HealthyTree(true, {GivenJob("beats")});
    return snapshot;
}

/// What is shown of a snapshot, with what is wrong in it.
inline StatusView ViewOf(const Snapshot& snapshot, bool watcherExpected = false) {
    return {snapshot, FindProblems(snapshot, watcherExpected), watcherExpected};
}

}  // namespace kennly::test
