#pragma once

#include <pthread.h>

#include "sync/AutoLock.h"

namespace kennly {

/// A flag that threads wait for. It stays set until it is reset by hand; waiting never clears it.
///
/// Threads: any thread may call any operation; each takes only this event's own mutex.
/// Ownership: whoever creates it destroys it, when no thread waits for it any more.
class Event {
public:
    /// An event that is set, or not yet.
    explicit Event(bool initiallySet);
    virtual ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    /// Waits without limit until the event is set. Returns true when it waited and the event became
    /// set, false when waiting failed.
    ///
    /// Deliberate: also false, at once, when the event was set already; it stays set. A worker of
    /// the pool ends by a false wait, so the difference can be seen.
    bool Wait();

    /// As Wait, for a caller that found nothing to do under `held`: gives `held` up only when this
    /// event's own mutex is taken, so that nobody who needs `held` to set the event can do so in
    /// between. The order of the two is always `held` first.
    bool WaitReleasing(AutoLock& held);

    /// Whether the event is set.
    bool IsSet() const;

    /// Sets the event and wakes every waiter. Returns true when all of them were woken.
    bool Set();

    /// Clears the event. Always true.
    bool Reset();

private:
    bool WaitWithMutexTaken();

    mutable pthread_mutex_t mutex_ = {};
    bool signalled_;  // guarded by mutex_
    pthread_cond_t condition_ = {};
};

}  // namespace kennly
