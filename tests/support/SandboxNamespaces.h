#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "support/SandboxDeath.h"
#include "support/SandboxDescriptor.h"

namespace kennly::test {

/// Where a program inside looks for the system log.
inline constexpr const char* LogSocketPath = "/dev/log";

/// The private file system and processes behind a Sandbox, and the processes that keep them.
///
/// A keeper, our child, makes the namespaces and forks their first process, which does nothing but
/// reap and record what it has reaped. The keeper waits on a lifeline from us; when it speaks or
/// closes, be it that we ended in whatever way, the keeper kills the first process and with it all
/// others inside. A lifeline and no parent-death signal, because that signal would also follow the
/// end of the thread that happened to create the sandbox. The first process has such a signal for
/// the keeper's end.
///
/// Directories that must look different inside are covered by a file system in memory, into which
/// the entries that are to stay visible are bound, so that nothing changes for anyone outside.
///
/// Deaths are recorded in a file in memory: it holds up nobody, however long nobody asks.
///
/// Threads: any thread may create one or ask it; one destroys it.
/// Ownership: owns the keeper; its end is waited for on destruction.
class SandboxNamespaces {
public:
    /// Makes the namespaces with the private data directory, and binds `logSocket` to /dev/log in
    /// them. Uses a user namespace where the plain way is not permitted.
    ///
    /// Null, with a message in `error`, when either way fails.
    static std::unique_ptr<SandboxNamespaces> Create(int logSocket, std::string& error);
    /// Kills all processes inside and waits until they are gone.
    ~SandboxNamespaces();
    SandboxNamespaces(const SandboxNamespaces&) = delete;
    SandboxNamespaces& operator=(const SandboxNamespaces&) = delete;

    /// The first process inside, by its number outside.
    pid_t FirstProcess() const { return firstProcess_; }
    /// The namespaces, to be entered in this order; the user namespace's is -1 when there is none.
    int UserNamespace() const { return userNamespace_.Get(); }
    int MountNamespace() const { return mountNamespace_.Get(); }
    int ProcessNamespace() const { return processNamespace_.Get(); }
    /// The root directory inside, which is not the mount namespace's own when we live in a chroot.
    int RootDirectory() const { return rootDirectory_.Get(); }
    /// What the first process has reaped so far, in that order.
    std::vector<Death> Deaths() const;

private:
    SandboxNamespaces(pid_t keeper, Descriptor lifeline, Descriptor deaths);
    bool AwaitSetup(int report, std::string& error);
    bool OpenNamespaces(bool withUserNamespace, std::string& error);

    pid_t keeper_;
    Descriptor lifeline_;  // our end; whatever happens to it ends the keeper
    Descriptor deaths_;    // where the first process writes them
    pid_t firstProcess_ = -1;
    Descriptor userNamespace_;
    Descriptor mountNamespace_;
    Descriptor processNamespace_;
    Descriptor rootDirectory_;
};

}  // namespace kennly::test
