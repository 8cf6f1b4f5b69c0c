#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "support/KeptConfigurations.h"

namespace kennly::test {

/// A directory of its own for one test; removed with all its content at the end.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = std::filesystem::temp_directory_path() / "kennly-test-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary directory: " + pattern);
        }
        path_ = pattern;
    }

    ~TemporaryDirectory() {
        std::error_code ignored;  // the worst that can stay behind is an empty directory
        std::filesystem::remove_all(path_, ignored);
    }

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    /// The path of the entry `name`; need not exist.
    std::string Path(const std::string& name) const { return path_ / name; }

    /// Writes a file and returns its path.
    std::string Write(const std::string& name, const std::string& content) const {
        KeepConfiguration(name, content);
        std::ofstream file(Path(name), std::ios::binary | std::ios::trunc);
        file << content;
        if (!file.flush()) {
            throw std::runtime_error("cannot write " + Path(name));
        }
        return Path(name);
    }

    /// Sets the modification time of the entry `name`. Returns false when the file system cannot
    /// store it.
    bool SetTime(const std::string& name, std::time_t seconds, long nanoseconds = 0) const {
        const timespec time = {seconds, nanoseconds};
        const std::array<timespec, 2> accessAndModification = {time, time};
        struct stat status = {};
        return utimensat(AT_FDCWD, Path(name).c_str(), accessAndModification.data(), 0) == 0 &&
               stat(Path(name).c_str(), &status) == 0 && status.st_mtime == seconds;
    }

    /// The content of the file `name`; empty when there is none.
    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path path_;
};

}  // namespace kennly::test
