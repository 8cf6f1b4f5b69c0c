#pragma once

#include <algorithm>
#include <chrono>

namespace kennly::test {

/// A limit of time that does not run out while the machine stands still.
///
/// A virtual machine may be denied its processors for seconds on end. What is waited for has no
/// part in that, and so each turn of the waiting counts for no more than LongestTurn, however late
/// it comes. One thread at a time.
class Deadline {
public:
    /// Whoever waits asks at least this often.
    static constexpr std::chrono::milliseconds LongestTurn{100};

    explicit Deadline(std::chrono::milliseconds limit) : left_(limit) {}

    bool HasPassed() {
        const auto now = Clock::now();
        left_ -= std::min<Clock::duration>(now - last_, LongestTurn);
        last_ = now;
        return left_ <= Clock::duration::zero();
    }

private:
    using Clock = std::chrono::steady_clock;

    Clock::duration left_;
    Clock::time_point last_ = Clock::now();
};

}  // namespace kennly::test
