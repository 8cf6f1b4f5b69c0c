#pragma once

#include <chrono>

#include "main/Descriptor.h"

namespace kennly {

/// Held while kennlyctl changes which trees run, or a live configuration: others that want to do so
/// wait for its end.
///
/// It is a lock of the directory of the configurations. Where that cannot be opened there is none,
/// and nothing to change either. Programs that are started do not inherit it. Ownership: the lock
/// is this object's alone. Any thread may have one.
class ChangeLock {
public:
    /// Waits for it, but not for ever: what any user may lock, nobody may be kept out of. No
    /// kennlyctl holds it as long as `longest`.
    explicit ChangeLock(std::chrono::seconds longest = std::chrono::seconds(60));

    /// Whether it is held.
    bool IsHeld() const { return isHeld_; }

private:
    const Descriptor directory_;
    bool isHeld_ = false;
};

}  // namespace kennly
