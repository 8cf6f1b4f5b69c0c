#pragma once

namespace kennly {

/// The one signal handler of the program: sets `closingDown` and does nothing else.
void OnTerminate(int signal);

/// Has every signal wait until ReleaseSignals, across forks and executions too: none may end this
/// process before its handlers are in place, and none may be lost in a process that is about to
/// execute the program again. (A forked process starts with none that waits.) Main thread only,
/// while there is no other.
void HoldSignals();

/// Blocks no signal any more, also none that the launcher has blocked: a blocked SIGTERM would
/// never arrive, and commands inherit the mask. What has waited is delivered at once, and so this
/// comes after the dispositions of the role. Main thread only, before any other thread exists.
void ReleaseSignals();

// Each of the following also puts SIGCHLD at its default: a launcher may have left it ignored, and
// then the exit statuses of children would be lost.

/// The dispositions of a parent: SIGTERM ends it in order; SIGINT, SIGQUIT, SIGHUP, SIGPIPE,
/// SIGUSR1 and SIGUSR2 are ignored. Main thread only.
void InstallParentSignals();

/// The dispositions of a foreground process: SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR1 and SIGUSR2
/// end it in order, SIGPIPE is ignored. Main thread only.
void InstallForegroundSignals();

/// The dispositions of a child, the same as those of a parent. What is ignored is ignored in the
/// commands that it starts as well. Main thread only.
void InstallChildSignals();

}  // namespace kennly
