#include "main/Heartbeat.h"

#include <fcntl.h>
#include <unistd.h>

#include "main/Descriptor.h"
#include "main/Paths.h"
#include "main/ProcessState.h"

namespace kennly {

void WriteHeartbeat(const char* path) noexcept {
    constexpr mode_t readableAndWritableByAll = 0666;
    const Descriptor file(open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY,
                               readableAndWritableByAll));
    if (!file.IsOpen()) {
        return;
    }
    // A write that fails leaves the file as it was, and the stale time is what others look at.
    [[maybe_unused]] const ssize_t written = write(file.Number(), " ", 1);
}

void WriteParentHeartbeat() noexcept {
    WriteHeartbeat(watcherMode ? WatcherParentHeartbeatPath : ParentHeartbeatPath);
}

void WriteChildHeartbeat() noexcept {
    WriteHeartbeat(watcherMode ? WatcherChildHeartbeatPath : ChildHeartbeatPath);
}

}  // namespace kennly
