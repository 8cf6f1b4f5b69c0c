#include "config/FileTime.h"

#include <sys/stat.h>
#include <sys/types.h>

namespace kennly {

static_assert(sizeof(std::time_t) == 8, "a clock of 32 bits ends in January 2038");
static_assert(sizeof(off_t) == 8, "the time of a file of more than 2 GiB could not be asked for");

bool GetFileTime(const std::string& path, std::int32_t& seconds) {
    seconds = 0;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return false;
    }
    seconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(status.st_mtime));
    return true;
}

}  // namespace kennly
