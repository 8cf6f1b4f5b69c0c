#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "job/DogJob.h"
#include "status/RunningCommands.h"

namespace kennly {

/// A job of a configuration, and what can be seen of it from outside.
struct JobState {
    JobHandle job;
    std::string check;                     // "CheckCommandResult" and so on
    std::string subject;                   // the command, or the file's path; empty without one
    std::vector<RunningCommand> checks;    // that run now
    std::vector<RunningCommand> remedies;  // that seem to
    bool remediesKnown = true;             // this process may see which
    std::vector<std::string> blockFiles;   // that are there now, by their whole paths
    std::vector<std::string> unknownBlockFiles;  // that may be, as they are configured
    std::optional<std::string> file;       // that it watches, by its whole path where that is known
    std::optional<std::int32_t> recorded;  // the file's time on record, seconds since the epoch
    bool recordKnown = true;               // this process may see it, or that there is none
};

/// The jobs of a tree; `running` is what runs for them, `recordDirectory` where the records are,
/// `startDirectory` where relative paths count from, if that is known. Any thread may
/// call it.
std::vector<JobState> LookAtJobs(const std::vector<JobHandle>& jobs, const RunningCommands& running,
                                 const std::string& recordDirectory,
                                 const std::optional<std::string>& startDirectory);

/// The name of a check type, as in a configuration. Any thread may call it.
std::string NameOfCheckType(std::int32_t type);

/// Whether a check of that type watches a file. Any thread may call it.
bool WatchesFile(std::int32_t type);

/// The whole path of a file that a job names; nothing when it is relative and `startDirectory`,
/// where it counts from, is not known. Any thread may call it.
std::optional<std::string> WholePath(const std::string& path,
                                     const std::optional<std::string>& startDirectory);

/// The block files of a remedy as they are configured, in their order. Any thread may call it.
std::vector<std::string> BlockFilesOf(const DogAction& remedy);

/// Those of them that count at the moment. Any thread may look.
struct BlockFiles {
    std::vector<std::string> inForce;  // they are there; by their whole paths
    /// As they are configured: relative to nobody knows what, or where this process may not look.
    std::vector<std::string> unknown;
};
BlockFiles LookAtBlockFiles(const DogAction& remedy,
                            const std::optional<std::string>& startDirectory);

/// The time that the record at `path` holds, in its first 4 bytes; nothing, with errno set, when it
/// cannot be read or has fewer. Any thread may call it.
std::optional<std::int32_t> ReadRecord(const std::string& path);

}  // namespace kennly
