#pragma once

#include <string>
#include <vector>

namespace kennly::bench {

/// Runs one of the floors that stand as processes of their own, for ever or until it fails:
///
/// - `commands LINE`: two threads, each with a bare loop of system() with that line;
/// - `paced-commands JOBS SECONDS LINE`: a thread for each job with such a loop, which pauses for
///   so long after each command; the daemon's jobs, with a delay of one, do so for two seconds;
/// - `looks`: two threads; one hands over to the other, which looks at the file, and waits for it;
/// - `paced-looks JOBS`: two such threads for each job, but the first does not wait; it pauses for
///   a second, as for the poll, and for another, as for the delay;
/// - `sleepers THREADS`: so many threads that sleep, with stacks as the daemon's.
///
/// Returns the exit status, when there is no such floor or it has failed.
int RunFloor(const std::vector<std::string>& arguments);

}  // namespace kennly::bench
