#pragma once

#include <new>

namespace kennly {

/// An object that lives as long as the process: it is never destroyed, so that threads may use it
/// while the process exits and static destructors run.
///
/// For static objects. It lies in itself and takes no memory from the heap, because nobody could
/// report before main that there is none.
///
/// Threads: as the object itself. Ownership: nobody destroys the object; what it holds, it holds
/// for ever.
template <typename T>
class ForEver {
public:
    /// Makes the object with these arguments.
    template <typename... Arguments>
    // cppcheck-suppress noDestructor ; the object stays, in memory that is not from the heap
    explicit ForEver(Arguments... arguments) : object_(new (room_) T(arguments...)) {}
    ~ForEver() = default;
    ForEver(const ForEver&) = delete;
    ForEver& operator=(const ForEver&) = delete;

    T& operator*() const { return *object_; }

private:
    // Mutable because the object may change where this is const.
    alignas(T) mutable unsigned char room_[sizeof(T)] = {};
    T* const object_;
};

}  // namespace kennly
