#include "ctl/StopVerb.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>
#include <vector>

extern "C" {  // which this header of glibc 2.36 leaves to its users
#include <sys/pidfd.h>
}

#include "ctl/ExitStatus.h"
#include "main/Descriptor.h"
#include "status/DaemonProcesses.h"
#include "status/ProcFile.h"

namespace kennly {

namespace {

constexpr std::chrono::seconds LongestEnd(20);  // ten of which a parent gives its child

bool IsRunBySystemd(pid_t process) {
    const std::string group = ReadProcFile(process, "cgroup").value_or("");
    return group.find("kennly.service") != std::string::npos ||
           group.find("kennly-watcher.service") != std::string::npos;
}

// Those to be asked: parents, which ask their children, and whoever has none.
std::vector<DaemonProcess> FindHeads(bool watcher) {
    const std::vector<DaemonProcess> all = FindDaemonProcesses();
    std::vector<DaemonProcess> heads;
    for (const DaemonProcess& process : all) {
        if (process.isWatcher != watcher || process.hasEnded) {
            continue;
        }
        bool hasParent = false;
        for (const DaemonProcess& other : all) {
            hasParent = hasParent || (process.parent == other.number && !other.hasEnded &&
                                      other.isWatcher == process.isWatcher);
        }
        if (!hasParent) {
            heads.push_back(process);
        }
    }
    return heads;
}

// By a descriptor, as the number may be another process's by now. Returns an error number.
int Terminate(const DaemonProcess& process) {
    const Descriptor descriptor(pidfd_open(process.number, 0));
    if (!descriptor.IsOpen()) {
        return errno == ESRCH ? 0 : errno;
    }
    const auto stat = ReadProcStat(process.number);
    if (!stat || stat->startTicks != process.startTicks) {
        return 0;  // it has ended already
    }
    return pidfd_send_signal(descriptor.Number(), SIGTERM, nullptr, 0) == 0 ? 0 : errno;
}

bool Runs(bool watcher) {
    const std::vector<DaemonProcess> processes = FindDaemonProcesses();
    return std::any_of(processes.begin(), processes.end(), [&](const DaemonProcess& process) {
        return process.isWatcher == watcher && !process.hasEnded && !IsRunBySystemd(process.number);
    });
}

bool AwaitEnd(bool watcher) {
    const auto end = std::chrono::steady_clock::now() + LongestEnd;
    while (Runs(watcher) || IsAnyJustEnding()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

// restart-tree, by which the samples' jobs of one tree start the other anew, with what it runs
// under; the argument behind its name is the tree.
bool IsRestart(const std::vector<std::string>& arguments, bool watcher) {
    const std::string program = "/restart-tree";
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
        const std::string& path = arguments[i];
        if (path.size() > program.size() &&
            path.compare(path.size() - program.size(), program.size(), program) == 0 &&
            arguments[i + 1] == (watcher ? "watcher" : "main")) {
            return true;
        }
    }
    return false;
}

// One that is under way would start the tree after its end. Those of containers are left alone.
void EndRestarts(bool watcher, const Output& output) {
    const auto ours = ReadProcLink(getpid(), "ns/pid");
    for (const pid_t process : AllProcesses()) {
        const auto arguments = ReadProcTexts(process, "cmdline");
        if (arguments && IsRestart(*arguments, watcher) &&
            ReadProcLink(process, "ns/pid") == ours && kill(process, SIGTERM) == 0) {
            output.out << NameOfTree(watcher) << ": ending its restart, process " << process
                       << std::endl;
        }
    }
}

int StopTree(bool watcher, const Output& output) {
    const char* const name = NameOfTree(watcher);
    int status = ExitClean;
    bool asked = false;
    for (const DaemonProcess& head : FindHeads(watcher)) {
        if (IsRunBySystemd(head.number)) {
            output.err << "kennlyctl: process " << head.number
                       << " is run by systemd: systemctl stop "
                       << (watcher ? "kennly-watcher" : "kennly") << "\n";
            status = ExitFindings;
            continue;
        }
        const int error = Terminate(head);
        if (error != 0) {
            output.err << "kennlyctl: cannot end process " << head.number << ": "
                       << std::strerror(error) << "\n";
            return error == EPERM ? ExitNoPermission : ExitFindings;
        }
        output.out << name << ": ending " << NameOf(head.role) << " " << head.number << std::endl;
        asked = true;
    }
    if (!asked) {
        const char* const unasked =
            AreProcessesHidden() ? "unknown whether it runs" : "does not run";
        output.out << name << ": " << (status == ExitClean ? unasked : "left alone") << "\n";
        return status;
    }
    if (!AwaitEnd(watcher)) {
        output.err << "kennlyctl: the " << name << " has not ended within " << LongestEnd.count()
                   << " s\n";
        return ExitFindings;
    }
    output.out << name << ": has ended\n";
    return status;
}

}  // namespace

int RunStopVerb(const StopOptions& options, const Output& output) {
    const std::vector<bool> trees =
        options.watcherOnly ? std::vector<bool>{true} : std::vector<bool>{false, true};
    int status = ExitClean;
    for (const bool watcher : trees) {
        EndRestarts(watcher, output);
        const int ended = StopTree(watcher, output);
        status = status != ExitClean ? status : ended;
    }
    // Until its end, either may have begun to start the other anew.
    for (const bool watcher : trees) {
        EndRestarts(watcher, output);
        if (status == ExitClean && Runs(watcher)) {
            status = StopTree(watcher, output);
        }
    }
    if (status == ExitClean && AreProcessesHidden()) {
        output.err << "kennlyctl: " << ProcessesHiddenText
                   << ", so some of the daemon may run on\n";
        return ExitNoPermission;
    }
    return status;
}

}  // namespace kennly
