#pragma once

namespace kennly {

/// Pauses the calling thread for `seconds` whole seconds. Does not pause at all for 0, nor once
/// `closingDown` is set.
///
/// Otherwise ends early only when a signal interrupts it and `closingDown` is set. Any thread may
/// call it, and tests `closingDown` and `tidyingThreadPool` afterwards. A thread that must notice a
/// shutdown in time, although the signal may come just before its sleep or go to another thread,
/// makes a long pause of short ones.
void Pause(unsigned seconds);

}  // namespace kennly
