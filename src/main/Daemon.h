#pragma once

namespace kennly {

/// The whole program: opens the log, reads the options, takes the role that they ask for and plays
/// it.
///
/// Returns the exit status for main: 1 after the usage text or an exception. Every other way ends
/// the process inside, through LogExit. Never throws.
int RunDaemon(int argumentCount, char** arguments);

}  // namespace kennly
