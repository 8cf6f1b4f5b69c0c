#include "status/ProcFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <sstream>

#include "main/Descriptor.h"
#include "main/ReadToEnd.h"

namespace kennly {

namespace {

std::string ProcPath(pid_t process, const std::string& name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

std::vector<pid_t> NumbersIn(const std::string& directory) {
    std::vector<pid_t> numbers;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        const std::string name = entry->path().filename();
        pid_t number = 0;
        const auto [end, failure] = std::from_chars(name.data(), name.data() + name.size(), number);
        if (failure == std::errc() && end == name.data() + name.size()) {
            numbers.push_back(number);
        }
        entry.increment(error);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::optional<ProcStat> ReadStat(pid_t process, const std::string& file) {
    const std::optional<std::string> content = ReadProcFile(process, file);
    if (!content) {
        return std::nullopt;
    }
    // The name may hold anything, blanks and parentheses too; it ends with the last of those.
    const std::size_t begin = content->find('(');
    const std::size_t end = content->rfind(')');
    if (begin == std::string::npos || end == std::string::npos || end < begin) {
        return std::nullopt;
    }
    ProcStat stat;
    stat.name = content->substr(begin + 1, end - begin - 1);
    std::istringstream rest(content->substr(end + 1));
    std::string skipped;
    rest >> stat.state >> stat.parent >> skipped >> stat.session;
    constexpr int fieldsBeforeThreads = 13;
    for (int i = 0; i < fieldsBeforeThreads; ++i) {
        rest >> skipped;
    }
    rest >> stat.threads >> skipped >> stat.startTicks;
    if (!rest) {
        return std::nullopt;
    }
    return stat;
}

}  // namespace

std::optional<std::string> ReadProcFile(pid_t process, const std::string& name) {
    const Descriptor file(open(ProcPath(process, name).c_str(), O_RDONLY | O_CLOEXEC));
    std::string content;
    if (!file.IsOpen() || !ReadToEnd(file.Number(), content)) {
        return std::nullopt;
    }
    return content;
}

std::string ReadProcStatus(pid_t process, const std::string& field) {
    std::istringstream lines(ReadProcFile(process, "status").value_or(""));
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0) {
            return line.substr(field.size() + 1);
        }
    }
    return "";
}

std::optional<std::string> ReadProcLink(pid_t process, const std::string& name) {
    std::array<char, 4096> target = {};
    const ssize_t size = readlink(ProcPath(process, name).c_str(), target.data(), target.size());
    if (size < 0) {
        return std::nullopt;
    }
    return std::string(target.data(), static_cast<std::size_t>(size));
}

std::optional<std::vector<std::string>> ReadProcTexts(pid_t process, const std::string& name) {
    const std::optional<std::string> content = ReadProcFile(process, name);
    if (!content) {
        return std::nullopt;
    }
    std::vector<std::string> texts;
    std::istringstream rest(*content);
    for (std::string text; std::getline(rest, text, '\0');) {
        texts.push_back(text);
    }
    return texts;
}

std::vector<pid_t> AllProcesses() {
    return NumbersIn("/proc");
}

std::vector<pid_t> ThreadsOf(pid_t process) {
    return NumbersIn(ProcPath(process, "task"));
}

std::optional<ProcStat> ReadProcStat(pid_t process) {
    return ReadStat(process, "stat");
}

std::optional<ProcStat> ReadThreadStat(pid_t process, pid_t thread) {
    return ReadStat(process, "task/" + std::to_string(thread) + "/stat");
}

std::optional<int> ThreadsInPause(pid_t process) {
    int pausing = 0;
    bool isKnown = false;
    for (const pid_t thread : ThreadsOf(process)) {
        const std::string file = "task/" + std::to_string(thread) + "/wchan";
        const std::string function = ReadProcFile(process, file).value_or("");
        // It says "0" for a thread that runs, and for all threads to whom it does not tell.
        isKnown = isKnown || (!function.empty() && function != "0");
        const bool pauses = function.find("nanosleep") != std::string::npos;
        pausing += pauses && thread != process ? 1 : 0;
    }
    return isKnown ? std::optional(pausing) : std::nullopt;
}

double SecondsSince(std::uint64_t startTicks) {
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    constexpr double nanosecondsPerSecond = 1e9;
    const double seconds =
        static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / nanosecondsPerSecond -
        static_cast<double>(startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return std::max(seconds, 0.0);
}

}  // namespace kennly
