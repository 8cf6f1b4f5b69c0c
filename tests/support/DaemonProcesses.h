#pragma once

#include <sys/types.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/ProcessView.h"
#include "support/Sandbox.h"

namespace kennly::test {

/// A process of the daemon's program, with its numbers as it sees them itself.
struct DaemonProcess {
    pid_t outside = 0;  // its number for kill() and /proc of the test
    std::string number;
    std::string parent;   // the number of its parent
    std::string group;    // of its process group
    std::string session;  // of its session
    std::vector<std::string> arguments;

    /// Compares as the daemon does: whatever follows the first two characters does not count.
    bool Has(const std::string& option) const {
        return std::any_of(
            arguments.begin() + 1, arguments.end(),
            [&](const std::string& argument) { return argument.substr(0, 2) == option; });
    }
    bool IsChild() const { return Has("-Z"); }
    bool IsOfWatcher() const { return Has("-W"); }
    /// As the daemon writes it in its lines.
    std::string Tag() const {
        return Has("-f") ? "  " : IsOfWatcher() ? IsChild() ? "WC" : "WP" : IsChild() ? "C " : "P ";
    }
};

namespace daemonprocesses {

inline std::string LastWord(const std::string& text) {
    return text.substr(text.find_last_of(" \t") + 1);
}

inline std::vector<std::string> ArgumentsOf(pid_t process) {
    std::istringstream line(ProcessFile(process, "cmdline"));
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(line, argument, '\0');) {
        arguments.push_back(argument);
    }
    return arguments;
}

inline std::optional<DaemonProcess> Describe(pid_t process) {
    DaemonProcess found;
    found.outside = process;
    found.arguments = ArgumentsOf(process);
    found.number = NumberInside(process);
    const std::string parent = StatusField(process, "PPid");
    found.group = LastWord(StatusField(process, "NSpgid"));
    found.session = LastWord(StatusField(process, "NSsid"));
    if (ProcessFile(process, "comm") != "kennly\n" || found.arguments.empty() ||
        found.session.empty() || parent.empty()) {
        return std::nullopt;  // another program, or it has ended
    }
    const auto parentProcess = static_cast<pid_t>(std::stol(parent));
    found.parent = NumberInside(parentProcess);
    // While a child starts a command there is a copy of it for an instant.
    if (found.IsChild() && ArgumentsOf(parentProcess) == found.arguments) {
        return std::nullopt;
    }
    return found;
}

}  // namespace daemonprocesses

/// The running processes of the daemon, zombies left out, in the order of their numbers.
inline std::vector<DaemonProcess> DaemonProcesses(const Sandbox& sandbox) {
    std::vector<DaemonProcess> processes;
    for (const pid_t process : sandbox.Processes()) {
        if (const auto found = daemonprocesses::Describe(process)) {
            processes.push_back(*found);
        }
    }
    return processes;
}

/// Those of them whose parent has that number, as it sees it itself. Numbers that begin anew do not
/// matter to it.
inline std::vector<DaemonProcess> ChildrenOf(const Sandbox& sandbox, const std::string& parent) {
    std::vector<DaemonProcess> children;
    for (const DaemonProcess& process : DaemonProcesses(sandbox)) {
        if (process.parent == parent) {
            children.push_back(process);
        }
    }
    return children;
}

/// The one process in that role; nothing when there is none or more than one.
inline std::optional<DaemonProcess> OnlyDaemonProcess(const Sandbox& sandbox,
                                                      const std::string& tag) {
    std::optional<DaemonProcess> only;
    for (const DaemonProcess& process : DaemonProcesses(sandbox)) {
        if (process.Tag() != tag) {
            continue;
        }
        if (only) {
            return std::nullopt;
        }
        only = process;
    }
    return only;
}

}  // namespace kennly::test
