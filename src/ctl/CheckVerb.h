#pragma once

#include <optional>
#include <string>

#include "ctl/Output.h"

namespace kennly {

struct CheckOptions {
    std::optional<std::string> file;  // nothing: the live one of the tree
    std::string shownAs;              // by which name it is spoken of; empty: its own
    bool watcher = false;             // by the rules of the watcher tree
    bool json = false;
    bool strict = false;    // warnings count as findings
    bool asDaemon = false;  // only what the daemon would log
    bool quiet = false;     // neither notes nor a summary
};

/// Says what the daemon would make of a configuration file, and what it would not say.
///
/// Returns ExitClean, ExitFindings (errors; with `strict`, warnings too), ExitLoadFails, or
/// ExitNoInput when there is no such file or it cannot be read. Main thread only.
int RunCheckVerb(const CheckOptions& options, const Output& output);

}  // namespace kennly
