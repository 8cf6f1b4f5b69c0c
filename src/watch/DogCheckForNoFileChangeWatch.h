#pragma once

#include <cstdint>

#include "config/FileTime.h"
#include "watch/DogWatch.h"

namespace kennly {

/// The check that fails while a file stays unchanged for too long, for files that a healthy process
/// touches regularly. It takes two parameters: the file's path and the greatest age in seconds, a
/// decimal number read like any other of the configuration. An empty one means 120, less than 1
/// means 1.
///
/// Threads and ownership: as DogWatch.
class DogCheckForNoFileChangeWatch : public DogWatch {
public:
    /// Looks at the file once. The first look only takes note of the time.
    ///
    /// Returns ResultFailed when the modification time is the one of the look before and older than
    /// the greatest age, else ResultHealthy, also for a file that cannot be examined or is dated in
    /// the future; ResultNotEvaluated when there are not exactly two parameters, when the path is
    /// empty and when anything throws. Logs nothing.
    ///
    /// A file older than 68 years counts as one of the future (see AgeInSeconds).
    std::int32_t DoWatch() override;

    std::int32_t lastFileTime = NoFileTime;  // seconds since the epoch at the last look

private:
    std::int32_t Judge(std::int32_t fileTime);
};

}  // namespace kennly
