#include "ctl/FindJob.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lint/DaemonVerdict.h"
#include "lint/FileContent.h"
#include "main/Paths.h"
#include "status/DaemonProcesses.h"
#include "status/TreeState.h"

namespace kennly {

namespace {

void Add(const std::string& path, bool isWatcher, LiveJobs& live) {
    if (!ReadFile(path)) {
        if (errno != ENOENT) {
            live.unknown.push_back("cannot read " + path + ": " + std::strerror(errno));
            live.status = ExitNoInput;
        }
        return;
    }
    const DaemonVerdict verdict = AskDaemon(path);
    if (verdict.outcome != DaemonVerdict::Outcome::Loads) {
        live.unknown.push_back(path + " does not load: kennlyctl check tells why");
        live.status = live.status == ExitClean ? ExitLoadFails : live.status;
        return;
    }
    const auto directory = StartDirectoryOf(isWatcher, FindDaemonProcesses());
    for (const JobHandle& job : verdict.jobs) {
        live.jobs.push_back({job, isWatcher, directory});
    }
}

}  // namespace

LiveJobs FindLiveJobs(bool watcherOnly) {
    LiveJobs live;
    if (!watcherOnly) {
        Add(MainConfigPath, false, live);
    }
    Add(WatcherConfigPath, true, live);
    return live;
}

FoundJob FindJobOrTell(const std::string& name, bool watcherOnly, const Output& output) {
    const LiveJobs live = FindLiveJobs(watcherOnly);
    const auto found = std::find_if(live.jobs.begin(), live.jobs.end(),
                                    [&](const FoundJob& each) { return each.job->name == name; });
    if (found != live.jobs.end()) {
        return *found;
    }
    if (!live.unknown.empty()) {
        output.err << "kennlyctl: whether there is a job " << Printable(name)
                   << " is not known: " << Printable(live.unknown.front()) << "\n";
        return {};
    }
    output.err << "kennlyctl: no job " << Printable(name) << " would run from "
               << (watcherOnly ? WatcherConfigPath : MainConfigPath)
               << (watcherOnly ? "" : std::string(" or ") + WatcherConfigPath)
               << ": kennlyctl check tells why\n";
    return {};
}

}  // namespace kennly
