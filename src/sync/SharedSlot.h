#pragma once

#include <memory>
#include <utility>

namespace kennly {

/// A place for an object that the whole process shares and that may be replaced or given up while
/// other threads use it: each of them takes a hold of its own first, or finds the place empty.
///
/// Threads: any thread may call any operation at any time, also while the process exits and static
/// destructors run. A slot is therefore itself never destroyed: make it with
/// SharedSlot<T>::NewForEver. Ownership: the slot holds the object until Put replaces it; the last
/// holder destroys it.
template <typename T>
class SharedSlot {
public:
    SharedSlot(const SharedSlot&) = delete;
    SharedSlot& operator=(const SharedSlot&) = delete;

    /// An empty slot that lives as long as the process; for a reference with static lifetime.
    static SharedSlot& NewForEver() { return *new SharedSlot; }

    /// A hold on the object, or null when the slot is empty.
    std::shared_ptr<T> Hold() const { return std::atomic_load(&object_); }

    /// Puts `object` in the place of what the slot held; null empties it.
    void Put(std::shared_ptr<T> object) { std::atomic_store(&object_, std::move(object)); }

private:
    SharedSlot() = default;
    ~SharedSlot() = default;

    std::shared_ptr<T> object_;
};

}  // namespace kennly
