#pragma once

#include <string>

#include "ctl/Output.h"

namespace kennly {

struct TestOptions {
    std::string job;
    bool watcher = false;  // look for it in the watcher tree's configuration alone
    bool remedy = false;   // the remedy instead of the check
    bool dryRun = false;   // only say what would be run
};

/// Runs the check of a job once, as the daemon would, and says what came of it; or its remedy.
///
/// Changes nothing of the daemon's. Returns ExitClean when the check passes or the remedy was
/// started, ExitFindings when it fails or has no verdict, or the remedy would not run; ExitNoInput
/// without such a job; ExitSystem when no shell could be started; 130 when the
/// user has interrupted it. Main thread only.
int RunTestVerb(const TestOptions& options, const Output& output);

}  // namespace kennly
