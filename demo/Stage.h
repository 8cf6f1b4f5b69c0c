#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "support/Sandbox.h"

namespace kennly::demo {

/// The data directory inside the sandbox, with a slash at its end.
inline const std::string DataDirectory = "/opt/qrv/data/kennly/";

/// For each thing that has to happen.
inline constexpr std::chrono::seconds StepLimit(20);

/// Where an act is played: the sandbox, and the lines that tell what happens in it.
///
/// Threads: any thread may call any operation. Ownership: uses the sandbox, which must outlive it.
class Stage {
public:
    explicit Stage(test::Sandbox& place) : sandbox(place) {}

    /// Prints a whole line with the seconds since the start.
    void Say(const std::string& who, const std::string& what);
    void Headline(const std::string& text);

    /// Has each line of the system log printed from now on, with what `explain` says of its text.
    void NarrateLog(const std::function<std::string(const std::string&)>& explain);
    void StopNarratingLog();

    /// Puts a file of the demonstration into the sandbox. An executable one gets its mode.
    void Install(const std::string& source, const std::string& path, bool executable = false);

    /// Whether a line of the system log has `part` in it.
    bool Logged(const std::string& part) const;

    /// Ends the demonstration, with `otherwise` as the reason, unless `holds`.
    static void Require(bool holds, const std::string& otherwise);
    /// The same, once `condition` has had its time to come true.
    static void Await(const std::function<bool()>& condition, const std::string& otherwise);

    test::Sandbox& sandbox;

private:
    std::mutex lock_;  // keeps lines whole
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// A job fails, its remedy repairs it, and it passes again; a block file holds a remedy back.
void PlayRepair(Stage& stage);

/// Two trees run; a process is killed, and the other tree brings it back. kennlyctl shows and ends
/// them.
void PlayRecovery(Stage& stage);

}  // namespace kennly::demo
