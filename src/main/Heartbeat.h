#pragma once

namespace kennly {

/// Refreshes the heartbeat file at `path`: one blank at its start. Only the modification time tells
/// anything; longer content keeps all but its first byte.
///
/// Creates the file if need be, with permissions 0666 less the umask, but never its directory.
/// Every failure is silent. Never blocks on a file that is not a regular one. Main thread only.
void WriteHeartbeat(const char* path) noexcept;

/// WriteHeartbeat for the parent of this process's tree.
void WriteParentHeartbeat() noexcept;

/// WriteHeartbeat for the child, or the foreground process, of this process's tree.
void WriteChildHeartbeat() noexcept;

}  // namespace kennly
