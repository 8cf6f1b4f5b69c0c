#pragma once

namespace kennly {

/// The work loop of a parent; ends the process.
///
/// Once a second: reap whatever child process has ended, and write the heartbeat. The child is
/// never started anew: checks of the other tree look at the heartbeats. After SIGTERM, asks the
/// child to end, gives it ten seconds, kills it if need be, and ends with status 0. Main thread
/// only.
[[noreturn]] void parent_main();

/// Whether the child has ended and has been reaped before. Never waits.
///
/// Deliberate: the call that reaps it still returns false, as for one that runs.
bool IsChildGone();

}  // namespace kennly
