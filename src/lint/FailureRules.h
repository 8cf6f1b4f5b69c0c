#pragma once

#include <string>

#include "lint/DaemonVerdict.h"
#include "lint/Finding.h"

namespace kennly {

/// Adds the one error that says why the daemon does not load the file at `path`, by a `verdict`
/// that is not Loads: where, as well as anybody knows, and what to do.
/// One thread at a time for the same findings.
void ExplainFailure(const std::string& path, const DaemonVerdict& verdict, Findings& findings);

}  // namespace kennly
