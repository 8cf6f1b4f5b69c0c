#pragma once

#include <sys/types.h>

namespace kennly::bench {

/// The processor time that a process and its threads have taken up so far, in seconds and exact to
/// far less than a microsecond. Throws std::runtime_error when there is no such process.
double OwnProcessorTime(pid_t process);

/// The same without that of its first thread.
double ProcessorTimeOfWorkers(pid_t process);

/// The processor time of all its children that have ended and that it has waited for, and of
/// theirs. The kernel tells it in hundredths of a second, and so a difference may be wrong by as
/// much as one of them for user and system time each.
double ChildrenProcessorTime(pid_t process);

/// Both.
double ProcessorTime(pid_t process);

}  // namespace kennly::bench
