#pragma once

#include <pthread.h>

#include <cstdint>

namespace kennly {

/// One POSIX thread, whose body is the derived class's Run.
///
/// Threads: Start and Join belong to the owner; Run runs on the new thread.
/// Ownership: the destructor does nothing to the thread, so an object must be joined first or live
/// until its thread has left Run. A derived class whose threads may be left running (Join does not
/// wait while the process shuts down) has to see to the latter itself.
class Thread {
public:
    /// Creates no thread.
    Thread();
    virtual ~Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// The body. Its result becomes the thread's exit value; an exception that leaves it makes that
    /// -1 and is not reported.
    virtual std::int32_t Run() = 0;

    /// Creates the thread, joinable and with the default stack (see ThreadStack). Returns false
    /// when that failed, which is not logged. Not to be called twice.
    bool Start();

    /// Waits for the thread to end. Returns whether it was joined; false when the system refused
    /// to.
    ///
    /// Deliberate: while `closingDown` is set, or as soon as it becomes set, returns true without
    /// having joined: no shutdown waits for a thread. Not to be called after a failed Start.
    bool Join();

private:
    static void* Enter(void* startArgument);

    pthread_t handle_ = {};
    Thread* startArgument_;
};

}  // namespace kennly
