#include "ctl/ChangeLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

#include "main/Paths.h"

namespace kennly {

ChangeLock::ChangeLock(std::chrono::seconds longest)
    : directory_(open(ConfigDirectoryPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (directory_.IsOpen() && !isHeld_) {
        isHeld_ = flock(directory_.Number(), LOCK_EX | LOCK_NB) == 0;
        if (isHeld_ || std::chrono::steady_clock::now() >= end) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace kennly
