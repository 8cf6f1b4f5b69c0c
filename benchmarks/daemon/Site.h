#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "daemon/Places.h"
#include "support/Sandbox.h"

namespace kennly::bench {

/// The check and the remedy of a job, as the elements of the configuration.
struct JobText {
    std::string check;
    std::string remedy = R"(<remedy type="Execute"><param value="true"/></remedy>)";
};

/// A check by a command that leaves one byte in `countFile` each time: nothing but a shell and one
/// of its builtins, the cheapest command that can be counted. The braces keep the redirection of
/// the whole command out of it.
std::string CountedCommand(const std::string& countFile = CountFile);

/// The element of a check by `command` every `delay` seconds.
std::string CommandCheck(const std::string& command, int delay);

/// A configuration of so many jobs, each made from its number.
std::string Configuration(int jobs, const std::function<JobText(int)>& job);

/// A sandbox in which something is measured. All operations throw std::runtime_error when what they
/// are to do, or wait for, does not come about.
///
/// Threads: one at a time, but for Inside. Ownership: its end also ends what runs in it.
class Site {
public:
    /// An empty sandbox.
    Site();

    /// The sandbox itself.
    const test::Sandbox& Inside() const { return *sandbox_; }
    /// Writes a file of the sandbox.
    void WriteFile(const std::string& path, const std::string& content) const;
    /// Puts `text` in the place of the daemon's configuration, in one step.
    void Configure(const std::string& text) const;
    /// Starts the daemon in the foreground, with a library loaded before others or none.
    std::unique_ptr<test::SandboxProcess> StartDaemon(const std::string& preload = "") const;
    /// Starts one of this program's own floors, see RunFloor.
    std::unique_ptr<test::SandboxProcess> StartFloor(const std::vector<std::string>& floor) const;
    /// The length of a count file: how many commands have left their byte in it.
    std::int64_t Count(const std::string& countFile = CountFile) const;
    /// Waits until that many have, looking about every millisecond. The exception tells what the
    /// daemon has logged.
    void AwaitCount(std::int64_t count, const std::string& countFile = CountFile) const;

    /// Throws when the daemon has logged an error: it has not done what was to be measured.
    void ExpectNoError() const;

private:
    std::string LogText() const;

    std::unique_ptr<test::Sandbox> sandbox_;
};

using Clock = std::chrono::steady_clock;

/// Whatever is waited for takes far less, or will not come about.
inline constexpr double LongestWaitSeconds = 180;

/// The time since `start`, in seconds.
double SecondsSince(Clock::time_point start);

/// Waits that long.
void Wait(double seconds);

}  // namespace kennly::bench
