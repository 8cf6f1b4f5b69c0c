#pragma once

#include <optional>
#include <string>
#include <vector>

#include "status/JobState.h"
#include "status/TreeState.h"

namespace kennly {

/// A tree with its jobs.
struct TreeView {
    TreeState tree;
    std::vector<JobState> jobs;
    std::vector<RunningCommand> strangers;  // children of the worker that are of no known job
};

/// All that can be seen of the daemon at one moment.
struct Snapshot {
    TreeView main;
    TreeView watcher;
    std::vector<DaemonProcess> processes;
    std::vector<std::string> orphanRecords;  // of no job that would run
    bool recordsHidden = false;              // this process cannot know those
    bool processesHidden = false;            // this process may not see those of others
    bool detailsHidden = false;              // or not the details of the daemon's

    /// Whether the tree runs; nothing when it may do so unseen.
    std::optional<bool> Runs(const TreeView& view) const {
        const bool isSeen = view.tree.Runs();
        return isSeen || !processesHidden ? std::optional(isSeen) : std::nullopt;
    }
    const TreeView& Tree(bool isWatcher) const { return isWatcher ? watcher : main; }
};

/// Looks at everything once. One thread at a time; throws std::bad_alloc.
Snapshot TakeSnapshot();

}  // namespace kennly
