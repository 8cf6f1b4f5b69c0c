#pragma once

#include <sys/stat.h>
#include <syslog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/Sandbox.h"
#include "support/SandboxPolling.h"
#include "system/Configuration.h"
#include "system/ProcessView.h"

namespace kennly::test {

/// For what has to happen, however busy the machine is.
inline constexpr std::chrono::seconds Generous(30);

/// For what has to happen at once.
inline constexpr std::chrono::seconds Prompt(3);

inline const std::string MainConfiguration = DataDirectory + "/config/kennly.xml";
inline const std::string WatcherConfiguration = DataDirectory + "/config/dogdog.xml";
inline const std::string ChildHeartbeat = DataDirectory + "/heartbeats/child";
inline const std::string WatcherChildHeartbeat = DataDirectory + "/heartbeats/watcherchild";

/// A sandbox with the real program in it, seen as an administrator sees it.
///
/// A line of the log is given as "kennly local4.err 12:  : text\n", with identity, facility and
/// severity, and the exact bytes. Prints the whole log when a test has failed.
class DaemonTest : public ::testing::Test {
protected:
    using Clock = std::chrono::steady_clock;

    void SetUp() override {
        std::string error;
        sandbox = Sandbox::Create(error);
        ASSERT_TRUE(sandbox) << error;
    }

    void TearDown() override {
        if (HasFailure() && sandbox) {
            std::cout << "the system log:\n" << DescribeLog(sandbox->Log());
        }
    }

    // ---- files

    /// Puts a configuration file in its place at once, ten seconds newer than the one before.
    void Configure(const std::string& content, const std::string& path = MainConfiguration) {
        fileTime += 10;
        ConfigureAt(fileTime, content, path);
    }

    /// The same, with a modification time.
    void ConfigureAt(std::time_t time, const std::string& content,
                     const std::string& path = MainConfiguration) {
        const std::string draft = path + ".draft";
        ASSERT_TRUE(sandbox->WriteFile(draft, content));
        ASSERT_TRUE(sandbox->SetFileTime(draft, time));
        std::filesystem::rename(sandbox->PathInside(draft), sandbox->PathInside(path));
    }

    /// The times, in nanoseconds, that commands have appended to a trace.
    std::vector<std::int64_t> TracesOf(const std::string& name) const {
        std::istringstream content(sandbox->ReadFile(TracePath(name)).value_or(""));
        std::vector<std::int64_t> times;
        std::string line;
        while (std::getline(content, line) && !content.eof()) {  // only lines with their end
            times.push_back(std::stoll(line));
        }
        return times;
    }

    bool WaitForTraces(const std::string& name, std::size_t count) const {
        return WaitUntil([&] { return TracesOf(name).size() >= count; }, Generous);
    }

    /// The modification time in nanoseconds, 0 when there is no such file.
    std::int64_t TimeOf(const std::string& path) const {
        struct stat status = {};
        if (stat(sandbox->PathInside(path).c_str(), &status) != 0) {
            return 0;
        }
        return status.st_mtim.tv_sec * std::int64_t{1000000000} + status.st_mtim.tv_nsec;
    }

    /// Waits until a heartbeat is newer than `time`.
    bool WaitForHeartbeat(std::int64_t time = 0, const std::string& path = ChildHeartbeat) const {
        return WaitUntil([&] { return TimeOf(path) > time; }, Generous);
    }

    // ---- the daemon

    void StartDaemon(const std::vector<std::string>& options = {"-f"},
                     const StartOptions& start = {}) {
        std::vector<std::string> command = {KENNLY_PROGRAM};
        command.insert(command.end(), options.begin(), options.end());
        started = Clock::now();
        daemon = sandbox->Start(command, start);
        number = NumberInside(daemon->Pid());
    }

    /// The raw wait status of the daemon; nothing when it has not ended within the limit.
    std::optional<int> EndOfDaemon(std::chrono::seconds limit = Generous) {
        return daemon->WaitForEnd(limit);
    }

    /// Ends the daemon as an administrator does. Its last line has been recorded then.
    void StopDaemon() {
        ASSERT_TRUE(daemon->Signal(SIGTERM)) << "the daemon runs no longer";
        ASSERT_EQ(EndOfDaemon(Prompt), std::optional<int>(0));
        EXPECT_TRUE(WaitForLine(Exit(0)));
    }

    /// Waits until no command runs and none is about to be forgotten: while one runs, its starter
    /// ignores SIGINT and SIGQUIT.
    bool WaitUntilNoCommandRuns() const {
        return WaitUntil(
            [&] {
                return sandbox->Processes().size() == 1 && !Ignores(daemon->Pid(), SIGINT) &&
                       !Ignores(daemon->Pid(), SIGQUIT);
            },
            Generous);
    }

    // ---- the log

    std::string Error(const std::string& text) const {
        return "kennly local4.err " + number + ":" + tag + ": " + text + "\n";
    }
    std::string Debug(const std::string& text) const {
        return "kennly local4.debug " + number + ":" + tag + ": " + text + "\n";
    }
    std::string Exit(int status) const {
        return "kennly local4.debug " + number + ":" + tag + " exit(" + std::to_string(status) +
               ")";
    }
    /// The line that tells that the file with that Marker has been loaded.
    std::string Loaded(const std::string& marker) const {
        return Debug("job not enabled - ignoring job: " + marker);
    }
    std::string RemedyRuns(const std::string& job, const std::string& command) const {
        return Debug(job + " check failed - running remedy: " + command);
    }

    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        for (const LogLine& line : sandbox->Log()) {
            lines.push_back(Rendered(line));
        }
        return lines;
    }

    /// When a line has arrived, each time that it has.
    std::vector<Clock::time_point> ArrivalsOf(const std::string& line) const {
        std::vector<Clock::time_point> arrivals;
        for (const LogLine& recorded : sandbox->Log()) {
            if (Rendered(recorded) == line) {
                arrivals.push_back(recorded.arrival);
            }
        }
        return arrivals;
    }

    bool WaitForLine(const std::string& line, std::size_t count = 1,
                     std::chrono::seconds limit = Generous) const {
        return sandbox->WaitForLog([&](const auto&) { return ArrivalsOf(line).size() >= count; },
                                   limit);
    }

    std::unique_ptr<Sandbox> sandbox;
    std::unique_ptr<SandboxProcess> daemon;
    Clock::time_point started;
    std::string number;      // of the daemon, as it sees it
    std::string tag = "  ";  // of its role
    std::time_t fileTime = 1700000000;

private:
    static std::string Rendered(const LogLine& line) {
        std::string priority = "?";
        if (line.facility == LOG_LOCAL4) {
            priority = line.severity == LOG_ERR     ? "local4.err"
                       : line.severity == LOG_DEBUG ? "local4.debug"
                                                    : "local4.?";
        }
        return line.identity + " " + priority + " " + line.text;
    }
};

inline double SecondsBetween(std::int64_t earlier, std::int64_t later) {
    return static_cast<double>(later - earlier) / 1e9;
}

inline double SecondsBetween(std::chrono::steady_clock::time_point earlier,
                             std::chrono::steady_clock::time_point later) {
    return std::chrono::duration<double>(later - earlier).count();
}

}  // namespace kennly::test
