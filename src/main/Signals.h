#pragma once

namespace kennly {

/// The one signal handler of the program: sets `closingDown` and does nothing else.
void OnTerminate(int signal);

/// Makes a start under any launcher alike: SIGCHLD at its default (ignored, the exit statuses of
/// commands would be lost) and no signal blocked (a blocked SIGTERM would never arrive, and
/// commands inherit the mask). Comes after the dispositions of the role, because a signal that
/// waits behind the mask is delivered at once. Main thread only, before any other thread exists.
void ResetInheritedSignals();

/// The dispositions of a foreground process: SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR1 and SIGUSR2
/// end it in order, SIGPIPE is ignored. Main thread only.
void InstallForegroundSignals();

/// The dispositions of a child: SIGTERM ends it in order; SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1
/// and SIGUSR2 are ignored, in the commands that it starts as well. Main thread only.
void InstallChildSignals();

}  // namespace kennly
