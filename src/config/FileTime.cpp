#include "config/FileTime.h"

#include <sys/stat.h>

namespace kennly {

bool GetFileTime(const std::string& path, std::int32_t& seconds) {
    seconds = 0;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return false;
    }
    // Times are compared for equality and recorded in 4 bytes, so the low 32 bits are what counts.
    seconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(status.st_mtime));
    return true;
}

}  // namespace kennly
