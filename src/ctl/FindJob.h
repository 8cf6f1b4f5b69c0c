#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/ExitStatus.h"
#include "ctl/Output.h"
#include "job/DogJob.h"

namespace kennly {

/// A job of a live configuration.
struct FoundJob {
    JobHandle job;
    bool isWatcher = false;  // of the watcher tree's configuration
    /// Where its relative paths count from; nothing when that is not known.
    std::optional<std::string> startDirectory;
};

/// The jobs of live configurations.
struct LiveJobs {
    std::vector<FoundJob> jobs;
    std::vector<std::string> unknown;  // why a configuration's jobs are not among them; one each
    int status = ExitClean;            // ExitNoInput or ExitLoadFails when there are such
};

/// Those of both trees, or of the watcher tree alone. A configuration that is missing has none.
/// One thread at a time.
LiveJobs FindLiveJobs(bool watcherOnly);

/// The job of that name, that of the main tree first. Null, with a sentence on `output.err`, when
/// there is none. One thread at a time.
FoundJob FindJobOrTell(const std::string& name, bool watcherOnly, const Output& output);

}  // namespace kennly
