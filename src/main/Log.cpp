#include "main/Log.h"

#include <syslog.h>
#include <unistd.h>

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
    try {
        syslog(LOG_DEBUG, "%d:%s exit(%d)", static_cast<int>(getpid()), roleTag,
               static_cast<int>(status));
    } catch (...) {  // the process ends all the same
    }
    closelog();
    std::exit(status);
}

}  // namespace kennly
