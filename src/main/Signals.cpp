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

void InstallDaemonSignals() {
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2}) {
        SetDisposition(signal, SIG_IGN);
    }
    SetDisposition(SIGTERM, OnTerminate);
    SetDisposition(SIGCHLD, SIG_DFL);
}

}  // namespace

void OnTerminate(int /*signal*/) {
    closingDown = true;
}

void HoldSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

void ReleaseSignals() {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

void InstallParentSignals() {
    InstallDaemonSignals();
}

void InstallForegroundSignals() {
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR1, SIGUSR2}) {
        SetDisposition(signal, OnTerminate);
    }
    SetDisposition(SIGPIPE, SIG_IGN);
    SetDisposition(SIGCHLD, SIG_DFL);
}

void InstallChildSignals() {
    InstallDaemonSignals();
}

}  // namespace kennly
