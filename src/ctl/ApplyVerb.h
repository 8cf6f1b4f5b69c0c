#pragma once

#include <string>

#include "ctl/Output.h"

namespace kennly {

struct ApplyOptions {
    std::string file;
    bool watcher = false;
    int waitSeconds = 60;  // for the daemon to take it up
};

/// Puts a configuration in the place of the live one, and waits until the daemon has taken it up.
/// The live file itself may be named: it gets a new time, and is loaded again.
///
/// A file with errors is refused, and the live one stays. Returns ExitClean when it is in force, or
/// in its place while no daemon runs; ExitFindings when it is refused, or is in its place and the
/// daemon has not taken it up in time, or another file has replaced it meanwhile; ExitLoadFails,
/// ExitNoInput, ExitCannotCreate. Main thread only.
int RunApplyVerb(const ApplyOptions& options, const Output& output);

}  // namespace kennly
