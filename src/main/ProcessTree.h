#pragma once

namespace kennly {

// How one started process becomes a tree. With -w the parent starts two more: the child, which does
// the work, and the watcher starter, which is the first process of an independent tree.
//
//     first process            started by the administrator; exits once the parent exists
//     parent                   a session of its own
//       |- watcher starter     this program with -W added; the first process of the watcher tree
//       |    watcher parent    a session of its own
//       |      `- watcher child    its options with -Z added
//       `- child               this program with -Z added
//
// All of it belongs to the main thread, the only one of a parent. The caller holds signals
// (HoldSignals); what is executed here inherits that, so that a signal meant for it waits for its
// handlers.

/// Whether the arguments of this process, the program's path among them, leave room for the option
/// that a parent adds when it executes the program again: for the child and, if `createWatcher` is
/// set, for the watcher's child, which is two executions away.
bool ArgumentsFit(int argumentCount);

/// Goes on in a new process with a session of its own; the calling one exits with status 0 and
/// without a line, and hands on a SIGTERM that waits. If there is no new process, logs "main -
/// cannot fork" and exits with status 1.
void DetachFromStarter();

/// Starts the watcher tree: executes the program again, under the path `arguments[0]` and without a
/// search of PATH, with "-W" after its own arguments, which must fit. The process is not kept track
/// of.
///
/// Exits with status 1 after "create_watchdogwatcher - cannot fork". When the program cannot be
/// executed the new process logs "create_watchdogwatcher - cannot execv" and exits with status 1;
/// the caller does not learn of it.
void create_watchdogwatcher(int argumentCount, char* const* arguments);

/// Starts the child in the same way, with "-Z", and stores its number in `childPid`. The child is
/// sent SIGTERM by the kernel when this process dies, however it does.
///
/// Deliberate: exits with status 0, not 1, after "createchildprocess - cannot fork". When the
/// program cannot be executed the new process logs "createchildprocess - cannot execv" and exits
/// with status 1; the caller lives on without a child.
void createchildprocess(int argumentCount, char* const* arguments);

}  // namespace kennly
