#include "ctl/StatusJson.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "status/ProcFile.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

template <class Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json Of(const DaemonProcess& process) {
    const bool knowsProgram = !process.program.empty();
    return {{"pid", process.number},
            {"role", NameOf(process.role)},
            {"parent", process.parent},
            {"seconds", SecondsSince(process.startTicks)},
            {"threads", process.threads},
            {"program", knowsProgram ? Json(process.program) : Json()},
            {"program_replaced", knowsProgram ? Json(process.programReplaced) : Json()},
            {"directory", process.directory.empty() ? Json() : Json(process.directory)}};
}

Json Of(const HeartbeatFile& beat) {
    return {{"path", beat.path},
            {"exists", beat.hidden ? Json() : Json(beat.exists)},
            {"age", beat.exists ? Json(beat.age) : Json()},
            {"stale", beat.exists ? Json(!beat.IsFresh()) : Json()}};
}

Json Of(const ConfigState& config) {
    const bool isKnown = config.readable;
    return {{"path", config.path},
            {"exists", config.hidden ? Json() : Json(config.exists)},
            {"loads", isKnown ? Json(config.loads) : Json()},
            {"reason", isKnown && !config.loads ? Json(config.reason) : Json()},
            {"changed", config.exists ? Json(config.changed) : Json()},
            {"jobs", isKnown ? Json(config.jobs.size()) : Json()},
            {"newer_than_loaded", OrNull(config.newerThanLoaded)}};
}

Json Of(const RunningCommand& command) {
    return {{"pid", command.number},
            {"seconds", command.seconds},
            {"command", command.text},
            {"jobs", command.jobs}};
}

Json Of(const JobState& state);
Json Of(const Problem& problem);

template <class List>
Json ListOf(const List& items) {
    Json list = Json::array();
    std::transform(items.begin(), items.end(), std::back_inserter(list),
                   [](const auto& item) { return Of(item); });
    return list;
}

Json IsBlocked(const JobState& state) {
    if (!state.blockFiles.empty()) {
        return true;
    }
    return state.unknownBlockFiles.empty() ? Json(false) : Json();
}

Json Of(const JobState& state) {
    return {{"name", state.job->name},
            {"check", state.check},
            {"subject", state.subject},
            {"delay", state.job->check->delay},
            {"running", ListOf(state.checks)},
            {"remedies_probably_running", state.remediesKnown ? ListOf(state.remedies) : Json()},
            {"blocked", IsBlocked(state)},
            {"blocked_by", state.blockFiles},
            {"perhaps_blocked_by", state.unknownBlockFiles},
            {"file", OrNull(state.file)},
            {"has_record", state.recordKnown ? Json(state.recorded.has_value()) : Json()},
            {"recorded_time", OrNull(state.recorded)}};
}

Json JobsOf(const TreeView& view, bool processesKnown) {
    Json jobs = ListOf(view.jobs);
    for (Json& job : jobs) {
        if (!processesKnown) {
            job["running"] = job["remedies_probably_running"] = Json();
        }
    }
    return jobs;
}

Json Of(const TreeView& view, std::optional<bool> runs) {
    const TreeState& tree = view.tree;
    std::vector<DaemonProcess> processes = tree.parents;
    processes.insert(processes.end(), tree.workers.begin(), tree.workers.end());
    return {{"runs", OrNull(runs)},
            {"processes", runs ? ListOf(processes) : Json()},
            {"start_directory", OrNull(tree.startDirectory)},
            {"parent_heartbeat", Of(tree.parentBeat)},
            {"child_heartbeat", Of(tree.workerBeat)},
            {"configuration", Of(tree.config)},
            {"jobs", JobsOf(view, runs.has_value())},
            {"running_of_no_known_job", runs ? ListOf(view.strangers) : Json()}};
}

Json Of(const Problem& problem) {
    return {{"level", NameOf(problem.level)}, {"code", problem.code}, {"text", problem.text}};
}

}  // namespace

Json AsJson(const StatusView& view) {
    const Snapshot& snapshot = view.snapshot;
    return {{"main", Of(snapshot.main, snapshot.Runs(snapshot.main))},
            {"watcher", Of(snapshot.watcher, snapshot.Runs(snapshot.watcher))},
            {"orphan_records", snapshot.recordsHidden ? Json() : Json(snapshot.orphanRecords)},
            {"processes_hidden", snapshot.processesHidden},
            {"details_hidden", snapshot.detailsHidden},
            {"problems", ListOf(view.problems)}};
}

}  // namespace kennly
