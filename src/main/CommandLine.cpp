#include "main/CommandLine.h"

#include <cstdio>
#include <cstring>

#include "main/Paths.h"
#include "main/ProcessState.h"

namespace kennly {

namespace {

bool Begins(const char* argument, const char* option) {
    return std::strncmp(argument, option, std::strlen(option)) == 0;
}

bool ReadOption(const char* argument, bool& watcherAsked) {
    if (Begins(argument, "-f")) {
        foregroundMode = true;
    } else if (Begins(argument, "-Z")) {
        childMode = true;
    } else if (Begins(argument, "-W")) {
        watcherMode = true;
    } else if (Begins(argument, "-w")) {
        watcherAsked = true;
    } else {
        return false;
    }
    return true;
}

}  // namespace

bool ReadCommandLine(int argumentCount, const char* const* arguments) {
    bool watcherAsked = false;
    for (int i = 1; i < argumentCount; ++i) {
        if (!ReadOption(arguments[i], watcherAsked)) {
            return false;
        }
    }
    if (argumentCount > 1) {
        std::snprintf(configDir, sizeof(configDir), "%s", ConfigDirectoryPath);
        std::snprintf(configFile, sizeof(configFile), "%s",
                      watcherMode ? WatcherConfigPath : MainConfigPath);
        createWatcher = watcherAsked && !watcherMode;
    }
    return true;
}

void WriteUsage(std::ostream& out) {
    out << "Usage: kennly\n"
           "Optional arguments:\n"
           "    -w                  (to run a watchdog watcher)\n"
           "    -f                  (to run in foreground)\n";
}

}  // namespace kennly
