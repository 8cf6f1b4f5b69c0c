#include "lint/FileContent.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "main/Descriptor.h"
#include "main/ReadToEnd.h"

namespace kennly {

std::optional<std::string> ReadFile(const std::string& path) {
    // Without O_NONBLOCK, opening a FIFO that nobody writes to would never return.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Number(), &status) != 0) {
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return std::nullopt;
    }
    std::string content;
    if (!ReadToEnd(file.Number(), content)) {
        return std::nullopt;
    }
    return content;
}

std::string ContentOf(const std::string& path) {
    return ReadFile(path).value_or("");
}

}  // namespace kennly
