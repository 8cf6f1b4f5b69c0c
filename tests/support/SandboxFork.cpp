#include "support/SandboxFork.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace kennly::test {
namespace {

constexpr int FirstOther = 3;
constexpr unsigned CloseOnExecuteFlag = 4;  // CLOSE_RANGE_CLOEXEC, missing from older headers

int HighestPossible() {
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur > INT_MAX) {
        return INT_MAX - 1;
    }
    return static_cast<int>(limit.rlim_cur);
}

bool CloseRangeByCall(int first, int last, unsigned flags) {
#ifdef SYS_close_range
    return syscall(SYS_close_range, static_cast<unsigned>(first), static_cast<unsigned>(last),
                   flags) == 0;
#else
    static_cast<void>(first);
    static_cast<void>(last);
    static_cast<void>(flags);
    return false;
#endif
}

void CloseRange(int first, int last) {
    if (first > last || CloseRangeByCall(first, last, 0)) {
        return;
    }
    const int highest = HighestPossible();
    for (int number = first; number <= last && number <= highest; ++number) {
        close(number);
    }
}

}  // namespace

bool MakePipe(Descriptor& readEnd, Descriptor& writeEnd) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    readEnd = Descriptor(ends[0]);
    writeEnd = Descriptor(ends[1]);
    return true;
}

pid_t ForkWithSignalsBlocked() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t child = fork();
    if (child != 0) {
        const int error = errno;
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        errno = error;
    }
    return child;
}

void KeepOnly(const std::vector<int>& kept, int nullDevice) {
    for (int number = 0; number < FirstOther; ++number) {
        dup2(nullDevice, number);
    }
    int next = FirstOther;
    for (const int number : kept) {
        CloseRange(next, number - 1);
        next = number + 1;
    }
    CloseRange(next, INT_MAX);
}

void CloseOthersOnExecute() {
    if (CloseRangeByCall(FirstOther, INT_MAX, CloseOnExecuteFlag)) {
        return;
    }
    const int highest = HighestPossible();
    for (int number = FirstOther; number <= highest; ++number) {
        fcntl(number, F_SETFD, FD_CLOEXEC);
    }
}

bool WriteRecord(int descriptor, const void* record, std::size_t size) {
    ssize_t written = 0;
    do {
        written = write(descriptor, record, size);
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(size);
}

bool ReadRecord(int descriptor, void* record, std::size_t size) {
    ssize_t count = 0;
    do {
        count = read(descriptor, record, size);
    } while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(size);
}

int WaitForChild(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return 0;
        }
    }
    return status;
}

}  // namespace kennly::test
