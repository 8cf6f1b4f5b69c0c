#include "status/DaemonLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <utility>

#include "main/Descriptor.h"
#include "main/ReadToEnd.h"

namespace kennly {

namespace {

off_t SizeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_size : 0;
}

// "... kennly: 4711:C : text": what stands before the identity depends on the collector.
std::optional<std::string> TextIn(const std::string& line, pid_t process) {
    const std::string mark = "kennly: " + std::to_string(process) + ":";
    const std::size_t begin = line.find(mark);
    if (begin == std::string::npos) {
        return std::nullopt;
    }
    const std::string afterRole = ": ";
    const std::size_t end = line.find(afterRole, begin + mark.size());
    return end != std::string::npos ? std::optional(line.substr(end + afterRole.size()))
                                    : std::nullopt;
}

}  // namespace

DaemonLog::DaemonLog(std::string path) : path_(std::move(path)), end_(SizeOf(path_)) {}

std::optional<std::vector<std::string>> DaemonLog::NewTexts(pid_t process) const {
    // Without O_NONBLOCK, opening a FIFO that nobody writes to would never return.
    const Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::string content;
    const bool wasRotated = SizeOf(path_) < end_;
    if (!file.IsOpen() || lseek(file.Number(), wasRotated ? 0 : end_, SEEK_SET) < 0 ||
        !ReadToEnd(file.Number(), content)) {
        return std::nullopt;
    }
    std::vector<std::string> texts;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        if (const auto text = TextIn(line, process)) {
            texts.push_back(*text);
        }
    }
    return texts;
}

}  // namespace kennly
