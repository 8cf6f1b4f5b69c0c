#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/Dice.h"
#include "support/Lanes.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

// A storm treats the real program badly at random, round after round, for a given time, and prints
// what it did and saw. The same rounds can be had again: all random choices follow from one seed.

/// What the command line asks for: --seconds=<n> and --seed=<n>.
struct StormOptions {
    std::chrono::seconds duration = std::chrono::seconds(10);
    std::uint32_t seed = 0;  // any, and printed, when not given
};
const StormOptions& Options();

/// Whether another round is due: time is left and nothing has failed.
bool StormGoesOn();

/// As many lanes as keep this machine busy, at least two and at most six.
int BusyLanes();

/// What a storm tells of itself at its end, one figure a line, in the order in which they came up.
///
/// Threads: any thread may call any operation.
class Figures {
public:
    /// Counts something that has happened.
    void Count(const std::string& name, std::int64_t times = 1);
    /// Keeps the largest value that is given.
    void Largest(const std::string& name, double value);
    /// Keeps the last text that is given.
    void Tell(const std::string& name, const std::string& text);
    std::int64_t CountOf(const std::string& name) const;
    /// Writes them to standard output, with the seed and the time the storm took.
    void Print() const;

private:
    std::string& TextOf(const std::string& name);

    mutable std::mutex lock_;
    std::vector<std::pair<std::string, std::string>> texts_;  // guarded by lock_
    std::map<std::string, std::int64_t> counts_;              // guarded by lock_
    std::map<std::string, double> largest_;                   // guarded by lock_
};

/// Has `round` called again and again in as many threads at once while the storm goes on, each with
/// a sandbox of its own and its own random choices; it is given the lane's number, from 0 on, too.
///
/// `Lane` is a fixture of system tests. Its sandbox is made before the first round; a round may
/// give it another one by calling SetUp() again.
template <class Lane>
void RunLanes(int count, const std::function<void(Lane&, Dice&, int)>& round) {
    RunInLanes<Lane>(count, [&round](Lane& lane, int number) {
        SCOPED_TRACE("seed " + std::to_string(Options().seed) + ", lane " + std::to_string(number));
        Dice dice(Options().seed, static_cast<std::uint32_t>(number));
        while (StormGoesOn()) {
            round(lane, dice, number);
        }
    });
}

}  // namespace kennly::test
