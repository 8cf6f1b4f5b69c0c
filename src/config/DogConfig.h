#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "config/FileTime.h"
#include "job/DogJob.h"
#include "sync/AppMutex.h"

class TiXmlElement;

namespace kennly {

/// What ReloadConfigIfConfigHasChanged returns. The numbers are fixed; 2 was never used.
inline constexpr std::int32_t ReloadLoaded = 0;      // the file had changed and was loaded
inline constexpr std::int32_t ReloadNoFile = 1;      // the file's status could not be read
inline constexpr std::int32_t ReloadParseError = 3;  // the file had changed and was refused
inline constexpr std::int32_t ReloadException = 4;   // something threw
inline constexpr std::int32_t ReloadUnchanged = 5;   // the modification time is the recorded one

/// The jobs of one configuration file.
///
/// The file is XML. The children named "job" of the first element are the jobs; each needs a
/// "name", an enabled="true", one "check" and one "remedy". Whatever is wrong with one is logged
/// and that one left out. Each load replaces all jobs; nothing is merged with or compared to what
/// was there.
///
/// Threads: FindJob may be called from any thread and waits while a load replaces the jobs.
/// Everything else belongs to the main thread. Ownership: holds the jobs of its list. A job found
/// stays alive for as long as the handle is kept, also when a load replaces it meanwhile.
class DogConfig {
public:
    /// No jobs, no file loaded.
    DogConfig();

    /// Gives up the jobs as ClearJobs does. No other thread may use the configuration any more.
    virtual ~DogConfig();

    DogConfig(const DogConfig&) = delete;
    DogConfig& operator=(const DogConfig&) = delete;

    /// Loads `configFile` when its modification time, in whole seconds, is not the one of the last
    /// successful load: newer and older alike. Returns one of the codes above. Logs "Configuration
    /// file parse error" with ReloadParseError and "exception in ReloadConfigIfConfigHasChanged"
    /// with ReloadException; in both cases the next call tries again. Never throws.
    std::int32_t ReloadConfigIfConfigHasChanged();

    /// Replaces all jobs by those of `configFile` and sets `maxLoadErrors` if the file does.
    ///
    /// Returns false, after one line that begins with "config file failed to load, error:", when
    /// the file cannot be read or parsed, holds no element or is refused by InspectConfigFile: the
    /// configuration is empty then. Returns false after "exception while loading config" when
    /// something threw; jobs added before stay. Never throws.
    bool Load();

    /// The job with this name, compared byte by byte, or null.
    JobHandle FindJob(const std::string& name);

    /// Gives up the hold on all jobs, in the order of the file. A job that nobody else holds is
    /// destroyed at once, one in use by its last holder, after its check was told to remember. The
    /// caller holds the lock or is alone.
    void ClearJobs() noexcept;

    /// Gives the jobs, in order, the workers 0, 3, 6, ... and starts the cycle of each on its
    /// first. Returns false and logs "exception while assigning jobs!" when something threw; the
    /// jobs from there on are not started.
    bool AssignJobs();

    /// The jobs in the order of the file.
    const std::list<JobHandle>& Jobs() const { return jobs_; }

private:
    enum class LoadOutcome { Loaded, Refused, Threw };

    LoadOutcome LoadGuarded();
    bool LoadFile();
    bool ParseJob(const TiXmlElement& element);
    static bool ParseCheckAndRemedy(const std::string& name, const TiXmlElement& element,
                                    DogJob& job);
    void AddJob(const JobHandle& job);

    AppMutex mutex_{true};
    std::list<JobHandle> jobs_;                           // written under mutex_
    std::map<std::string, std::weak_ptr<DogJob>> index_;  // guarded by mutex_
    std::int32_t fileTime_ = NoFileTime;                  // of the last successful load
};

}  // namespace kennly
