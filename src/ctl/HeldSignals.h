#pragma once

#include <csignal>
#include <initializer_list>

namespace kennly {

/// While it lives, the signals that interrupt a program wait, and what is under way is finished or
/// undone first; and a reader of the output that has gone away ends nothing. What has come
/// meanwhile counts at the end. Main thread only.
class HeldSignals {
public:
    HeldSignals() {
        sigemptyset(&held_);
        for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
            struct sigaction action = {};
            if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
                sigaddset(&held_, signal);  // unlike those that nohup has it ignore
            }
        }
        sigprocmask(SIG_BLOCK, &held_, &oldMask_);
        struct sigaction ignored = {};
        ignored.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignored, &oldPipe_);
    }
    ~HeldSignals() {
        sigaction(SIGPIPE, &oldPipe_, nullptr);
        sigprocmask(SIG_SETMASK, &oldMask_, nullptr);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    /// Whether one of them has come.
    bool HaveCome() const {
        sigset_t come;
        sigpending(&come);
        sigandset(&come, &come, &held_);
        return sigisemptyset(&come) == 0;
    }

private:
    sigset_t held_ = {};
    sigset_t oldMask_ = {};
    struct sigaction oldPipe_ = {};
};

}  // namespace kennly
