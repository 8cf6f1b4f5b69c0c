#include "main/Signals.h"

#include <csignal>
#include <initializer_list>

#include "main/ProcessState.h"

namespace kennly {

namespace {

void SetDisposition(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);  // fails only for a signal that does not exist
}

}  // namespace

void OnTerminate(int /*signal*/) {
    closingDown = true;
}

void ResetInheritedSignals() {
    SetDisposition(SIGCHLD, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

void InstallForegroundSignals() {
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR1, SIGUSR2}) {
        SetDisposition(signal, OnTerminate);
    }
    SetDisposition(SIGPIPE, SIG_IGN);
}

void InstallChildSignals() {
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2}) {
        SetDisposition(signal, SIG_IGN);
    }
    SetDisposition(SIGTERM, OnTerminate);
}

}  // namespace kennly
