#pragma once

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace kennly::test {

/// Larger configurations are not kept: they try how much memory or how many threads there are.
inline constexpr std::size_t LargestKeptConfiguration = std::size_t{256} * 1024;

/// Keeps what a test writes to a configuration file, for the test that compares what kennlyctl and
/// the daemon say of each.
///
/// Files are taken for configurations by "<name>.xml" in their path. Nothing is kept unless the
/// environment names the file to keep it in, KENNLY_CONFIGURATIONS: each content once, as its size
/// in decimal, a newline and its bytes. That file is begun anew by each process.
///
/// Any thread may call it. Failures are silent: whoever reads the file notices.
inline void KeepConfiguration(const std::string& path, const std::string& content) {
    const char* const keptIn = std::getenv("KENNLY_CONFIGURATIONS");
    if (keptIn == nullptr || path.find(".xml") == std::string::npos ||
        content.size() > LargestKeptConfiguration) {
        return;
    }
    static std::mutex lock;
    static std::set<std::size_t> kept;
    const std::lock_guard<std::mutex> held(lock);
    // Not left open between two calls: some tests count the descriptors.
    std::ofstream file(keptIn, std::ios::binary | (kept.empty() ? std::ios::trunc : std::ios::app));
    if (kept.insert(std::hash<std::string>()(content)).second) {
        file << std::to_string(content.size()) + "\n" + content;
    }
}

/// What has been kept in a file, without an incomplete last one; nothing when there is no file.
inline std::vector<std::string> KeptConfigurations(const std::string& keptIn) {
    std::ifstream file(keptIn, std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::string> contents;
    std::size_t at = 0;
    for (std::size_t end = 0; (end = all.find('\n', at)) != std::string::npos;) {
        const std::size_t size = std::stoul(all.substr(at, end - at));
        if (size > all.size() - end - 1) {
            break;
        }
        contents.push_back(all.substr(end + 1, size));
        at = end + 1 + size;
    }
    return contents;
}

}  // namespace kennly::test
