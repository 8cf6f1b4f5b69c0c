#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "stress/Stress.h"

// Now and then delays a thread for a moment before it takes a mutex and after
// it has given one up. Left to themselves, threads hardly ever stop in the few
// instructions between two steps that only look like one; held up there, they
// show it within some thousands of rounds.
//
// To be included by the one source of a test that wraps these two functions.

namespace kennly::test {

inline void DelayAtRandom() {
    static std::atomic<std::uint32_t> threads{0};
    thread_local std::uint32_t state = 0;
    if (state == 0) {
        state = Seed + 2654435769U * ++threads;
    }
    state ^= state << 13U;
    state ^= state >> 17U;
    state ^= state << 5U;
    if (state % 8 == 0) {
        Spin((state >> 8U) % 300);
    }
}

}  // namespace kennly::test

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    kennly::test::DelayAtRandom();
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const int error = __real_pthread_mutex_unlock(mutex);
    kennly::test::DelayAtRandom();
    return error;
}
}
