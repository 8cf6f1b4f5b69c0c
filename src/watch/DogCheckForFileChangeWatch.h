#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "config/FileTime.h"
#include "watch/DogWatch.h"

namespace kennly {

/// The check that fails once for each change of a file's modification time. It takes one parameter,
/// the file's path.
///
/// The last time seen outlives this object in a record, one file per job: `configDir`,
/// "/filetimes/" and the job's name as it stands. Its content is `lastFileTime`, seconds since the
/// epoch as a signed number of 4 bytes in the byte order of the machine, and nothing else. The
/// directory is part of the installation: while it is missing nothing is remembered.
///
/// Threads: as DogWatch. Ownership: as DogWatch; the record belongs to the job of that name, so an
/// object must be gone before another one for the same name is first evaluated.
class DogCheckForFileChangeWatch : public DogWatch {
public:
    DogCheckForFileChangeWatch() = default;

    /// Remembers.
    ~DogCheckForFileChangeWatch() override;
    DogCheckForFileChangeWatch(const DogCheckForFileChangeWatch&) = delete;
    DogCheckForFileChangeWatch& operator=(const DogCheckForFileChangeWatch&) = delete;

    /// Looks at the file once. A file that is seen for the first time, and has no record, counts as
    /// changed; one that cannot be examined counts as unchanged.
    ///
    /// Returns ResultFailed when the time is another than the last one, earlier or later, else
    /// ResultHealthy; ResultNotEvaluated when there is not exactly one parameter, when that is
    /// empty and when anything throws. Logs nothing.
    std::int32_t DoWatch() override;

    /// Saves the record.
    void Remember() noexcept override;

    /// Reads the record into `lastFileTime`, its first 4 bytes if there are more.
    ///
    /// Leaves `lastFileTime` alone when the job has no name or the record cannot be opened. Deletes
    /// a record that is too short, cannot be read or holds NoFileTime, which `lastFileTime` is
    /// then. Logs nothing.
    void LoadFileTime();

    /// Writes `lastFileTime` to the record, unless it is NoFileTime. Every failure is silent.
    void SaveFileTime() const;

    /// Written by the evaluating worker, read by the main thread in Remember.
    std::atomic<std::int32_t> lastFileTime{NoFileTime};

private:
    std::int32_t Judge(std::int32_t fileTime);
    std::string RecordPath() const;
};

}  // namespace kennly
