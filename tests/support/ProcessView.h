#pragma once

#include <dirent.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
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

/// The value of a field of the status of each of its threads, by the thread's number.
inline std::map<pid_t, std::string> StatusFieldOfThreads(pid_t process, const std::string& field) {
    std::map<pid_t, std::string> values;
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    std::error_code ended;  // it, or a thread of it
    for (const auto& task : std::filesystem::directory_iterator(tasks, ended)) {
        const std::string thread = task.path().filename();
        values[static_cast<pid_t>(std::stol(thread))] =
            FieldOf(process, "task/" + thread + "/status", field);
    }
    return values;
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

}  // namespace kennly::test
