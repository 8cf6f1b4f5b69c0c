#include "support/FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace {

struct Countdown {
    bool active = false;
    bool once = false;
    bool failed = false;
    std::size_t left = 0;
};

thread_local Countdown countdown;

bool MustFail() {
    if (!countdown.active || (countdown.failed && countdown.once)) {
        return false;
    }
    if (countdown.left > 0) {
        --countdown.left;
        return false;
    }
    countdown.failed = true;
    return true;
}

void* Allocate(std::size_t size) {
    if (MustFail()) {
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}

void* operator new[](std::size_t size) {
    return Allocate(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace kennly::test {

FailingAllocation::FailingAllocation(std::size_t index) {
    countdown = {true, false, false, index};
}

FailingAllocation::~FailingAllocation() {
    countdown = {};
}

bool FailingAllocation::HasFailed() const {
    return countdown.failed;
}

FailingOnceAllocation::FailingOnceAllocation(std::size_t index) {
    countdown = {true, true, false, index};
}

FailingOnceAllocation::~FailingOnceAllocation() {
    countdown = {};
}

bool FailingOnceAllocation::HasFailed() const {
    return countdown.failed;
}

}  // namespace kennly::test
