#pragma once

#include <sys/types.h>

#include <memory>

#include "daemon/Site.h"

namespace kennly::bench {

/// What commands that are counted took, as they came one after the other or at once.
struct Cost {
    double seconds = 0;    // of processor time, one
    double perSecond = 0;  // how many
};

/// Of the commands of a process that runs `jobs` of them in a round, over whole rounds and for
/// about so many seconds.
Cost CostOfRounds(const Site& site, pid_t process, int jobs, double seconds);

/// The floor that is a thread for each job, which runs the counted command and then pauses.
std::unique_ptr<test::SandboxProcess> StartPacedThreads(const Site& site, int jobs,
                                                        int pauseSeconds);

/// The time from the start of the daemon, or of a floor, to the end of the first command of each of
/// so many jobs.
double SecondsToStart(int jobs);
double SecondsToStartThreads(int jobs);

/// Of a bare loop of system() on two threads, in a sandbox of its own, over two seconds.
Cost CostOfLoop();

/// A configuration of so many jobs, each of which runs that command every `delay` seconds.
std::string CommandJobs(int jobs, int delay);

}  // namespace kennly::bench
