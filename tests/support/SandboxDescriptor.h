#pragma once

#include <unistd.h>

#include <utility>

namespace kennly::test {

/// The owner of one file descriptor, closed when the owner goes.
///
/// Threads: one at a time. Ownership: movable; -1 stands for none.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    /// The descriptor's number, -1 when there is none.
    int Get() const { return number_; }
    bool IsOpen() const { return number_ >= 0; }
    /// Closes the descriptor; does nothing when there is none.
    void Close() {
        if (number_ >= 0) {
            close(std::exchange(number_, -1));
        }
    }

private:
    int number_;
};

}  // namespace kennly::test
