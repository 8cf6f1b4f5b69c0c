#include "status/JobState.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <utility>

#include "action/DogAction.h"
#include "lint/FileContent.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

std::vector<RunningCommand> ThoseOf(const std::string& job,
                                    const std::vector<RunningCommand>& commands) {
    std::vector<RunningCommand> those;
    std::copy_if(commands.begin(), commands.end(), std::back_inserter(those),
                 [&](const RunningCommand& command) {
                     return std::find(command.jobs.begin(), command.jobs.end(), job) !=
                            command.jobs.end();
                 });
    return those;
}

// The daemon may where this process may not: what it would find there is not known here.
bool MayNotLook(const std::string& path) {
    return access(path.c_str(), F_OK) != 0 && errno == EACCES;
}

void LookAtRecord(const std::string& path, JobState& state) {
    state.recorded = ReadRecord(path);
    state.recordKnown = state.recorded || errno != EACCES;
}

}  // namespace

std::string NameOfCheckType(std::int32_t type) {
    switch (type) {
        case CheckTypeCommandResult:
            return "CheckCommandResult";
        case CheckTypeFileChange:
            return "CheckForFileChange";
        case CheckTypeNoFileChange:
            return "CheckForNoFileChange";
        case CheckTypeSocketListening:
            return "CheckSocketListening";
        default:
            return "CheckListeningSocketResponse";
    }
}

bool WatchesFile(std::int32_t type) {
    return type == CheckTypeFileChange || type == CheckTypeNoFileChange;
}

std::optional<std::string> WholePath(const std::string& path,
                                     const std::optional<std::string>& startDirectory) {
    if (!path.empty() && path.front() == '/') {
        return path;
    }
    if (path.empty() || !startDirectory) {
        return std::nullopt;
    }
    return std::filesystem::path(*startDirectory) / path;
}

std::vector<std::string> BlockFilesOf(const DogAction& remedy) {
    std::vector<std::string> files;
    for (const std::string* path :
         {&remedy.blockAction, &remedy.blockAction2, &remedy.blockAction3}) {
        if (!path->empty()) {
            files.push_back(*path);
        }
    }
    return files;
}

BlockFiles LookAtBlockFiles(const DogAction& remedy,
                            const std::optional<std::string>& startDirectory) {
    BlockFiles files;
    for (const std::string& configured : BlockFilesOf(remedy)) {
        const std::optional<std::string> path = WholePath(configured, startDirectory);
        if (!path || MayNotLook(*path)) {
            files.unknown.push_back(configured);
        } else if (access(path->c_str(), F_OK) == 0) {
            files.inForce.push_back(*path);
        }
    }
    return files;
}

std::optional<std::int32_t> ReadRecord(const std::string& path) {
    const std::optional<std::string> content = ReadFile(path);
    std::int32_t seconds = 0;
    if (!content) {
        return std::nullopt;
    }
    if (content->size() < sizeof(seconds)) {
        errno = EINVAL;
        return std::nullopt;
    }
    std::memcpy(&seconds, content->data(), sizeof(seconds));
    return seconds;
}

std::vector<JobState> LookAtJobs(const std::vector<JobHandle>& jobs, const RunningCommands& running,
                                 const std::string& recordDirectory,
                                 const std::optional<std::string>& startDirectory) {
    std::vector<JobState> states;
    for (const JobHandle& job : jobs) {
        JobState state;
        state.job = job;
        state.check = NameOfCheckType(job->check->type);
        state.subject = job->check->params.empty() ? "" : job->check->params.front();
        state.checks = ThoseOf(job->name, running.checks);
        state.remedies = ThoseOf(job->name, running.remedies);
        state.remediesKnown = running.remediesKnown;
        BlockFiles blocks = LookAtBlockFiles(*job->remedy, startDirectory);
        state.blockFiles = std::move(blocks.inForce);
        state.unknownBlockFiles = std::move(blocks.unknown);
        if (WatchesFile(job->check->type)) {
            state.file = WholePath(state.subject, startDirectory);
        }
        if (job->check->type == CheckTypeFileChange && !job->name.empty()) {
            LookAtRecord(recordDirectory + "/" + job->name, state);
        }
        states.push_back(state);
    }
    return states;
}

}  // namespace kennly
