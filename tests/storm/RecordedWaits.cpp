#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// To be loaded before the C library: a daemon that has waited for a child of its own adds a line
// with the child's number and raw wait status to the file that RECORDED_WAITS names. Nobody else
// is ever told of that status. Other programs are left alone.

namespace {

void Record(pid_t child, int status) {
    const char* const path = std::getenv("RECORDED_WAITS");
    if (path == nullptr || std::strcmp(program_invocation_short_name, "kennly") != 0) {
        return;
    }
    char line[64];
    const int length = std::snprintf(line, sizeof line, "%d %d\n", child, status);
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0 || write(file, line, static_cast<size_t>(length)) != length) {
        _exit(1);  // the missing line is noticed, and so is this
    }
    close(file);
}

}  // namespace

extern "C" pid_t waitpid(pid_t process, int* status, int options) {
    using Function = pid_t(pid_t, int*, int);
    auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "waitpid"));
    int ours = 0;
    const pid_t child = next(process, &ours, options);
    if (status != nullptr) {
        *status = ours;
    }
    if (child > 0) {
        Record(child, ours);
    }
    return child;
}
