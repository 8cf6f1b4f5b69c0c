#include "main/Log.h"

#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace kennly {

const char* roleTag = "  ";

namespace {

// The format is chosen by the number of texts; those beyond it are passed and not read.
constexpr const char* LineFormats[] = {
    "%d:%s: %s\n",
    "%d:%s: %s %s\n",
    "%d:%s: %s %s %s\n",
    "%d:%s: %s %s %s %s\n",
};

void WriteLine(int priority, int textCount, const char* a, const char* b = "", const char* c = "",
               const char* d = "") noexcept {
    try {
        syslog(priority, LineFormats[textCount - 1], static_cast<int>(getpid()), roleTag, a, b, c,
               d);
    } catch (...) {  // nowhere is left to report it to
    }
}

constexpr unsigned LongestLastLineSeconds = 5;
volatile std::sig_atomic_t statusWithoutLine = 0;

void ExitWithoutLine(int /*signal*/) {
    _exit(statusWithoutLine);
}

// A log that takes no lines blocks whoever writes one, and with it all others who do.
void LimitLastLine(std::int32_t status) {
    statusWithoutLine = status;
    struct sigaction action = {};
    action.sa_handler = ExitWithoutLine;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarmed;
    sigemptyset(&alarmed);
    sigaddset(&alarmed, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmed, nullptr);
    alarm(LongestLastLineSeconds);
}

}  // namespace

void OpenLog() {
    openlog("kennly", 0, LOG_LOCAL4);
}

void LogError(const char* a) noexcept {
    WriteLine(LOG_ERR, 1, a);
}

void LogError(const char* a, const char* b) noexcept {
    WriteLine(LOG_ERR, 2, a, b);
}

void LogError(const char* a, const char* b, const char* c) noexcept {
    WriteLine(LOG_ERR, 3, a, b, c);
}

void LogError(const char* a, const char* b, const char* c, const char* d) noexcept {
    WriteLine(LOG_ERR, 4, a, b, c, d);
}

void LogDebug(const char* a) noexcept {
    WriteLine(LOG_DEBUG, 1, a);
}

void LogDebug(const char* a, const char* b) noexcept {
    WriteLine(LOG_DEBUG, 2, a, b);
}

void LogDebug(const char* a, const char* b, const char* c) noexcept {
    WriteLine(LOG_DEBUG, 3, a, b, c);
}

void LogDebug(const char* a, const char* b, const char* c, const char* d) noexcept {
    WriteLine(LOG_DEBUG, 4, a, b, c, d);
}

void LogExit(std::int32_t status) {
    LimitLastLine(status);
    try {
        syslog(LOG_DEBUG, "%d:%s exit(%d)", static_cast<int>(getpid()), roleTag,
               static_cast<int>(status));
    } catch (...) {  // the process ends all the same
    }
    closelog();
    alarm(0);
    std::exit(status);
}

void LogErrorAndExit(std::int32_t status, const char* text) {
    LimitLastLine(status);
    LogError(text);
    LogExit(status);
}

}  // namespace kennly
