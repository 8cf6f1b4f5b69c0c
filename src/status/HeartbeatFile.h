#pragma once

#include <string>

namespace kennly {

/// Older than this, in seconds, a heartbeat is stale: its process beats once a second, and pauses
/// for five after a load.
inline constexpr double StaleSeconds = 6;

/// A heartbeat file as it is at the moment.
struct HeartbeatFile {
    std::string path;
    bool exists = false;
    bool hidden = false;  // nor can this process know whether it is there
    double age = 0;       // seconds; negative when its time lies in the future

    /// Whether its process has refreshed it lately. A clock that has been set back makes no
    /// heartbeat fresh: one that is refreshed follows the clock.
    bool IsFresh() const { return exists && age <= StaleSeconds && age >= -StaleSeconds; }
};

/// Any thread may call it.
HeartbeatFile LookAtHeartbeat(const std::string& path);

}  // namespace kennly
