#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/SandboxDeath.h"
#include "support/SandboxProcess.h"
#include "support/SystemLogLine.h"

namespace kennly::test {

class SandboxNamespaces;
class SystemLogSocket;

/// A place of its own for the daemon: the machine's files and network, but an empty data directory,
/// a system log that is recorded, and a process tree that ends with it.
///
/// Inside, /opt/qrv/data/kennly is a file system in memory, of 32 MiB, with config/,
/// config/filetimes/ and heartbeats/, each with mode 0755; /dev, on another one, has the common
/// devices and a log socket. Nothing of it is visible outside. When this object is destroyed, or
/// its process ends in whatever way, every process inside is killed and all files are gone.
///
/// Paths given to the file operations are absolute ones inside. They must not lead through an
/// absolute symbolic link, which would be followed outside.
///
/// Threads: any thread may call any operation but the destructor.
/// Ownership: owns the namespaces and the log; not the processes' handles, which may outlive it.
class Sandbox {
public:
    /// Makes a sandbox as root, or through a user namespace where the kernel allows that.
    ///
    /// Null, with a message in `error`, when neither works.
    static std::unique_ptr<Sandbox> Create(std::string& error);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /// The path by which the test reaches `absolutePath` of the sandbox.
    std::string PathInside(const std::string& absolutePath) const;
    /// Starts a command; `command[0]` has a slash in it or is searched for in the usual places.
    ///
    /// Throws std::runtime_error, with the reason, when it cannot be executed.
    std::unique_ptr<SandboxProcess> Start(const std::vector<std::string>& command,
                                          const StartOptions& options = {}) const;
    /// The number outside of the sandbox's first process, which only reaps and records that.
    pid_t FirstProcess() const;
    /// The numbers outside of all processes inside but the first; those ended and not yet reaped
    /// count. In ascending order.
    std::vector<pid_t> Processes() const;
    /// The ends of all processes so far that had lost their parents, in their order. A command that
    /// was started from here is not among them, nor is what another process inside has waited for.
    std::vector<Death> Deaths() const;
    /// Whether the sandbox is built on a user namespace, so that nobody inside has privileges.
    bool HasUserNamespace() const;

    /// A copy of all messages recorded so far, in the order of their arrival.
    std::vector<LogLine> Log() const;
    /// Waits until `condition` holds for the log so far or `limit` has passed.
    ///
    /// Asks at once and again at new messages, on the caller's thread. Returns whether it held.
    bool WaitForLog(const std::function<bool(const std::vector<LogLine>&)>& condition,
                    std::chrono::milliseconds limit) const;
    /// Has `listener` called on the reader's thread for each new message, in place of an earlier
    /// one; an empty one ends that. The listener must not call this operation.
    void OnLine(std::function<void(const LogLine&)> listener);

    // What may become of a system log. One thread at a time.

    /// Reads no longer, once all that has arrived has been recorded: the log fills up.
    void StopReadingLog();
    /// Reads again, first what waits.
    void ReadLogAgain();
    /// Removes the log socket and closes it, as a system log does that ends.
    void EndLog();
    /// After EndLog(): puts a new log socket in its place. Returns false when it cannot.
    bool BeginLogAgain();

    /// Makes `content` the file's whole content, in one write; a new file gets the mode 0644.
    bool WriteFile(const std::string& path, const std::string& content) const;
    /// The file's content; nothing when it cannot be read.
    std::optional<std::string> ReadFile(const std::string& path) const;
    bool FileExists(const std::string& path) const;
    /// Removes a file. Returns false when there is none.
    bool RemoveFile(const std::string& path) const;
    /// Sets the modification and access time, in seconds since the epoch.
    bool SetFileTime(const std::string& path, std::time_t seconds) const;

private:
    Sandbox(std::unique_ptr<SystemLogSocket> log, std::unique_ptr<SandboxNamespaces> namespaces);

    // In this order: the reader outlives all who log.
    std::unique_ptr<SystemLogSocket> log_;
    std::unique_ptr<SandboxNamespaces> namespaces_;
};

}  // namespace kennly::test
