#pragma once

#include <chrono>
#include <thread>

#include "support/Deadline.h"

namespace kennly::test {

/// Asks `condition` every 10 ms until it holds or `limit` has passed.
///
/// Asks at least once, and once more after the limit, so that a slow machine gets its last chance.
/// Returns whether the condition held.
template <class F>
bool WaitUntil(F condition, std::chrono::milliseconds limit) {
    for (Deadline deadline(limit); !deadline.HasPassed();) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

}  // namespace kennly::test
