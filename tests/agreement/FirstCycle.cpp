// To be loaded before the C library into the daemon. It lets the daemon go through its first cycle,
// which loads the configuration, and not beyond, so that the log holds what that load says and
// nothing of what its jobs do:
//
// - The first pause of the main thread, between the first cycle and the second, ends the process
//   after a line of priority LOG_INFO that tells so. A daemon that gives up before that pause ends
//   as always.
// - Another thread that has a line to write waits for the end of the process instead.
// - No command runs; each counts as healthy.

#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>

extern "C" void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments);

namespace {

void AwaitEndUnlessMain() {
    while (syscall(SYS_gettid) != getpid()) {
        pause();
    }
}

}  // namespace

extern "C" {

int system(const char* /*command*/) {
    return 0;
}

void syslog(int priority, const char* format, ...) {
    AwaitEndUnlessMain();
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

// What a fortified program calls.
void __syslog_chk(int priority, int flag, const char* format, ...) {
    AwaitEndUnlessMain();
    va_list arguments;
    va_start(arguments, format);
    __vsyslog_chk(priority, flag, format, arguments);
    va_end(arguments);
}

unsigned sleep(unsigned /*seconds*/) {
    AwaitEndUnlessMain();
    syslog(LOG_INFO, "%d: the first cycle is over", static_cast<int>(getpid()));
    _exit(0);
}

}  // extern "C"
