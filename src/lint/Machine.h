#pragma once

#include <optional>
#include <string>
#include <vector>

#include "status/DaemonProcesses.h"

namespace kennly {

/// What a configuration can depend on outside its own file.
struct Machine {
    std::string configDirectory;     // where both configurations are
    std::string recordDirectory;     // of the records of file times
    std::string heartbeatDirectory;  // where the processes refresh theirs
    std::string mainConfig;          // the configuration of the main tree
    std::string watcherConfig;       // that of the watcher tree
    std::string searchPath;          // PATH of the daemon
    std::string startDirectory;      // of the daemon: relative paths count from it
    bool daemonRuns = false;         // these two are those of its process, else those of this one

    std::vector<DaemonProcess> processes;  // of the daemon, in both trees
};

/// This machine, for the tree whose configuration is examined. Any thread may call it.
Machine ThisMachine(bool watcher);

/// What can be told of a file: the user of this process may not look everywhere, as the daemon may.
enum class Answer { No, Yes, Unknown };

/// Whether there is something, or a directory, at `path`. Any thread may call it.
Answer Exists(const std::string& path);
Answer IsDirectory(const std::string& path);

/// The path of the file that `program` starts on `machine`: itself when it has a slash in it, else
/// the first of that name in the search path; empty when there is none that can be executed.
/// Nothing where that cannot be told. Any thread may call it.
std::optional<std::string> FindProgram(const Machine& machine, const std::string& program);

}  // namespace kennly
