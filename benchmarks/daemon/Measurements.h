#pragma once

#include <cstddef>

#include "daemon/Figures.h"

namespace kennly::bench {

/// How thorough a run is.
struct Effort {
    int rounds;           // of what is measured several times
    bool full;            // also what explains the rest
    std::size_t repairs;  // in each of 20 sandboxes
    int reloads;          // in a row, with 1,000 jobs
    int largeReloads;     // with 5,000
};

inline constexpr Effort ShortEffort = {1, false, 2, 2, 1};
inline constexpr Effort FullEffort = {5, true, 12, 100, 100};

// Each measures one side of the daemon and adds what it finds. All throw std::runtime_error when
// the daemon does not do what is to be measured.

/// Checks by a command with a delay of 1 s: processor time and checks a second.
void MeasureCommandChecks(const Effort& effort, Figures& figures);
/// From the start of the program to the end of the last job's first check.
void MeasureStart(const Effort& effort, Figures& figures);
/// Checks of a file with a delay of 1 s: processor time.
void MeasureFileChecks(const Effort& effort, Figures& figures);
/// Of a thousand jobs with a delay of 60 s: processor time of a minute, memory, and how many
/// threads, descriptors and zombies there are.
void MeasureIdle(const Effort& effort, Figures& figures);
/// From a fault to the start of its remedy.
void MeasureDetection(const Effort& effort, Figures& figures);
/// From a change of the configuration to the end of the last new job's first check.
void MeasureReload(const Effort& effort, Figures& figures);

}  // namespace kennly::bench
