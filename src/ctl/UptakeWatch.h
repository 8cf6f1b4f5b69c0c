#pragma once

#include <sys/types.h>

#include <functional>
#include <set>

namespace kennly {

/// Watches from outside how a worker takes up a new configuration: it reads the file, gives up all
/// its threads but the first, and starts three new ones for each job.
///
/// Threads: one at a time. Ownership: keeps nothing open.
class UptakeWatch {
public:
    /// Begins, which must be before the file is replaced. `wasRead` tells whether the new file has
    /// been read since; it is empty where nobody can know, and then threads of a file that was put
    /// there a moment earlier may be taken for those of this one.
    UptakeWatch(pid_t worker, std::function<bool()> wasRead);

    enum class State {
        Waiting,  // it has not looked yet, as far as one can see
        Read,     // it waits for running checks and pauses to end
        TakenUp,  // all threads are new, and as many as they are to be
        Gone,     // the worker has ended
    };

    /// How it stands with a configuration of so many jobs, now that the file has been replaced. To
    /// be asked several times a second: threads that are first seen when the file has been read
    /// already count as new.
    State Look(std::size_t jobs);

private:
    const pid_t worker_;
    const std::function<bool()> wasRead_;
    std::set<pid_t> old_;  // threads of jobs that were there before the file was read
};

}  // namespace kennly
