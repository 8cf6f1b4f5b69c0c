#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace kennly::bench {

/// A number in a file that several processes see at once; it begins with 0.
///
/// Threads: any. Ownership: the mapping lasts as long as the object, the file as long as its
/// directory.
class SharedCount {
public:
    /// Opens the file, or makes it. Throws std::runtime_error when that fails.
    explicit SharedCount(const std::string& path) {
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        void* room = MAP_FAILED;
        if (file >= 0 && ftruncate(file, sizeof(Number)) == 0) {
            room = mmap(nullptr, sizeof(Number), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        }
        if (file >= 0) {
            close(file);
        }
        if (room == MAP_FAILED) {
            throw std::runtime_error("no count that can be shared");
        }
        number_ = static_cast<Number*>(room);
    }
    ~SharedCount() { munmap(number_, sizeof(Number)); }
    SharedCount(const SharedCount&) = delete;
    SharedCount& operator=(const SharedCount&) = delete;

    void Add() { number_->fetch_add(1, std::memory_order_relaxed); }
    std::int64_t Value() const { return number_->load(std::memory_order_relaxed); }

private:
    using Number = std::atomic<std::int64_t>;
    static_assert(Number::is_always_lock_free, "processes could not share it");

    Number* number_ = nullptr;
};

}  // namespace kennly::bench
