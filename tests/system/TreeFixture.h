#pragma once

#include <algorithm>
#include <map>

#include "support/DaemonProcesses.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

// The tags of the processes that a start in the background leaves.
inline const std::vector<std::string> MainTree = {"P ", "C "};
inline const std::vector<std::string> WatcherTree = {"WP", "WC"};
inline const std::vector<std::string> BothTrees = {"P ", "C ", "WP", "WC"};

inline const std::map<std::string, std::string> HeartbeatOf = {{"P ", ParentHeartbeat},
                                                               {"C ", ChildHeartbeat},
                                                               {"WP", WatcherParentHeartbeat},
                                                               {"WC", WatcherChildHeartbeat}};

/// The real program in the background: a tree of processes, or two.
///
/// A process is known by the tag of its role. A child that finds no configuration beats every two
/// seconds and ends itself after some twenty; one that finds one pauses for five after loading it.
class BackgroundTest : public DaemonTest {
protected:
    // ---- processes

    /// Starts the program and waits until the processes with these tags do their work.
    void StartTrees(const std::vector<std::string>& options, const std::vector<std::string>& tags,
                    const StartOptions& start = {}) {
        StartDaemon(options, start);
        AwaitTrees(tags);
    }
    /// The same for a command that becomes the program.
    void StartTreesBy(const std::vector<std::string>& command, const std::vector<std::string>& tags,
                      const StartOptions& start = {}) {
        daemon = sandbox->Start(command, start);
        AwaitTrees(tags);
    }

    /// Waits until the processes of the daemon are those with these tags and do their work.
    bool WaitForTrees(const std::vector<std::string>& tags) {
        return WaitUntil([&] { return TakeRoles(tags); }, Generous);
    }

    const DaemonProcess& Role(const std::string& of) const { return roles.at(of); }

    void SendTo(const std::string& of, int signal) const {
        ASSERT_EQ(kill(Role(of).outside, signal), 0) << of << ": " << std::strerror(errno);
    }

    /// Waits until all processes of the sandbox are these; what has ended is not even a zombie.
    bool WaitUntilOnly(const std::vector<std::string>& tags) const {
        std::vector<pid_t> expected;
        for (const std::string& of : tags) {
            expected.push_back(Role(of).outside);
        }
        std::sort(expected.begin(), expected.end());
        return WaitUntil([&] { return sandbox->Processes() == expected; }, Generous);
    }

    /// Ends all trees that still have their parents, as an administrator does.
    void StopTrees() const {
        for (const auto& [of, process] : roles) {
            if (!process.IsChild()) {
                kill(process.outside, SIGTERM);
            }
        }
        EXPECT_TRUE(WaitUntilOnly({}));
    }

    // ---- files

    /// Waits until each of these processes has beaten twice.
    bool WaitForBeatsOf(const std::vector<std::string>& tags) const {
        std::map<std::string, std::int64_t> expected;
        for (const std::string& of : tags) {
            expected[HeartbeatOf.at(of)] = TimeOf(HeartbeatOf.at(of)) + 1'500'000'000;
        }
        return std::all_of(expected.begin(), expected.end(), [this](const auto& file) {
            return WaitForHeartbeat(file.second, file.first);
        });
    }

    /// The names of the heartbeat files there are, in their order.
    std::vector<std::string> Heartbeats() const {
        std::vector<std::string> names;
        for (const auto& file : std::filesystem::directory_iterator(
                 sandbox->PathInside(DataDirectory + "/heartbeats"))) {
            names.push_back(file.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // ---- the log

    std::string ExitOf(const std::string& of, int status = 0) const {
        return ExitLine(Role(of).number, of, status);
    }
    std::string LoadedOf(const std::string& of, const std::string& marker) const {
        return DebugLine(Role(of).number, of, LoadedText(marker));
    }
    std::vector<std::string> ExitsOf(const std::vector<std::string>& tags) const {
        std::vector<std::string> lines;
        for (const std::string& of : tags) {
            lines.push_back(ExitOf(of));
        }
        return lines;
    }
    /// Waits until each of these processes has written its last line.
    bool WaitForExitsOf(const std::vector<std::string>& tags) const {
        return std::all_of(tags.begin(), tags.end(),
                           [this](const std::string& of) { return WaitForLine(ExitOf(of)); });
    }
    /// The number of the process that wrote a line.
    static std::string NumberIn(const std::string& line) {
        return line.substr(BeginOfNumber(line), line.find(':') - BeginOfNumber(line));
    }
    /// The lines, as those of processes that have no number.
    std::vector<std::string> LinesWithoutNumbers() const {
        std::vector<std::string> lines = Lines();
        for (std::string& line : lines) {
            line.erase(BeginOfNumber(line), NumberIn(line).size());
        }
        return lines;
    }
    bool WaitForLines(std::size_t count) const {
        return sandbox->WaitForLog([&](const auto& lines) { return lines.size() >= count; },
                                   Generous);
    }
    /// When the line arrived that tells of the end; it has to come.
    Clock::time_point EndOf(const std::string& of) const {
        EXPECT_TRUE(WaitForLine(ExitOf(of))) << of;
        const std::vector<Clock::time_point> arrivals = ArrivalsOf(ExitOf(of));
        return arrivals.empty() ? Clock::time_point::max() : arrivals.front();
    }

    std::map<std::string, DaemonProcess> roles;  // by tag, as they were when the trees stood

private:
    static std::size_t BeginOfNumber(const std::string& line) {
        return line.find(' ', line.find(' ') + 1) + 1;  // after the identity and the priority
    }

    void AwaitTrees(const std::vector<std::string>& tags) {
        ASSERT_EQ(EndOfDaemon(), std::optional<int>(0)) << "the first process";
        ASSERT_TRUE(WaitForTrees(tags)) << Description();
    }

    // There are more processes while a tree grows: its first one, and copies of parents that are
    // about to become children. None of these has the signals of its role.
    bool TakeRoles(std::vector<std::string> tags) {
        std::vector<std::string> found;
        roles.clear();
        for (const DaemonProcess& process : DaemonProcesses(*sandbox)) {
            if (!HasSignal(StatusField(process.outside, "SigCgt"), SIGTERM) ||
                HasSignal(StatusField(process.outside, "SigBlk"), SIGTERM)) {
                return false;
            }
            found.push_back(process.Tag());
            roles[process.Tag()] = process;
        }
        std::sort(tags.begin(), tags.end());
        std::sort(found.begin(), found.end());
        return found == tags;
    }

    std::string Description() const {
        std::string text = "the processes:";
        for (const DaemonProcess& process : DaemonProcesses(*sandbox)) {
            text += "\n" + process.number + " of " + process.parent + ": " +
                    ::testing::PrintToString(process.arguments);
        }
        return text;
    }
};

}  // namespace kennly::test
