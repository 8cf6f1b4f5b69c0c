#pragma once

#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

#include "support/SandboxPolling.h"

namespace kennly::test {

/// A process whose parent is another one than the test: who traces it learns its status, too.
///
/// Threads: the one that has made it.
class TracedProcess {
public:
    /// Throws std::runtime_error, with the reason, when the process cannot be traced.
    explicit TracedProcess(pid_t process) : process_(process) {
        if (ptrace(PTRACE_SEIZE, process, nullptr, nullptr) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    /// Kills it if it still runs: with nobody to wait for it, it would keep a sandbox from ending.
    ~TracedProcess() {
        if (!ended_) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
    }
    TracedProcess(const TracedProcess&) = delete;
    TracedProcess& operator=(const TracedProcess&) = delete;

    /// Waits until it has ended or `limit` has passed. Returns the raw wait status; nothing when
    /// the limit came first. Once only.
    std::optional<int> WaitForEnd(std::chrono::milliseconds limit) {
        int status = 0;
        ended_ = WaitUntil([&] { return waitpid(process_, &status, WNOHANG) == process_; }, limit);
        return ended_ ? std::optional<int>(status) : std::nullopt;
    }

private:
    const pid_t process_;
    bool ended_ = false;
};

}  // namespace kennly::test
