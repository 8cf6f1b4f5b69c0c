#pragma once

#include "ctl/Output.h"

namespace kennly {

struct StopOptions {
    bool watcherOnly = false;
};

/// Ends the main tree and then the watcher tree, however many there are of each, and waits for the
/// ends: each parent gives its child ten seconds. Says what it has ended. What a unit of systemd
/// runs is left to systemd.
///
/// Returns ExitClean when nothing of what was asked for runs any more, ExitNoPermission when a
/// process is another user's, else ExitFindings. Main thread only.
int RunStopVerb(const StopOptions& options, const Output& output);

}  // namespace kennly
