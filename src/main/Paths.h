#pragma once

namespace kennly {

/// The directory of the configuration files and of the directory "filetimes".
inline constexpr char ConfigDirectoryPath[] = "/opt/qrv/data/kennly/config";

/// What the main tree loads its jobs from.
inline constexpr char MainConfigPath[] = "/opt/qrv/data/kennly/config/kennly.xml";

/// What the watcher tree loads its jobs from.
inline constexpr char WatcherConfigPath[] = "/opt/qrv/data/kennly/config/dogdog.xml";

/// Refreshed by the parent of the main tree.
inline constexpr char ParentHeartbeatPath[] = "/opt/qrv/data/kennly/heartbeats/parent";

/// Refreshed by the child of the main tree, and by a foreground process.
inline constexpr char ChildHeartbeatPath[] = "/opt/qrv/data/kennly/heartbeats/child";

/// Refreshed by the parent of the watcher tree.
inline constexpr char WatcherParentHeartbeatPath[] =
    "/opt/qrv/data/kennly/heartbeats/watcherparent";

/// Refreshed by the child of the watcher tree, and by a foreground process that was given -W.
inline constexpr char WatcherChildHeartbeatPath[] = "/opt/qrv/data/kennly/heartbeats/watcherchild";

}  // namespace kennly
