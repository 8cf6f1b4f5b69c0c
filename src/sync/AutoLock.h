#pragma once

#include "sync/CriticalSection.h"

namespace kennly {

/// Holds a CriticalSection from its construction to the end of its scope.
///
/// Threads: for the one thread that made it. Ownership: does not own the lock, which must outlive
/// it.
class AutoLock {
public:
    /// Takes `lock`, waiting without limit.
    explicit AutoLock(CriticalSection* lock);

    /// Gives the lock up, unless Release has done so.
    virtual ~AutoLock();

    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

    /// Gives the lock up before the end of the scope.
    void Release();

private:
    CriticalSection* lock_;
};

}  // namespace kennly
