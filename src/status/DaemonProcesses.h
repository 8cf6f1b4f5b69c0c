#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kennly {

/// What the file of the daemon's program is called.
inline constexpr char DaemonProgramName[] = "kennly";

/// A process of the daemon, as seen from outside.
struct DaemonProcess {
    enum class Role { Parent, Child, Foreground };

    pid_t number = 0;
    Role role = Role::Parent;
    bool isWatcher = false;  // of the watcher tree
    pid_t parent = 0;
    bool hasEnded = false;  // and has not been reaped
    int threads = 0;
    std::uint64_t startTicks = 0;        // after the machine's start
    std::string program;                 // its path; empty when this process may not know
    bool programReplaced = false;        // another file is there now, or none
    std::string directory;               // it was started in; empty when that is not known
    bool dataKnown = true;               // false: it may work with the data of another root
    std::vector<std::string> arguments;  // with the program's name

    /// Whether it lives and runs the jobs of the main tree, or of the watcher tree.
    bool RunsJobs(bool ofWatcher) const {
        return isWatcher == ofWatcher && !hasEnded && role != Role::Parent;
    }
};

/// "parent", "child" or "foreground". Any thread may call it.
const char* NameOf(DaemonProcess::Role role);

/// "main tree" or "watcher tree". Any thread may call it.
inline const char* NameOfTree(bool watcher) {
    return watcher ? "watcher tree" : "main tree";
}

/// The processes of the daemon that work with this machine's data directory, in the order of their
/// numbers. Left out are those of containers and other roots, what is just ending, and copies of a
/// process that are about to become a command or another process of a tree. What has ended counts
/// as a child.
///
/// A process is one of the daemon if its program's file is called as DaemonProgramName says. Where
/// this process may not look at the root of another, those with process numbers of their own are
/// taken for ones of containers, and all others for ones with the same data. Any thread may call
/// it.
std::vector<DaemonProcess> FindDaemonProcesses();

/// Whether some process of that name is just ending: the kernel has taken its memory back, so that
/// nobody knows any more what it was, and FindDaemonProcesses leaves it out. Any thread may call
/// it.
bool IsAnyJustEnding();

/// Whether this process may not see those of other users, as with the option hidepid of proc(5):
/// then there may be more of the daemon than what is found. Any thread may call it.
bool AreProcessesHidden();

/// How a verb says so.
inline constexpr char ProcessesHiddenText[] = "the processes of other users cannot be seen";

}  // namespace kennly
