#pragma once

#include <dirent.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace kennly::test {

// What /proc tells about a process, by its number outside of the sandbox.

/// A file of the process; empty when it is gone.
inline std::string ProcessFile(pid_t process, const std::string& name) {
    std::ifstream file("/proc/" + std::to_string(process) + "/" + name);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

/// The value of a field in one of its files, without the blanks before; empty when it is gone.
inline std::string FieldOf(pid_t process, const std::string& file, const std::string& field) {
    std::istringstream status(ProcessFile(process, file));
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return line.substr(line.find_first_not_of(" \t", field.size() + 1));
        }
    }
    return "";
}

/// The value of a field of its status.
inline std::string StatusField(pid_t process, const std::string& field) {
    return FieldOf(process, "status", field);
}

/// The memory that it takes up, in KiB; 0 when it is gone.
inline double ResidentKiB(pid_t process) {
    return std::atof(StatusField(process, "VmRSS").c_str());
}

/// Its number as it sees it itself.
inline std::string NumberInside(pid_t process) {
    const std::string numbers = StatusField(process, "NSpid");
    return numbers.substr(numbers.find_last_of(" \t") + 1);
}

/// Whether a signal stands in a set as `text` gives it, in hexadecimal digits.
inline bool HasSignal(const std::string& text, int signal) {
    const std::uint64_t set = text.empty() ? 0 : std::stoull(text, nullptr, 16);
    return (set >> (signal - 1) & 1U) != 0;
}

inline bool Ignores(pid_t process, int signal) {
    return HasSignal(StatusField(process, "SigIgn"), signal);
}

/// Whether the tests run the program under any sanitizer, as scripts/sanitize.sh tells them: it has
/// an allocator of its own then, and takes memory and address space like a much larger one.
inline bool RunsUnderSanitizer() {
    return std::getenv("KENNLY_TESTS_SANITIZER") != nullptr;
}

/// Whether it is the thread sanitizer, which adds a thread of its own.
inline bool RunsUnderThreadSanitizer() {
    const char* const kind = std::getenv("KENNLY_TESTS_SANITIZER");
    return kind != nullptr && std::string(kind) == "tsan";
}

/// Whether a thread may be that one: it is not the first, and blocks signals. So does, for an
/// instant, a thread that starts a command.
inline bool MayBeOfSanitizer(pid_t process, const std::string& thread) {
    return RunsUnderThreadSanitizer() && thread != std::to_string(process) &&
           HasSignal(FieldOf(process, "task/" + thread + "/status", "SigBlk"), SIGUSR1);
}

/// The value of a field of the status of each of its threads, by the thread's number.
inline std::map<pid_t, std::string> StatusFieldOfThreads(pid_t process, const std::string& field) {
    std::map<pid_t, std::string> values;
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    bool leftOut = false;
    std::error_code ended;  // it, or a thread of it
    for (const auto& task : std::filesystem::directory_iterator(tasks, ended)) {
        const std::string thread = task.path().filename();
        if (!leftOut && MayBeOfSanitizer(process, thread)) {
            leftOut = true;
        } else {
            values[static_cast<pid_t>(std::stol(thread))] =
                FieldOf(process, "task/" + thread + "/status", field);
        }
    }
    return values;
}

/// The numbers of its threads; none when it is gone.
inline std::set<pid_t> ThreadNumbers(pid_t process) {
    std::set<pid_t> threads;
    for (const auto& [thread, number] : StatusFieldOfThreads(process, "Pid")) {
        threads.insert(thread);
    }
    return threads;
}

/// How many they are. Without the thread sanitizer, it is told faster than which.
inline int ThreadCount(pid_t process) {
    if (RunsUnderThreadSanitizer()) {
        return static_cast<int>(ThreadNumbers(process).size());
    }
    return std::atoi(StatusField(process, "Threads").c_str());
}

/// The blocked signals of each of its threads, in hexadecimal digits.
inline std::vector<std::string> BlockedSignalsOfThreads(pid_t process) {
    std::vector<std::string> blocked;
    for (const auto& [thread, signals] : StatusFieldOfThreads(process, "SigBlk")) {
        blocked.push_back(signals);
    }
    return blocked;
}

/// Its open descriptors and what they refer to.
inline std::map<int, std::string> OpenDescriptors(pid_t process) {
    std::map<int, std::string> descriptors;
    const std::string path = "/proc/" + std::to_string(process) + "/fd/";
    DIR* const directory = opendir(path.c_str());
    if (directory == nullptr) {
        return descriptors;
    }
    while (const dirent* const entry = readdir(directory)) {
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name == "." || name == "..") {
            continue;
        }
        std::array<char, 256> target = {};
        if (readlink((path + name).c_str(), target.data(), target.size() - 1) >= 0) {
            descriptors[std::stoi(name)] = target.data();
        }
    }
    closedir(directory);
    return descriptors;
}

/// Whether it has nothing open but the system log, which the first line opens.
inline bool HasOnlyTheLogOpen(pid_t process) {
    const std::map<int, std::string> open = OpenDescriptors(process);
    return open.empty() || (open.size() == 1 && open.begin()->second.rfind("socket:", 0) == 0);
}

}  // namespace kennly::test
