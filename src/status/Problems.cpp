#include "status/Problems.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "action/DogAction.h"
#include "job/ProcessJob.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

using Level = Problem::Level;

std::string InSeconds(double seconds) {
    return std::to_string(std::llround(std::max(seconds, 0.0))) + " s";
}

std::string Numbers(const std::vector<DaemonProcess>& processes) {
    std::string text;
    for (const DaemonProcess& process : processes) {
        text.append(text.empty() ? "" : ", ").append(std::to_string(process.number));
    }
    return text;
}

std::string Alternatives(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text.append(text.empty() ? "" : " or ").append(name);
    }
    return text;
}

class TreeProblems {
public:
    TreeProblems(const Snapshot& snapshot, bool isWatcher, bool isExpected,
                 std::vector<Problem>& problems)
        : view_(snapshot.Tree(isWatcher)),
          tree_(view_.tree),
          runs_(snapshot.Runs(snapshot.Tree(isWatcher))),
          isExpected_(isExpected),
          problems_(problems) {}

    void Find() const {
        if (!runs_) {
            return;  // what there is cannot be judged
        }
        if (!*runs_) {
            Absence();
            return;
        }
        Duplicates();
        Parents();
        Workers();
        Programs();
        Beats();
        Configuration();
        Checks();
    }

private:
    void Report(Level level, const char* code, const std::string& text) const {
        problems_.push_back({level, code, std::string(tree_.Name()) + ": " + text});
    }

    void Absence() const {
        if (isExpected_) {
            Report(Level::Critical, "not-running",
                   "no process runs, and nobody looks after the jobs: start it with kennlyctl "
                   "start, or by its service");
            ConfigurationFile();
        } else if (tree_.config.exists) {
            Report(Level::Note, "not-running",
                   "no process runs, though there is a configuration for it");
        }
        LeftOver(tree_.parentBeat);
        LeftOver(tree_.workerBeat);
    }

    void LeftOver(const HeartbeatFile& beat) const {
        if (beat.exists) {
            Report(Level::Note, "heartbeat-left-over",
                   beat.path + " is left over, " + InSeconds(beat.age) +
                       " old: a check of its age fails for ever");
        }
    }

    void Duplicates() const {
        const std::size_t trees = std::max(tree_.parents.size(), tree_.workers.size());
        if (trees <= 1) {
            return;
        }
        const auto& those = tree_.parents.size() > 1 ? tree_.parents : tree_.workers;
        if (std::any_of(those.begin(), those.end(),
                        [](const DaemonProcess& process) { return !process.dataKnown; })) {
            Report(Level::Warning, "second-tree",
                   "seems to run more than once (" + Numbers(those) +
                       "), but this user cannot see whether each runs the same jobs");
            return;
        }
        Report(Level::Critical, "second-tree",
               "runs more than once (" + Numbers(those) +
                   "), and each runs all jobs: end the ones that are too many with SIGTERM");
    }

    bool HasChild(const DaemonProcess& parent) const {
        return std::any_of(
            tree_.workers.begin(), tree_.workers.end(),
            [&](const DaemonProcess& worker) { return worker.parent == parent.number; });
    }
    bool HasParent(const DaemonProcess& worker) const {
        return std::any_of(
            tree_.parents.begin(), tree_.parents.end(),
            [&](const DaemonProcess& parent) { return worker.parent == parent.number; });
    }

    void Parents() const {
        for (const DaemonProcess& parent : tree_.parents) {
            if (!HasChild(parent)) {
                Report(Level::Critical, "child-dead",
                       "the parent " + std::to_string(parent.number) +
                           " lives without a child, and starts no other: no job runs; end it with "
                           "SIGTERM and start the tree again");
            }
        }
    }

    void Workers() const {
        for (const DaemonProcess& worker : tree_.workers) {
            if (worker.role == DaemonProcess::Role::Child && !HasParent(worker)) {
                Report(Level::Critical, "orphan",
                       "the child " + std::to_string(worker.number) +
                           " has lost its parent and is about to end: start the tree again");
            }
        }
    }

    void Programs() const {
        for (const auto* const processes : {&tree_.parents, &tree_.workers}) {
            for (const DaemonProcess& process : *processes) {
                if (process.programReplaced) {
                    Report(Level::Warning, "program-replaced",
                           "process " + std::to_string(process.number) + " still runs the " +
                               process.program +
                               " that was there when it started: restart the tree");
                }
            }
        }
    }

    void Beats() const {
        if (tree_.parents.empty()) {
            LeftOver(tree_.parentBeat);
        } else {
            Beat(tree_.parentBeat, "parent-hangs",
                 "the parent hangs, and an end of its child would go unnoticed");
        }
        if (tree_.workers.empty()) {
            LeftOver(tree_.workerBeat);
        } else {
            Beat(tree_.workerBeat, "reload-hangs", "the process " + WhatItWaitsFor());
        }
    }

    // Each once, though it may be of several jobs that have the same command.
    std::vector<RunningCommand> RunningChecks() const {
        std::vector<RunningCommand> checks;
        for (const JobState& job : view_.jobs) {
            std::copy_if(job.checks.begin(), job.checks.end(), std::back_inserter(checks),
                         [&](const RunningCommand& check) {
                             return std::none_of(checks.begin(), checks.end(),
                                                 [&](const RunningCommand& other) {
                                                     return other.number == check.number;
                                                 });
                         });
        }
        return checks;
    }

    // A reload waits for both. Which of them holds it up, or whether anything else does, nobody can
    // tell from outside.
    std::string WhatItWaitsFor() const {
        const std::size_t checks = view_.strangers.size() + RunningChecks().size();
        return "waits for running checks and pauses, as in a reload, or hangs; " +
               std::to_string(checks) +
               (checks == 1 ? " command runs, and " : " commands run, and ") +
               (tree_.pausing ? std::to_string(*tree_.pausing) : "an unknown number") +
               " of its threads pause" + LongestPause();
    }

    std::string LongestPause() const {
        if (tree_.config.newerThanLoaded.value_or(true) || !tree_.config.loads) {
            return "";  // the jobs that run are not those of the file
        }
        unsigned longest = 0;
        for (const JobHandle& job : tree_.config.jobs) {
            // The delay of a check is taken as it stands: below 0 it is more than a century.
            longest = std::max({longest, static_cast<unsigned>(job->check->delay),
                                static_cast<unsigned>(std::max(job->remedy->delay, 0))});
            if (job->maxErrors > 0) {
                longest = std::max(longest, ThrottlePauseSeconds);
            }
        }
        return ", for up to " + std::to_string(longest) + " s";
    }

    void Beat(const HeartbeatFile& beat, const char* code, const std::string& meaning) const {
        if (beat.hidden) {
            return;
        }
        if (!beat.exists) {
            Report(Level::Warning, "heartbeat-missing",
                   beat.path + " is not there, though its process runs: is its directory missing?");
        } else if (beat.age < -StaleSeconds) {
            Report(Level::Critical, code,
                   "the last heartbeat is " + InSeconds(-beat.age) +
                       " in the future, and no other has come since the clock was set back: " +
                       meaning);
        } else if (!beat.IsFresh()) {
            Report(Level::Critical, code,
                   "no heartbeat for " + InSeconds(beat.age) + ": " + meaning);
        }
    }

    void Configuration() const {
        if (ConfigurationFile()) {
            Threads();
        }
    }

    bool RunsJobs() const {
        return std::any_of(tree_.workers.begin(), tree_.workers.end(),
                           [](const DaemonProcess& worker) { return worker.threads > 1; });
    }

    // Returns whether it is known what would be loaded.
    bool ConfigurationFile() const {
        const ConfigState& config = tree_.config;
        if (config.hidden) {
            return false;
        }
        if (!config.exists) {
            Report(Level::Critical, "config-missing",
                   config.path + " is missing: the daemon ends when it stays so");
        } else if (config.readable && !config.loads) {
            Report(Level::Critical, "config-fails",
                   config.path + " does not load (" + config.reason + "), and " +
                       (RunsJobs() ? "only the jobs of an earlier file run" : "no job runs") +
                       ": kennlyctl check says where");
        }
        return config.readable && config.loads;
    }

    // While a heartbeat is missing, threads come and go. A file that has just been changed may not
    // have been looked at: the daemon pauses for five seconds after a load.
    void Threads() const {
        constexpr double longestUptakeSeconds = 8;
        if (tree_.config.secondsSinceChange.value_or(longestUptakeSeconds) < longestUptakeSeconds) {
            return;
        }
        const int expected = tree_.config.Threads();
        for (const DaemonProcess& worker : tree_.workers) {
            if (worker.threads != expected && tree_.workerBeat.IsFresh()) {
                Report(Level::Critical, worker.threads < expected ? "threads-lost" : "threads-many",
                       "process " + std::to_string(worker.number) + " has " +
                           std::to_string(worker.threads) +
                           (worker.threads == 1 ? " thread" : " threads") + " instead of " +
                           std::to_string(expected) + " for " +
                           std::to_string(tree_.config.jobs.size()) +
                           " jobs: some do not run, or the file has not been taken up; touch " +
                           tree_.config.path);
            }
        }
    }

    // No other job is checked until it ends.
    void Checks() const {
        constexpr double worthTelling = 300;
        for (const RunningCommand& command : RunningChecks()) {
            if (command.seconds >= worthTelling) {
                Report(Level::Warning, "check-hangs",
                       "the check of job " + Alternatives(command.jobs) + " has been running for " +
                           InSeconds(command.seconds) + ", and all jobs wait for it: process " +
                           std::to_string(command.number));
            }
        }
    }

    const TreeView& view_;
    const TreeState& tree_;
    const std::optional<bool> runs_;
    const bool isExpected_;
    std::vector<Problem>& problems_;
};

void FindBlocks(const TreeView& view, std::vector<Problem>& problems) {
    for (const JobState& state : view.jobs) {
        const std::string blocked = std::string(view.tree.Name()) + ": the remedy of job " +
                                    state.job->name + " is blocked by ";
        std::transform(state.blockFiles.begin(), state.blockFiles.end(),
                       std::back_inserter(problems), [&](const std::string& file) {
                           return Problem{Level::Note, "block-in-force", blocked + file};
                       });
    }
}

}  // namespace

const char* NameOf(Problem::Level level) {
    switch (level) {
        case Level::Critical:
            return "critical";
        case Level::Warning:
            return "warning";
        default:
            return "note";
    }
}

Problem::Level WorstOf(const std::vector<Problem>& problems) {
    Level worst = Level::Note;
    for (const Problem& problem : problems) {
        worst = std::max(worst, problem.level);
    }
    return worst;
}

std::vector<Problem> FindProblems(const Snapshot& snapshot, bool watcherExpected) {
    std::vector<Problem> problems;
    TreeProblems(snapshot, false, true, problems).Find();
    TreeProblems(snapshot, true, watcherExpected, problems).Find();
    FindBlocks(snapshot.main, problems);
    FindBlocks(snapshot.watcher, problems);
    std::transform(snapshot.orphanRecords.begin(), snapshot.orphanRecords.end(),
                   std::back_inserter(problems), [](const std::string& name) {
                       return Problem{
                           Level::Note, "orphan-record",
                           "the record filetimes/" + name + " is of no job that would run"};
                   });
    return problems;
}

std::vector<Problem> ThatLast(const std::vector<Problem>& before, const std::vector<Problem>& now) {
    std::vector<Problem> lasting;
    std::copy_if(now.begin(), now.end(), std::back_inserter(lasting), [&](const Problem& problem) {
        const std::string tree = problem.text.substr(0, problem.text.find(':'));
        return std::any_of(before.begin(), before.end(), [&](const Problem& earlier) {
            return earlier.code == problem.code && earlier.text.compare(0, tree.size(), tree) == 0;
        });
    });
    return lasting;
}

}  // namespace kennly
