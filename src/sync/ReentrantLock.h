#pragma once

#include <pthread.h>

#include <cstdint>

namespace kennly {

/// A lock that its owner may take again, built on default, non-recursive mutexes.
///
/// `Purpose` only tells one use from another, so that locks of different purpose are different
/// types; see CriticalSection and AppMutex. Owner and depth are kept beside the mutex that is the
/// lock, under a second mutex held for a few instructions and never while waiting for the first.
///
/// Threads: any thread may call Lock and Unlock. No operation reports a failure.
/// Ownership: whoever creates it destroys it, when no thread holds it any more.
template <typename Purpose>
class ReentrantLock {
public:
    /// A free lock. Without `recursive` it is a plain mutex that knows neither owner nor depth.
    explicit ReentrantLock(bool recursive) : recursive_(recursive) {
        pthread_mutex_init(&mutex_, nullptr);
        if (recursive_) {
            pthread_mutex_init(&guard_, nullptr);
        }
    }

    virtual ~ReentrantLock() {
        pthread_mutex_destroy(&mutex_);
        if (recursive_) {
            pthread_mutex_destroy(&guard_);
        }
    }

    ReentrantLock(const ReentrantLock&) = delete;
    ReentrantLock& operator=(const ReentrantLock&) = delete;

    /// Takes the lock, waiting without limit; the owner of a recursive lock enters one level
    /// deeper.
    void Lock() {
        if (recursive_ && EnterDeeper()) {
            return;
        }
        pthread_mutex_lock(&mutex_);
        if (recursive_) {
            BecomeOwner();
        }
    }

    /// Leaves one level; the outermost one frees the lock.
    ///
    /// Deliberate: a thread that does not own a recursive lock unlocks nothing and is not told.
    void Unlock() {
        if (!recursive_ || LeaveOutermost()) {
            pthread_mutex_unlock(&mutex_);
        }
    }

private:
    bool EnterDeeper() {
        pthread_mutex_lock(&guard_);
        const bool owned = IsOwnedByCaller();
        if (owned) {
            ++depth_;
        }
        pthread_mutex_unlock(&guard_);
        return owned;
    }

    void BecomeOwner() {
        pthread_mutex_lock(&guard_);
        ++depth_;
        owner_ = pthread_self();
        pthread_mutex_unlock(&guard_);
    }

    bool LeaveOutermost() {
        pthread_mutex_lock(&guard_);
        const bool outermost = IsOwnedByCaller() && --depth_ == 0;
        pthread_mutex_unlock(&guard_);
        return outermost;
    }

    // The owner stays as it was when the lock is freed; the depth makes the stale value harmless.
    bool IsOwnedByCaller() const {
        return depth_ != 0 && pthread_equal(owner_, pthread_self()) != 0;
    }

    const bool recursive_;
    pthread_mutex_t mutex_ = {};
    pthread_t owner_ = {};     // guarded by guard_, meaningful while depth_ is not 0
    std::uint32_t depth_ = 0;  // guarded by guard_
    pthread_mutex_t guard_ = {};
};

}  // namespace kennly
