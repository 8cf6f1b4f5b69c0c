#include "status/DaemonProcesses.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <map>
#include <sstream>

#include "main/Paths.h"
#include "status/ProcFile.h"

namespace kennly {

namespace {

bool IsSameFile(const std::string& a, const std::string& b) {
    struct stat first = {};
    struct stat second = {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool Begins(const std::string& text, const std::string& with) {
    return text.compare(0, with.size(), with) == 0;
}

// As the program itself reads its options: by their first two characters.
bool HasOption(const std::vector<std::string>& arguments, const std::string& option) {
    return arguments.size() > 1 &&
           std::any_of(arguments.begin() + 1, arguments.end(),
                       [&](const std::string& argument) { return Begins(argument, option); });
}

DaemonProcess::Role RoleFrom(const std::vector<std::string>& arguments) {
    if (HasOption(arguments, "-Z")) {
        return DaemonProcess::Role::Child;
    }
    return HasOption(arguments, "-f") ? DaemonProcess::Role::Foreground
                                      : DaemonProcess::Role::Parent;
}

// Whether the process has numbers of its own, as those in containers have.
bool IsInContainer(pid_t process) {
    std::istringstream numbers(ReadProcStatus(process, "NSpid"));
    return std::distance(std::istream_iterator<pid_t>(numbers), {}) > 1;
}

// Looks through the root of the process. Two with the same root may yet have other file systems
// mounted there.
bool WorksWithOurData(DaemonProcess& process) {
    const std::string root = "/proc/" + std::to_string(process.number) + "/root";
    struct stat status = {};
    if (process.hasEnded) {
        return !IsInContainer(process.number);
    }
    if (stat((root + "/").c_str(), &status) != 0) {
        process.dataKnown = false;
        return errno == EACCES && !IsInContainer(process.number);
    }
    const bool theirs = stat((root + ConfigDirectoryPath).c_str(), &status) == 0;
    const bool ours = stat(ConfigDirectoryPath, &status) == 0;
    if (theirs || ours) {
        return IsSameFile(root + ConfigDirectoryPath, ConfigDirectoryPath);
    }
    return IsSameFile(root + "/", "/");
}

// Takes away what the kernel puts behind the path of a file that is not there any more.
bool TakeDeleted(std::string& path) {
    const std::string deleted = " (deleted)";
    if (path.size() <= deleted.size() ||
        path.compare(path.size() - deleted.size(), deleted.size(), deleted) != 0) {
        return false;
    }
    path.resize(path.size() - deleted.size());
    return true;
}

// Whether the path that the process was started by now leads to another file, or to none: the old
// one has been moved away, or a link has been changed.
bool LeadsElsewhere(const DaemonProcess& process) {
    const std::string path = process.arguments.empty() ? "" : process.arguments.front();
    struct stat status = {};
    if (path.empty() || path.front() != '/') {
        return false;
    }
    if (stat(path.c_str(), &status) != 0) {
        return errno == ENOENT;
    }
    return !IsSameFile("/proc/" + std::to_string(process.number) + "/exe", path);
}

void ReadProgram(DaemonProcess& process) {
    if (std::optional<std::string> path = ReadProcLink(process.number, "exe")) {
        process.programReplaced = TakeDeleted(*path) || LeadsElsewhere(process);
        process.program = *path;
    }
}

void ReadDirectory(DaemonProcess& process) {
    std::optional<std::string> path = ReadProcLink(process.number, "cwd");
    if (path && !TakeDeleted(*path)) {
        process.directory = *path;
    }
}

bool IsNamedAsTheProgram(const std::string& path) {
    return path.substr(path.rfind('/') + 1) == DaemonProgramName;
}

// The kernel calls an interpreter by the name of its script.
bool IsInterpreter(const DaemonProcess& process) {
    return !process.program.empty() && !IsNamedAsTheProgram(process.program) &&
           !process.arguments.empty() && !IsNamedAsTheProgram(process.arguments.front());
}

std::vector<std::string> ArgumentsOf(pid_t process) {
    return ReadProcTexts(process, "cmdline").value_or(std::vector<std::string>());
}

std::optional<DaemonProcess> ReadProcess(pid_t number) {
    const std::optional<ProcStat> stat = ReadProcStat(number);
    if (!stat || stat->name != DaemonProgramName) {
        return std::nullopt;
    }
    DaemonProcess process;
    process.number = number;
    process.parent = stat->parent;
    process.hasEnded = stat->state == 'Z' || stat->state == 'X';
    process.threads = stat->threads;
    process.startTicks = stat->startTicks;
    if (process.hasEnded) {
        process.role = DaemonProcess::Role::Child;
        return process;
    }
    process.arguments = ArgumentsOf(number);
    if (process.arguments.empty()) {
        return std::nullopt;  // it is just ending
    }
    process.role = RoleFrom(process.arguments);
    process.isWatcher = HasOption(process.arguments, "-W");
    ReadProgram(process);
    if (IsInterpreter(process)) {
        return std::nullopt;
    }
    ReadDirectory(process);
    return process;
}

using ByNumber = std::map<pid_t, DaemonProcess>;

// A copy of a process that loads jobs is about to become a command, and one of a parent another
// process of its tree: until then it has the arguments of the other. A child with arguments of its
// own is a process of the daemon, be it one that the other has adopted, as the first process of a
// container does. What has ended under a parent was a child.
bool IsPassing(const DaemonProcess& process, const ByNumber& all) {
    const auto parent = all.find(process.parent);
    if (parent == all.end()) {
        return false;
    }
    if (process.hasEnded) {
        return parent->second.role != DaemonProcess::Role::Parent;
    }
    return process.arguments == parent->second.arguments;
}

}  // namespace

const char* NameOf(DaemonProcess::Role role) {
    switch (role) {
        case DaemonProcess::Role::Parent:
            return "parent";
        case DaemonProcess::Role::Child:
            return "child";
        default:
            return "foreground";
    }
}

bool IsAnyJustEnding() {
    const std::vector<pid_t> all = AllProcesses();
    return std::any_of(all.begin(), all.end(), [](pid_t number) {
        const std::optional<ProcStat> stat = ReadProcStat(number);
        return stat && stat->name == DaemonProgramName && stat->state != 'Z' &&
               stat->state != 'X' && ArgumentsOf(number).empty();
    });
}

std::vector<DaemonProcess> FindDaemonProcesses() {
    ByNumber all;
    for (const pid_t number : AllProcesses()) {
        if (const std::optional<DaemonProcess> process = ReadProcess(number)) {
            all[number] = *process;
        }
    }
    std::vector<DaemonProcess> found;
    for (auto& [number, process] : all) {
        if (IsPassing(process, all) || !WorksWithOurData(process)) {
            continue;
        }
        const auto parent = all.find(process.parent);
        if (process.hasEnded && parent != all.end()) {
            process.isWatcher = parent->second.isWatcher;
        }
        found.push_back(process);
    }
    return found;
}

bool AreProcessesHidden() {
    constexpr pid_t firstProcess = 1;  // which is root's, or the one that a container is about
    return !ReadProcStat(firstProcess);
}

}  // namespace kennly
