#pragma once

#include <chrono>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/Sandbox.h"
#include "support/SandboxPolling.h"
#include "system/Configuration.h"

namespace kennly::test {

/// How processes in the background have really ended, as whoever had to wait for them was told: the
/// first process of the sandbox, or a parent of the daemon's. What a process writes of its end is
/// written before its static objects are destroyed.
class Ends {
public:
    /// Counts only what ends from now on, because numbers begin anew some time.
    explicit Ends(const Sandbox& sandbox)
        : sandbox_(sandbox), deaths_(sandbox.Deaths().size()), waits_(Waits().size()) {}

    /// What a daemon has to be started with.
    static StartOptions Recorded() {
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_RECORDED_WAITS}, {"RECORDED_WAITS", File}};
        return start;
    }

    /// The raw wait status of the process with that number, as it saw it itself; nothing when
    /// nobody was told of it within the limit.
    std::optional<int> WaitFor(const std::string& number, std::chrono::seconds limit) const {
        std::optional<int> status;
        WaitUntil([&] { return (status = StatusOf(number)).has_value(); }, limit);
        return status;
    }

private:
    inline static const std::string File = PathOf("waits");

    std::string Waits() const { return sandbox_.ReadFile(File).value_or(""); }

    std::optional<int> StatusOf(const std::string& number) const {
        const std::vector<Death> deaths = sandbox_.Deaths();
        for (std::size_t index = deaths_; index < deaths.size(); ++index) {
            if (std::to_string(deaths[index].number) == number) {
                return deaths[index].status;
            }
        }
        const std::string waits = Waits();
        std::istringstream lines(waits.substr(waits_, waits.rfind('\n') + 1 - waits_));
        std::string child;
        for (int status = 0; lines >> child >> status;) {
            if (child == number) {
                return status;
            }
        }
        return std::nullopt;
    }

    const Sandbox& sandbox_;
    const std::size_t deaths_;
    const std::size_t waits_;
};

}  // namespace kennly::test
