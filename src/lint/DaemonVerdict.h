#pragma once

#include <string>
#include <vector>

#include "job/DogJob.h"
#include "lint/LogRecorder.h"

namespace kennly {

/// What becomes of a configuration file when the daemon starts with it.
struct DaemonVerdict {
    enum class Outcome {
        Loads,
        Fails,          // no job runs until it is mended
        CannotExamine,  // missing, or in a directory that may not be searched; logs nothing
        NeverRead,      // its modification time is the one that stands for "none"; logs nothing
    };

    Outcome outcome = Outcome::Fails;
    std::string reason;             // why it fails, as in the log; empty for other outcomes
    std::vector<DaemonLine> lines;  // of the first cycle, in order
    std::vector<JobHandle> jobs;    // those that would run, in the order of the file
    bool endsDaemon = false;        // the daemon ends after this very load
};

/// The longest path that the daemon's loader takes, in bytes.
inline constexpr std::size_t LongestConfigPath = 511;

/// Has the daemon's own loader load the file at `path`, which is not longer than LongestConfigPath.
/// Nothing on the machine is changed. One thread at a time; throws std::bad_alloc.
DaemonVerdict AskDaemon(const std::string& path);

}  // namespace kennly
