#include "status/HeartbeatFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>

namespace kennly {

namespace {

double Seconds(const timespec& time) {
    constexpr double nanosecondsPerSecond = 1e9;
    return static_cast<double>(time.tv_sec) +
           static_cast<double>(time.tv_nsec) / nanosecondsPerSecond;
}

}  // namespace

HeartbeatFile LookAtHeartbeat(const std::string& path) {
    HeartbeatFile file;
    file.path = path;
    struct stat status = {};
    timespec now = {};
    if (stat(path.c_str(), &status) != 0) {
        file.hidden = errno != ENOENT && errno != ENOTDIR;
        return file;
    }
    clock_gettime(CLOCK_REALTIME, &now);
    file.exists = true;
    file.age = Seconds(now) - Seconds(status.st_mtim);
    return file;
}

}  // namespace kennly
