#pragma once

#include <string>

#include "ctl/Output.h"

namespace kennly {

struct StartOptions {
    enum class Trees { Both, Main, Watcher };

    std::string program;  // by its absolute path, as it executes itself again
    Trees trees = Trees::Both;
};

/// Starts the main tree in the background, waits until its processes beat, and then the watcher
/// tree likewise; says which they are. What runs already is left alone. Both means that there is no
/// watcher tree without a configuration for it, nor beside a main tree in the foreground. Others
/// that start at the same time wait. The daemon works in this process's directory, and has none of
/// its descriptors but the standard ones.
///
/// Returns ExitClean when all that was asked for runs, ExitFindings when something does not, with a
/// sentence; ExitNoInput without the program, ExitSystem when it cannot be started,
/// ExitNoPermission when this user cannot see whether it runs already. Main thread only.
int RunStartVerb(const StartOptions& options, const Output& output);

}  // namespace kennly
