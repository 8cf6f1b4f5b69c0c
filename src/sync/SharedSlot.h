#pragma once

#include <memory>

#include "sync/AutoLock.h"
#include "sync/CriticalSection.h"

namespace kennly {

/// A place for an object that the whole process shares and that may be replaced or given up while
/// other threads use it: each of them takes a hold of its own first, or finds the place empty.
///
/// Threads: any thread may call any operation at any time, also while the process exits and static
/// destructors run. A slot is therefore itself never destroyed: make it with ForEver. Ownership:
/// the slot holds the object until Put replaces it; the last holder destroys it.
template <typename T>
class SharedSlot {
public:
    SharedSlot() = default;
    ~SharedSlot() = default;
    SharedSlot(const SharedSlot&) = delete;
    SharedSlot& operator=(const SharedSlot&) = delete;

    /// A hold on the object, or null when the slot is empty.
    std::shared_ptr<T> Hold() const {
        AutoLock lock(&lock_);
        return object_;
    }

    /// Puts `object` in the place of what the slot held; null empties it.
    void Put(std::shared_ptr<T> object) {
        AutoLock lock(&lock_);
        object_.swap(object);
        lock.Release();  // what the slot held may take its time to be destroyed
    }

private:
    mutable CriticalSection lock_{true};
    std::shared_ptr<T> object_;  // guarded by lock_
};

}  // namespace kennly
