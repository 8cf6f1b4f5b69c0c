#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/SandboxDescriptor.h"

namespace kennly::test {

class SandboxNamespaces;

/// How a command starts. It always has a session of its own, the file mode mask 022, the
/// descriptors 0, 1 and 2 alone, and default signal dispositions and an empty mask but for what
/// stands here.
struct StartOptions {
    std::vector<int> closedDescriptors;  // which of 0, 1 and 2 are closed at the start
    std::vector<int> ignoredSignals;
    std::vector<int> blockedSignals;
    std::vector<std::pair<std::string, std::string>>
        environment;               // added to the test's, or instead; LD_PRELOAD before it
    std::string workingDirectory;  // a path inside; the root directory when empty
    bool captureError = false;     // keep standard error for ErrorText(), else it is /dev/null
    bool captureOutput = false;    // the same for standard output
};

/// A command that runs in a sandbox.
///
/// A helper outside is its parent and tells us of its end; inside, its parent's number reads 0.
/// What it writes to a captured descriptor waits in a pipe of up to 1 MiB until the test asks for
/// anything here: only a command that writes more than that unobserved is held up.
///
/// Threads: one at a time.
/// Ownership: independent of the Sandbox, whose end also ends the command.
class SandboxProcess {
public:
    /// Starts a command in the namespaces; see Sandbox::Start.
    static std::unique_ptr<SandboxProcess> Launch(const SandboxNamespaces& namespaces,
                                                  const std::vector<std::string>& command,
                                                  const StartOptions& options);
    /// Kills the process if it still runs, not those that it started, and waits for its end.
    ~SandboxProcess();
    SandboxProcess(SandboxProcess&& other) noexcept;
    SandboxProcess& operator=(SandboxProcess&& other) noexcept;
    SandboxProcess(const SandboxProcess&) = delete;
    SandboxProcess& operator=(const SandboxProcess&) = delete;

    /// The process number as seen from outside; of no use for signals once the process has ended.
    pid_t Pid() const { return pid_; }
    /// Whether it has not yet ended.
    bool Running();
    /// Sends a signal. Returns false when the process has ended or the signal is not valid.
    bool Signal(int signal);
    /// Waits until it has ended or `limit` has passed. Returns the raw wait status, for WIFEXITED
    /// and the like, again at each call; nothing when the limit came first.
    ///
    /// Throws std::runtime_error when the status is lost because something killed the helper.
    std::optional<int> WaitForEnd(std::chrono::milliseconds limit);
    /// What it and its children wrote so far to the captured descriptor; empty when not captured.
    std::string OutputText();
    std::string ErrorText();

private:
    SandboxProcess() = default;
    pid_t AwaitStart(const std::string& name);
    void Observe(int milliseconds);
    void TakeEnd();
    void ReapHelper();

    pid_t pid_ = -1;
    pid_t helper_ = -1;  // -1 once reaped
    Descriptor status_;  // what the helper tells
    Descriptor output_;
    Descriptor error_;
    std::string outputText_;
    std::string errorText_;
    std::optional<int> end_;
    bool helperLost_ = false;
};

}  // namespace kennly::test
