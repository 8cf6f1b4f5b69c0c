#include "main/Daemon.h"

#include <unistd.h>

#include <ctime>
#include <initializer_list>
#include <iostream>

#include "main/ChildMain.h"
#include "main/CommandLine.h"
#include "main/Heartbeat.h"
#include "main/Log.h"
#include "main/ParentMain.h"
#include "main/ProcessState.h"
#include "main/ProcessTree.h"
#include "main/Signals.h"
#include "sync/ThreadStack.h"

namespace kennly {

namespace {

void ForgetRole() {
    childPid = -1;
    roleTag = "??";
    childMode = false;
    watcherMode = false;
    createWatcher = false;
}

const char* TagOfRole() {
    if (foregroundMode) {
        return "  ";
    }
    if (childMode) {
        return watcherMode ? "WC" : "C ";
    }
    return watcherMode ? "WP" : "P ";
}

bool ReadArguments(int argumentCount, char** arguments) {
    try {
        if (ReadCommandLine(argumentCount, arguments)) {
            return true;
        }
        WriteUsage(std::cerr);
    } catch (...) {
        LogError("exception while parsing arguments!");
    }
    return false;
}

// From here on nothing is written to a terminal, in the foreground neither.
void CloseStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        close(descriptor);
    }
}

[[noreturn]] void RunAsParent(int argumentCount, char** arguments) {
    if (!ArgumentsFit(argumentCount)) {
        LogErrorAndExit(1, "too many arguments");
    }
    DetachFromStarter();
    WriteParentHeartbeat();
    InstallParentSignals();
    if (createWatcher) {
        create_watchdogwatcher(argumentCount, arguments);
    }
    createchildprocess(argumentCount, arguments);
    ReleaseSignals();
    parent_main();
}

[[noreturn]] void RunAsChild() {
    WriteChildHeartbeat();
    if (foregroundMode) {
        InstallForegroundSignals();
    }
    if (childMode) {
        InstallChildSignals();
    }
    ReleaseSignals();
    tzset();
    SetThreadStack();  // if it is refused, fewer jobs fit into the address space
    child_main();
}

}  // namespace

int RunDaemon(int argumentCount, char** arguments) {
    try {
        OpenLog();
        ForgetRole();
        if (!ReadArguments(argumentCount, arguments)) {
            return 1;
        }
        roleTag = TagOfRole();
        HoldSignals();  // until those of the role are in place
        CloseStandardDescriptors();
        if (!childMode && !foregroundMode) {
            RunAsParent(argumentCount, arguments);
        }
        RunAsChild();
    } catch (...) {
        LogError("exception in parent_main or child_main!");
    }
    return 1;
}

}  // namespace kennly
