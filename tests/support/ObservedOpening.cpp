#include "support/ObservedOpening.h"

#include <fcntl.h>

#include <cstdarg>

namespace kennly::test {

ObservedOpening opening;

namespace {

// Goes through whichever function the build makes of "open".
template <typename Open>
int Observe(Open open, const char* path, int flags) {
    if (!opening.observed) {
        return open(path);
    }
    const int file = open(opening.redirectedTo.empty() ? path : opening.redirectedTo.c_str());
    opening.files.push_back({path, file >= 0, fcntl(file, F_GETFD) == FD_CLOEXEC, flags});
    return file;
}

}  // namespace

}  // namespace kennly::test

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...);

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return kennly::test::Observe(
        [=](const char* chosen) { return __real_open(chosen, flags, mode); }, path, flags);
}

int __wrap_open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return kennly::test::Observe(
        [=](const char* chosen) { return __real_open64(chosen, flags, mode); }, path, flags);
}
}
