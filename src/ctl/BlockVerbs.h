#pragma once

#include <string>

#include "ctl/Output.h"

namespace kennly {

struct BlockOptions {
    std::string job;
    bool watcher = false;  // look for it in the watcher tree's configuration alone
    std::string reason;    // for people, in the file
    bool force = false;    // unblock: also remove files that somebody else has made
};

/// Makes a block file of a job's remedy, which does not run until the file is gone: the first that
/// no other job names, else the first; of those whose places are known. Names the other jobs that
/// the same file blocks. Blocked already: says so, and that is all.
///
/// Returns ExitClean; ExitFindings for a remedy without a block file, ExitNoInput without such a
/// job, ExitCannotCreate; ExitUnavailable when all paths are relative to the directory of a daemon
/// that does not run. Main thread only.
int RunBlockVerb(const BlockOptions& options, const Output& output);

/// Removes the block files of a job's remedy that RunBlockVerb has made; those of others, such as
/// the lock of another program, only by `force`, and no directory ever. Names the other jobs that
/// they have blocked.
///
/// Returns ExitClean when nothing blocks the remedy any more, ExitFindings when something does or
/// may do; ExitNoInput. Main thread only.
int RunUnblockVerb(const BlockOptions& options, const Output& output);

/// Lists what blocks which remedy, or may do. Returns ExitClean; ExitNoInput or ExitLoadFails, with
/// a sentence, when a configuration's jobs cannot be known. Main thread only.
int RunBlocksVerb(bool watcher, const Output& output);

}  // namespace kennly
