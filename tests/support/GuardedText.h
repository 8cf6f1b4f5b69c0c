#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kennly::test {

/// A text whose first NUL is the last byte that may be read: a parser that steps over it dies.
///
/// The address sanitizer is no substitute: TinyXML is a library that was built without it, so that
/// what TinyXML reads goes unseen.
class GuardedText {
public:
    explicit GuardedText(const std::string& whole) {
        const std::string text = whole.c_str();
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t readable = (text.size() + 1 + page - 1) / page * page;
        size_ = readable + page;
        memory_ = static_cast<char*>(
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (memory_ == MAP_FAILED || mprotect(memory_ + readable, page, PROT_NONE) != 0) {
            throw std::runtime_error("no memory for a guarded text");
        }
        begin_ = memory_ + readable - text.size() - 1;
        std::memcpy(begin_, text.c_str(), text.size() + 1);
    }
    ~GuardedText() { munmap(memory_, size_); }
    GuardedText(const GuardedText&) = delete;
    GuardedText& operator=(const GuardedText&) = delete;

    const char* Begin() const { return begin_; }

private:
    char* memory_ = nullptr;
    std::size_t size_ = 0;
    char* begin_ = nullptr;
};

}  // namespace kennly::test
