#include "lint/Machine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "main/Paths.h"
#include "status/ProcFile.h"

namespace kennly {

namespace {

std::string WithDirectoryOf(const std::string& path) {
    return std::filesystem::path(path).parent_path();
}

// Where the shell looks for programs when nobody has told it.
constexpr const char* DefaultSearchPath =
    "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

std::string SearchPathIn(const std::vector<std::string>& environment) {
    const std::string begin = "PATH=";
    const auto variable = std::find_if(
        environment.begin(), environment.end(),
        [&](const std::string& each) { return each.compare(0, begin.size(), begin) == 0; });
    return variable != environment.end() ? variable->substr(begin.size()) : DefaultSearchPath;
}

// Takes what commands of the daemon inherit from the process that starts them, if there is one and
// this process may know.
void AskRunningDaemon(bool watcher, Machine& machine) {
    for (const DaemonProcess& process : machine.processes) {
        if (!process.RunsJobs(watcher)) {
            continue;
        }
        const auto environment = ReadProcTexts(process.number, "environ");
        const auto directory = ReadProcLink(process.number, "cwd");
        if (environment && directory) {
            machine.searchPath = SearchPathIn(*environment);
            machine.startDirectory = *directory;
            machine.daemonRuns = true;
            return;
        }
    }
}

std::string FromStart(const Machine& machine, const std::string& path) {
    return path.front() == '/' ? path : machine.startDirectory + "/" + path;
}

// After a call for a path has failed: whether that is because nothing is there.
Answer AnswerOfError(int error) {
    const bool isMissing =
        error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
    return isMissing ? Answer::No : Answer::Unknown;
}

// By the daemon, which is root's: other users may be refused what it may do.
Answer CanBeExecuted(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return AnswerOfError(errno);
    }
    constexpr mode_t executable = S_IXUSR | S_IXGRP | S_IXOTH;
    if (!S_ISREG(status.st_mode) || (status.st_mode & executable) == 0) {
        return Answer::No;
    }
    if (access(path.c_str(), X_OK) == 0) {
        return Answer::Yes;
    }
    return getuid() == 0 ? Answer::No : Answer::Unknown;
}

// The place of the file, when it can be executed, or empty.
std::optional<std::string> Executable(const std::string& path) {
    const Answer answer = CanBeExecuted(path);
    return answer == Answer::Unknown ? std::nullopt
                                     : std::optional(answer == Answer::Yes ? path : "");
}

}  // namespace

Machine ThisMachine(bool watcher) {
    Machine machine;
    machine.configDirectory = ConfigDirectoryPath;
    machine.recordDirectory = machine.configDirectory + "/filetimes";
    machine.heartbeatDirectory = WithDirectoryOf(ChildHeartbeatPath);
    machine.mainConfig = MainConfigPath;
    machine.watcherConfig = WatcherConfigPath;
    const char* const path = std::getenv("PATH");
    machine.searchPath = path != nullptr ? path : DefaultSearchPath;
    std::error_code error;
    machine.startDirectory = std::filesystem::current_path(error);
    machine.processes = FindDaemonProcesses();
    AskRunningDaemon(watcher, machine);
    return machine;
}

Answer Exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0 ? Answer::Yes : AnswerOfError(errno);
}

Answer IsDirectory(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return AnswerOfError(errno);
    }
    return S_ISDIR(status.st_mode) ? Answer::Yes : Answer::No;
}

std::optional<std::string> FindProgram(const Machine& machine, const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return Executable(FromStart(machine, program));
    }
    if (program.empty()) {
        return "";
    }
    std::string_view rest = machine.searchPath;
    for (bool isLast = false; !isLast;) {
        const std::size_t end = rest.find(':');
        isLast = end == std::string_view::npos;
        std::string path(rest.substr(0, end));  // empty: the start directory
        path.append(path.empty() ? "" : "/").append(program);
        std::optional<std::string> found = Executable(FromStart(machine, path));
        if (!found || !found->empty()) {
            return found;
        }
        rest.remove_prefix(isLast ? 0 : end + 1);
    }
    return "";
}

}  // namespace kennly
