#pragma once

#include <sys/stat.h>
#include <sys/wait.h>
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
#include <thread>
#include <vector>

#include "support/ProcessView.h"
#include "support/Sandbox.h"
#include "support/SandboxPolling.h"
#include "support/Stalls.h"
#include "system/Configuration.h"

namespace kennly::test {

/// For what has to happen, however busy the machine is.
inline constexpr std::chrono::seconds Generous(30);

/// For what has to happen at once; a sanitizer looks for leaks at the end of each process.
inline const std::chrono::seconds Prompt(RunsUnderSanitizer() ? 30 : 3);

inline const std::string MainConfiguration = DataDirectory + "/config/kennly.xml";
inline const std::string WatcherConfiguration = DataDirectory + "/config/dogdog.xml";
inline const std::string ParentHeartbeat = DataDirectory + "/heartbeats/parent";
inline const std::string ChildHeartbeat = DataDirectory + "/heartbeats/child";
inline const std::string WatcherParentHeartbeat = DataDirectory + "/heartbeats/watcherparent";
inline const std::string WatcherChildHeartbeat = DataDirectory + "/heartbeats/watcherchild";

// Lines of the process with that number, as it sees it itself, and the tag of its role.

inline std::string ErrorLine(const std::string& number, const std::string& tag,
                             const std::string& text) {
    return "kennly local4.err " + number + ":" + tag + ": " + text + "\n";
}
inline std::string DebugLine(const std::string& number, const std::string& tag,
                             const std::string& text) {
    return "kennly local4.debug " + number + ":" + tag + ": " + text + "\n";
}
inline std::string ExitLine(const std::string& number, const std::string& tag, int status) {
    return "kennly local4.debug " + number + ":" + tag + " exit(" + std::to_string(status) + ")";
}
/// What a process says of the job that is its Marker.
inline std::string LoadedText(const std::string& marker) {
    return "job not enabled - ignoring job: " + marker;
}

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
        stalls = std::make_unique<Stalls>();
    }

    void TearDown() override {
        if (HasFailure() && sandbox) {
            std::cout << "the system log:\n" << DescribeLog(sandbox->Log());
        }
    }

    /// The most seconds that something may take which is to take less than `seconds`: more on a
    /// machine that has stood still since the test began.
    double Allowing(double seconds) const { return seconds + stalls->Seconds(); }

    // ---- files

    /// Puts a configuration file in its place at once, ten seconds newer than the one before.
    void Configure(const std::string& content, const std::string& path = MainConfiguration) {
        fileTime += 10;
        ConfigureAt(fileTime, content, path);
    }

    /// The same, with a modification time.
    void ConfigureAt(std::time_t time, const std::string& content,
                     const std::string& path = MainConfiguration) {
        PutFile(path, time, content);
    }

    /// Puts any file in its place at once, with a modification time.
    void PutFile(const std::string& path, std::time_t time, const std::string& content = "") {
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

    bool WaitForMoreTraces(const std::string& name, std::size_t count) const {
        return WaitForTraces(name, TracesOf(name).size() + count);
    }

    /// What a Reporting command has written, all of it.
    std::string ReportOf(const std::string& name) const {
        std::string content;
        EXPECT_TRUE(WaitUntil(
            [&] {
                content = sandbox->ReadFile(PathOf(name)).value_or("");
                return content.find("end\n") != std::string::npos;
            },
            Generous))
            << name << ": " << content;
        return content;
    }

    /// What the symbolic links lead to that a long listing tells of.
    static std::vector<std::string> ListedTargets(const std::string& listing) {
        std::istringstream lines(listing);
        std::vector<std::string> targets;
        std::string line;
        while (std::getline(lines, line)) {
            const std::size_t arrow = line.find(" -> ");
            if (arrow != std::string::npos) {
                targets.push_back(line.substr(arrow + 4));
            }
        }
        return targets;
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

    /// The beats of a time in each of the files, those that follow each other within half a second
    /// taken as one.
    std::vector<std::vector<std::int64_t>> BeatsWithin(
        std::chrono::seconds duration, const std::vector<std::string>& paths) const {
        std::vector<std::vector<std::int64_t>> beats;
        std::vector<std::int64_t> last;
        for (const std::string& path : paths) {
            last.push_back(TimeOf(path));
            beats.push_back({last.back()});
        }
        for (Deadline deadline(duration); !deadline.HasPassed();) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            for (std::size_t index = 0; index < paths.size(); ++index) {
                const std::int64_t time = TimeOf(paths[index]);
                if (time - last[index] > 500'000'000) {
                    beats[index].push_back(time);
                }
                last[index] = time;
            }
        }
        return beats;
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

    /// Runs the program to its end and returns its exit status, -1 when it did not exit.
    ///
    /// Starts it through a shell that tells its number: one that ends at once cannot be asked.
    int RunToItsEnd(const std::vector<std::string>& options, StartOptions start = {}) {
        std::string line = "echo $$; exec " KENNLY_PROGRAM;
        for (const std::string& option : options) {
            line += " '" + option + "'";
        }
        start.captureOutput = true;
        start.captureError = true;
        daemon = sandbox->Start({"sh", "-c", line}, start);
        const int status = EndOfDaemon().value_or(-1);
        const std::string all = daemon->OutputText();
        number = all.substr(0, all.find('\n'));
        runOutput = all.substr(number.size() + 1);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// The raw wait status of the daemon; nothing when it has not ended within the limit.
    std::optional<int> EndOfDaemon(std::chrono::seconds limit = Generous) {
        return daemon->WaitForEnd(limit);
    }

    /// Ends the daemon as an administrator does. Its last line has been recorded then.
    void StopDaemon(std::chrono::seconds limit = Prompt) {
        ASSERT_TRUE(daemon->Signal(SIGTERM)) << "the daemon runs no longer";
        ASSERT_EQ(EndOfDaemon(limit), std::optional<int>(0));
        EXPECT_TRUE(WaitForLine(Exit(0)));
    }

    int Threads() const { return ThreadCount(daemon->Pid()); }

    /// Waits until the daemon has exactly the threads of so many jobs.
    bool WaitForThreadsOf(int jobs, std::chrono::seconds limit = Generous) const {
        return WaitUntil([&] { return Threads() == 3 * jobs + 1; }, limit);
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

    std::string Error(const std::string& text) const { return ErrorLine(number, tag, text); }
    std::string Debug(const std::string& text) const { return DebugLine(number, tag, text); }
    std::string Exit(int status) const { return ExitLine(number, tag, status); }
    /// The line that tells that the file with that Marker has been loaded.
    std::string Loaded(const std::string& marker) const { return Debug(LoadedText(marker)); }
    std::string RemedyRuns(const std::string& job, const std::string& command) const {
        return Debug(job + " check failed - running remedy: " + command);
    }

    /// How often the remedy of a job has been announced since the daemon was started.
    std::size_t RemediesOf(const std::string& job, const std::string& command = "true") const {
        return ArrivalsOf(RemedyRuns(job, command)).size();
    }
    bool WaitForRemedies(const std::string& job, std::size_t count) const {
        return WaitForLine(RemedyRuns(job, "true"), count);
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
    std::string runOutput;   // of the program that RunToItsEnd has run
    std::time_t fileTime = 1700000000;
    std::unique_ptr<Stalls> stalls;

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
