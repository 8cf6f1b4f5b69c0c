#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kennly {

/// What a process of the daemon has that its commands inherit, beside what is in Surroundings.
struct Inheritance {
    bool inForeground = false;         // it ignores fewer signals then
    std::uint64_t ignoredSignals = 0;  // bit 0 is for signal 1; also those that its starter ignored
    std::array<std::optional<rlimit>, RLIM_NLIMITS> limits;  // as far as this process may know them
    int niceness = 0;
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;  // the others
};

/// What a command that the daemon starts finds around it.
struct Surroundings {
    pid_t daemon = 0;  // the process they are read from; 0: none runs, and they are this process's
    std::vector<std::string> environment;  // "NAME=value"
    std::string directory;
    mode_t mask = 0;
    std::optional<Inheritance> inheritance;  // without: as after a start of a tree from here
};

/// Those of the running daemon's tree, as far as this process may know them.
Surroundings FindSurroundings(bool watcher);

/// How a command line has ended.
struct ShellEnd {
    int waitStatus = -1;  // as system() has it: -1 when the shell could not be started
    int error = 0;        // then the error number
    double seconds = 0;
    bool interrupted = false;  // by the user; all of it has been killed
};

/// Gives `commandLine` to the shell as the daemon does: with standard descriptors closed, no other
/// one open, signals ignored as by it, in a session without a terminal, and in those surroundings.
/// Waits for its end, however long that takes. SIGINT, SIGQUIT, SIGTERM and SIGHUP, unless they are
/// ignored, end the waiting and every process of that session. Main thread only.
ShellEnd RunInShell(const std::string& commandLine, const Surroundings& surroundings);

}  // namespace kennly
