#pragma once

#include <cstdint>

namespace kennly {

/// The role of this process, two characters printed in every line: "??" before the command line has
/// been read, two blanks in the foreground, "P " and "C " for parent and child of the main tree,
/// "WP" and "WC" for those of the watcher tree.
///
/// Threads: written by the main thread during start-up only.
extern const char* roleTag;

/// Opens the connection to the system log: identity "kennly", facility LOG_LOCAL4, no options. The
/// process id stands in each line because four processes of this program share the identity.
void OpenLog();

/// Writes one line at priority LOG_ERR: "PID:ROLE: a b c d" and a newline, the texts joined by
/// single blanks. Texts are printed as they stand (a percent sign has no meaning) and must not be
/// null.
///
/// Any thread may call it. It reports nothing back and lets no exception out: losing a line is
/// better than losing the daemon. While a log is there but takes no lines, the caller waits.
void LogError(const char* a) noexcept;
void LogError(const char* a, const char* b) noexcept;
void LogError(const char* a, const char* b, const char* c) noexcept;
void LogError(const char* a, const char* b, const char* c, const char* d) noexcept;

/// As LogError, at priority LOG_DEBUG.
void LogDebug(const char* a) noexcept;
void LogDebug(const char* a, const char* b) noexcept;
void LogDebug(const char* a, const char* b, const char* c) noexcept;
void LogDebug(const char* a, const char* b, const char* c, const char* d) noexcept;

/// Writes "PID:ROLE exit(status)" at priority LOG_DEBUG, closes the log and ends the process with
/// `status`, running static destructors and atexit handlers. Main thread only.
///
/// A log that has not taken the line within five seconds does not hold up the end: the process ends
/// with `status` then and there.
///
/// Deliberate: this one line has neither a colon after the role nor a newline.
[[noreturn]] void LogExit(std::int32_t status);

/// LogError, then LogExit, for a process that cannot go on. Main thread only.
///
/// A log that has not taken the first line within five seconds does not hold up the end either.
[[noreturn]] void LogErrorAndExit(std::int32_t status, const char* text);

}  // namespace kennly
