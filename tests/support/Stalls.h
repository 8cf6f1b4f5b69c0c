#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace kennly::test {

/// For how long the machine has stood still since this object was made: a thread that only sleeps
/// notes by how much it comes too late.
///
/// A virtual machine may be denied its processors for seconds on end, and what is measured then is
/// not the daemon. A machine that always runs has none. Any thread may ask.
class Stalls {
public:
    Stalls() : thread_([this] { Watch(); }) {}
    ~Stalls() {
        ends_ = true;
        thread_.join();
    }
    Stalls(const Stalls&) = delete;
    Stalls& operator=(const Stalls&) = delete;

    double Seconds() const { return static_cast<double>(milliseconds_) / 1000.0; }

private:
    using Clock = std::chrono::steady_clock;

    void Watch() {
        constexpr std::chrono::milliseconds turn(20);
        constexpr std::chrono::milliseconds usualLateness(100);
        for (auto last = Clock::now(); !ends_;) {
            std::this_thread::sleep_for(turn);
            const auto now = Clock::now();
            const auto late = now - last - turn;
            if (late > usualLateness) {
                milliseconds_ +=
                    std::chrono::duration_cast<std::chrono::milliseconds>(late).count();
            }
            last = now;
        }
    }

    std::atomic<bool> ends_{false};
    std::atomic<std::int64_t> milliseconds_{0};
    std::thread thread_;  // last: it uses the others
};

}  // namespace kennly::test
