#pragma once

#include "ctl/Output.h"

namespace kennly {

struct StatusOptions {
    enum class Format { People, Json, Plugin, Prometheus };

    Format format = Format::People;
    bool watcher = false;  // the watcher tree is to run as well
    bool repeat = false;   // for people: again each second, until interrupted
};

/// Shows what can be seen of the daemon: both trees, their jobs, and what is wrong.
///
/// What might be wrong for an instant only is looked at twice, a second apart. Returns ExitClean,
/// ExitFindings when something is wrong, ExitUnavailable when the main tree does not run,
/// ExitNoPermission when this user cannot see whether it does; for a plugin what PluginStatus says.
/// Prometheus gets ExitClean: what is wrong is in the numbers. Main thread only.
int RunStatusVerb(const StatusOptions& options, const Output& output);

}  // namespace kennly
