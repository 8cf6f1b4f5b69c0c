#pragma once

#include <string>

#include "lint/DaemonVerdict.h"
#include "lint/Finding.h"
#include "lint/Machine.h"

namespace kennly {

/// What is to be known of one configuration file.
struct LintReport {
    DaemonVerdict verdict;
    Findings findings;  // in the order of the file
};

/// Examines the configuration at `path` for the main tree or the watcher tree of `machine`.
///
/// First the daemon's own loader judges it; where that loads it, every rule looks for what the
/// loader accepts without a word. A file that does not load has one error that says why. The other
/// tree's configuration is read where it stands, for what the two must not share; one that is
/// missing or does not load is taken for one without jobs.
///
/// `path` is not longer than LongestConfigPath. One thread at a time; throws std::bad_alloc.
LintReport Lint(const std::string& path, bool watcher, const Machine& machine);

}  // namespace kennly
