#include "sync/Thread.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "main/ProcessState.h"

namespace kennly {

namespace {

constexpr long ShortestStepNanoseconds = 1'000'000;
constexpr long LongestStepNanoseconds = 50'000'000;

}  // namespace

Thread::Thread() : startArgument_(this) {}

bool Thread::Start() {
    return pthread_create(&handle_, nullptr, Enter, startArgument_) == 0;
}

bool Thread::Join() {
    // A plain pthread_join could not be left when a shutdown is asked for, and a timed one measures
    // by a clock that may be set back meanwhile.
    timespec step = {0, ShortestStepNanoseconds};
    while (!closingDown) {
        const int outcome = pthread_tryjoin_np(handle_, nullptr);
        if (outcome != EBUSY) {
            return outcome == 0;
        }
        nanosleep(&step, nullptr);
        step.tv_nsec = std::min(2 * step.tv_nsec, LongestStepNanoseconds);
    }
    return true;
}

void* Thread::Enter(void* startArgument) {
    std::intptr_t exitValue = -1;
    try {
        exitValue = static_cast<Thread*>(startArgument)->Run();
    } catch (...) {  // an exception that left a thread would end the process
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a thread hands its exit value over as a pointer
    return reinterpret_cast<void*>(exitValue);
}

}  // namespace kennly
