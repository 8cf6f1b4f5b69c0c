#pragma once

#include <functional>
#include <vector>

namespace kennly::test {

/// The seconds that each call of Pause has asked for since the last ForgetPauses, in order. Linked
/// in the place of the real Pause: nobody sleeps. Any thread may call these.
std::vector<unsigned> RecordedPauses();
void ForgetPauses();

/// Called for each pause, after it was recorded, on the pausing thread, with the number of pauses
/// recorded so far: lets a test act while the code under test would sleep. Null removes it.
void WhilePausing(std::function<void(std::size_t count, unsigned seconds)> action);

}  // namespace kennly::test
