#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "main/Paths.h"
#include "support/SandboxDescriptor.h"

namespace kennly::test {

/// A process that has the daemon's data directory to itself: nothing of it is seen by others, and
/// those of the machine are covered. Each test begins with an empty one.
class OwnDataTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        static const std::string failure = CoverData();
        ASSERT_EQ(failure, "");
    }

    void SetUp() override {
        for (const auto& entry : std::filesystem::directory_iterator(Data())) {
            std::filesystem::remove_all(entry.path());
        }
        std::filesystem::create_directories(Data() / "config/filetimes");
        std::filesystem::create_directories(Data() / "heartbeats");
    }

    static std::filesystem::path Data() {
        return std::filesystem::path(ConfigDirectoryPath).parent_path();
    }
    static void Write(const std::string& path, const std::string& content) {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file << content;
        ASSERT_TRUE(file.flush()) << path;
    }
    static void Age(const std::string& path, std::time_t seconds) {
        const timespec time = {std::time(nullptr) - seconds, 0};
        const std::array<timespec, 2> times = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0) << path;
    }

private:
    static bool WriteMap(const char* path, const std::string& text) {
        const Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
        return write(file.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }
    static std::string EnterNamespace() {
        const std::string user = std::to_string(geteuid());
        const std::string group = std::to_string(getegid());
        if (unshare(CLONE_NEWNS) == 0) {
            return "";
        }
        if (unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0 ||
            !WriteMap("/proc/self/setgroups", "deny") ||
            !WriteMap("/proc/self/uid_map", user + " " + user + " 1") ||
            !WriteMap("/proc/self/gid_map", group + " " + group + " 1")) {
            return std::string("no namespace: ") + std::strerror(errno);
        }
        return "";
    }
    static std::string CoverData() {
        std::filesystem::path existing = Data();
        while (!std::filesystem::is_directory(existing)) {
            existing = existing.parent_path();
        }
        if (existing == "/") {
            return "no directory above the data directory exists but the root";
        }
        const std::string failure = EnterNamespace();
        if (!failure.empty()) {
            return failure;
        }
        if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", existing.c_str(), "tmpfs", 0, "mode=0755") != 0) {
            return std::string("cannot cover ") + existing.string() + ": " + std::strerror(errno);
        }
        std::filesystem::create_directories(Data());
        return "";
    }
};

/// Job elements and whole configurations, as the loader takes them.
inline std::string CommandJob(const std::string& name, const std::string& check,
                              const std::string& remedy = "true",
                              const std::string& remedyAttributes = "") {
    return "<job enabled='true' name=\"" + name +
           "\"><check type='CheckCommandResult' delay='30'><param value=\"" + check +
           "\"/></check><remedy type='Execute' " + remedyAttributes + "><param value=\"" + remedy +
           "\"/></remedy></job>";
}
inline std::string FileJob(const std::string& name, const std::string& path) {
    return "<job enabled='true' name=\"" + name +
           "\"><check type='CheckForFileChange' delay='30'><param value=\"" + path +
           "\"/></check><remedy type='Execute'><param value='true'/></remedy></job>";
}
inline std::string RootOf(const std::string& jobs) {
    return "<kennly>" + jobs + "</kennly>";
}

}  // namespace kennly::test
