#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/SandboxDescriptor.h"
#include "support/SystemLogLine.h"

namespace kennly::test {

/// A datagram socket that stands in for the system log and records all that arrives, in order.
///
/// The socket has no name yet: whoever knows the place, such as a child in another mount namespace,
/// binds the descriptor. A thread of this object's own reads from it.
///
/// Threads: any thread may call any operation but the destructor and those that end the reading or
/// begin it again, which are for one thread at a time.
/// Ownership: owns the socket and the thread; a listener is called until it is replaced.
class SystemLogSocket {
public:
    using Listener = std::function<void(const LogLine&)>;
    using Condition = std::function<bool(const std::vector<LogLine>&)>;

    /// Opens the socket and starts the reader. Null, with a message in `error`, when it cannot.
    static std::unique_ptr<SystemLogSocket> Create(std::string& error);
    /// Records what has already arrived, then ends the reader.
    ~SystemLogSocket();
    SystemLogSocket(const SystemLogSocket&) = delete;
    SystemLogSocket& operator=(const SystemLogSocket&) = delete;

    /// The socket, for binding only.
    int Get() const { return socket_.Get(); }
    /// A copy of everything recorded so far.
    std::vector<LogLine> Lines() const;
    /// Waits until `condition` holds for the lines so far or `limit` has passed.
    ///
    /// Asks at once and again whenever lines have arrived, on the caller's thread and without a
    /// lock held. Returns whether the condition held.
    bool WaitFor(const Condition& condition, std::chrono::milliseconds limit) const;
    /// Has `listener` called on the reader's thread for each new line, in place of an earlier one;
    /// an empty one ends that. Once this returns, the earlier one is not called any more.
    ///
    /// A listener must not call this operation.
    void OnLine(Listener listener);

    /// Ends the reader once it has recorded what has already arrived. The socket fills up then.
    void StopReading();
    /// Starts the reader again, if it does not run; it goes on with what waits.
    void ReadAgain();
    /// Stops reading and closes the socket, so that whoever writes to it fails.
    void Close();
    /// After Close(): opens a new socket that has no name yet and reads from it.
    ///
    /// Returns false when it cannot.
    bool Reopen();

private:
    SystemLogSocket(Descriptor socket, Descriptor wakeUp);
    void Run();
    void ReadAll();
    void Record(std::string_view datagram);

    Descriptor socket_;
    Descriptor wakeUp_;
    std::vector<char> buffer_;  // the reader's alone
    mutable std::mutex lock_;
    mutable std::condition_variable arrived_;
    std::vector<LogLine> lines_;  // guarded by lock_
    std::mutex listenerLock_;     // held while the listener runs; never together with lock_
    Listener listener_;           // guarded by listenerLock_
    std::thread reader_;
};

}  // namespace kennly::test
