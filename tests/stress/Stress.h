#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include "support/Dice.h"
#include "support/Sanitizers.h"

namespace kennly::test {

/// How many rounds to go, of as many as prove something about order by chance. The thread sanitizer
/// does not need chance: it sees what two threads do without a lock between them, however far
/// apart.
constexpr int Rounds(int all) {
    return WithThreadSanitizer ? all / 5 : all;
}

/// For Dice: the numbers of every run are the same; what differs is only how the machine schedules
/// threads.
inline constexpr std::uint32_t Seed = 20250311;

/// Keeps the processor busy for about so many of its shortest steps.
inline void Spin(std::uint32_t steps) {
    for (std::atomic<std::uint32_t> left{steps}; left > 0; --left) {
    }
}

/// The same for up to so many, each thread with random choices of its own.
inline void SpinUpTo(std::uint32_t most) {
    static std::atomic<std::uint32_t> streams{0};
    thread_local Dice dice(Seed, ++streams);
    Spin(dice.UpTo(most));
}

/// Asks without pausing until `condition` holds. Returns false when it does not
/// within 20 seconds.
template <class F>
bool SpinUntil(F condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (std::uint32_t asked = 1; !condition(); ++asked) {
        if (asked % 256 != 0) {
            continue;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return condition();
        }
        std::this_thread::yield();
    }
    return true;
}

/// Ends the test program as failed when a round takes longer than 20 seconds: a
/// thread that hangs can be told from a slow machine, and cannot be stopped
/// otherwise.
///
/// Threads: Begin belongs to the thread that made it.
class RoundLimit {
public:
    RoundLimit() : watcher_([this] { Watch(); }) {}
    ~RoundLimit() {
        done_ = true;
        watcher_.join();
    }
    RoundLimit(const RoundLimit&) = delete;
    RoundLimit& operator=(const RoundLimit&) = delete;

    /// The next round, counted from 1, begins.
    void Begin() { ++round_; }

private:
    void Watch() {
        using Clock = std::chrono::steady_clock;
        int watched = 0;
        auto begin = Clock::now();
        while (!done_) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (const int round = round_; round != watched) {
                watched = round;
                begin = Clock::now();
            } else if (Clock::now() - begin > std::chrono::seconds(20)) {
                std::fprintf(stderr, "FAILED: round %d has not ended within 20 seconds\n", watched);
                std::_Exit(EXIT_FAILURE);
            }
        }
    }

    std::atomic<int> round_{0};
    std::atomic<bool> done_{false};
    std::thread watcher_;
};

/// Prints one line of figures of a test, with the seed and the time that has
/// passed since it was made.
class Figures {
public:
    template <class... Values>
    void Print(const char* format, Values... values) const {
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin_;
        std::printf("    ");
        std::printf(format, values...);
        std::printf(" (seed %u, %.1f s)\n", static_cast<unsigned>(Seed), passed.count());
    }

private:
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace kennly::test
