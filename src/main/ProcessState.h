#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kennly {

// What the whole process shares. Unless said otherwise the main thread writes each value during
// start-up, before any other thread exists. Nothing here has a destructor, so pool threads that
// still run while the process exits never meet a destroyed value.

/// The room for a path in `configDir` and `configFile`, in bytes with the terminating NUL.
inline constexpr std::size_t PathRoom = 512;

/// Option -f: one process without a parent of its own, which is also not watched for one.
extern bool foregroundMode;

/// Option -Z: this process is the child of a tree.
extern bool childMode;

/// Option -W: this process belongs to the watcher tree.
extern bool watcherMode;

/// Option -w without -W: the parent also starts the watcher tree.
extern bool createWatcher;

/// The configuration directory; empty when the process was started without arguments.
extern char configDir[PathRoom];

/// The configuration file of this process's tree; empty like `configDir`.
extern char configFile[PathRoom];

/// How many failed load cycles in a row are tolerated; the next one more ends the process.
/// Written by the main thread whenever a loaded file sets it.
extern std::int32_t maxLoadErrors;

/// No cycle of the child loop has ended yet, so there can be no pool to tear down.
extern bool firstLoad;

/// The process is shutting down. Set by the signal handler and by the child loop; any thread polls
/// it after each pause and each wait.
extern std::atomic<bool> closingDown;

/// The child loop is tearing the pool down for a reload; jobs, checks and remedies end early.
/// Written by the main thread, polled by any thread.
extern std::atomic<bool> tidyingThreadPool;

static_assert(std::atomic<bool>::is_always_lock_free,
              "a signal handler may only touch lock-free flags");

/// The id of the child that a parent has started; -1 until then.
extern pid_t childPid;

}  // namespace kennly
