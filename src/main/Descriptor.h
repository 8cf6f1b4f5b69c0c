#pragma once

#include <unistd.h>

namespace kennly {

/// Closes an open file when its scope ends.
///
/// Ownership: the descriptor is this object's alone. One that could not be opened (below 0) is
/// carried along without harm. An object belongs to one thread.
class Descriptor {
public:
    /// Takes over what open() or the like has returned.
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (IsOpen()) {
            close(number_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// Whether there is a file to close.
    bool IsOpen() const { return number_ >= 0; }
    /// For read(), write() and the like.
    int Number() const { return number_; }

private:
    const int number_;
};

}  // namespace kennly
