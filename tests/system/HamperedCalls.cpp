#include <dlfcn.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

// To be loaded before the C library into a program that calls these functions. Its environment says
// what happens:
//
// FAILING_FORK=<n>: the nth fork() since the program was executed fails with EAGAIN; a forked
// process goes on counting where the other one stood.
// FAILING_THREAD=<n>: the nth pthread_create() since the program was executed fails with EAGAIN.
// One that is called while SIGTERM is blocked does not count, nor fail: the program never calls it
// so, but the runtime of a sanitizer does, for a thread of its own.
// FAILING_EXECV=<text>: an execv() fails with ENOMEM when the last argument is that text.
// SLOW_CALL=<name>: a call of execv, fork, getppid or prctl takes two seconds before it begins, in
// which a test on a busy machine finds the process.
// FAILING_PIDFD=<anything>: pidfd_open() fails with EMFILE.
// REFUSED_STACK=<anything>: another default size of threads' stacks is refused.
//
// The functions have their declarations included, because these may give them other symbols in 32
// bit.

namespace {

template <class F>
F* Next(const char* name) {
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

bool Says(const char* variable, const char* text) {
    const char* const value = std::getenv(variable);
    return value != nullptr && std::strcmp(value, text) == 0;
}

void DelayIfSlow(const char* name) {
    constexpr unsigned twoSeconds = 2;
    if (Says("SLOW_CALL", name)) {
        sleep(twoSeconds);
    }
}

bool BlocksTermination() {
    sigset_t blocked = {};
    return pthread_sigmask(SIG_SETMASK, nullptr, &blocked) == 0 &&
           sigismember(&blocked, SIGTERM) == 1;
}

int forks = 0;
std::atomic<int> threads{0};

}  // namespace

extern "C" {

pid_t fork() {
    DelayIfSlow("fork");
    ++forks;
    const char* const failing = std::getenv("FAILING_FORK");
    if (failing != nullptr && std::atoi(failing) == forks) {
        errno = EAGAIN;
        return -1;
    }
    return Next<pid_t()>("fork")();
}

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) {
    const int nth = BlocksTermination() ? 0 : ++threads;
    const char* const failing = std::getenv("FAILING_THREAD");
    if (nth != 0 && failing != nullptr && std::atoi(failing) == nth) {
        return EAGAIN;
    }
    return Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create")(
        handle, attributes, routine, argument);
}

int pthread_setattr_default_np(const pthread_attr_t* attributes) {
    return std::getenv("REFUSED_STACK") != nullptr
               ? EINVAL
               : Next<int(const pthread_attr_t*)>("pthread_setattr_default_np")(attributes);
}

int execv(const char* path, char* const* arguments) {
    DelayIfSlow("execv");
    const char* last = "";
    for (char* const* argument = arguments; *argument != nullptr; ++argument) {
        last = *argument;
    }
    if (Says("FAILING_EXECV", last)) {
        errno = ENOMEM;
        return -1;
    }
    return Next<int(const char*, char* const*)>("execv")(path, arguments);
}

int pidfd_open(pid_t process, unsigned flags) {
    if (std::getenv("FAILING_PIDFD") != nullptr) {
        errno = EMFILE;
        return -1;
    }
    return Next<int(pid_t, unsigned)>("pidfd_open")(process, flags);
}

pid_t getppid() {
    DelayIfSlow("getppid");
    return Next<pid_t()>("getppid")();
}

// Takes one number after the option, as all do that this program asks for.
int prctl(int option, ...) {
    DelayIfSlow("prctl");
    va_list arguments;
    va_start(arguments, option);
    const int argument = va_arg(arguments, int);
    va_end(arguments);
    return Next<int(int, ...)>("prctl")(option, argument);
}

}  // extern "C"
