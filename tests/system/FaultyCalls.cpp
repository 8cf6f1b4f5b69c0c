#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

// To be loaded before the C library into a program that calls these functions, not into the
// programs that it starts. What happens is up to files, which may come, change and go while it
// runs:
//
// FAULTS=<path>: each line of that file is "<call> <error> <text>": the call fails with that error
// number when its path or its command contains the text. Each failure adds "<call> <text>" as a
// line to the file <path>.fired. The calls are access, open, fopen, stat, read and read-on (the
// reading at the beginning of a file, and that of the rest), fread, write, write-on (a write at the
// beginning of a file writes the first half only, and one behind it fails) and system.
// CLOCK_SHIFT=<path>: that file holds the seconds by which the clock is ahead of the machine's.
//
// A call that does not fail is passed on to another function that does the same.

namespace {

// Programs that the program starts are to run as always.
[[gnu::constructor]] void SpareOthers() {
    unsetenv("LD_PRELOAD");
}

template <class F>
F* Next(const char* name) {
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

std::string PathIn(const char* variable) {
    const char* const path = std::getenv(variable);
    return path != nullptr ? path : "";
}

// The content of a small file; empty when there is none.
std::string ContentOf(const std::string& path) {
    std::array<char, 4096> content = {};
    const int file = openat(AT_FDCWD, path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return "";
    }
    const ssize_t size = pread(file, content.data(), content.size(), 0);
    close(file);
    return std::string(content.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
}

void Record(const std::string& failure) {
    const std::string path = PathIn("FAULTS") + ".fired";
    constexpr mode_t readableByAll = 0644;
    const int file =
        openat(AT_FDCWD, path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, readableByAll);
    std::string line = failure + "\n";
    iovec part = {line.data(), line.size()};
    [[maybe_unused]] const ssize_t written = writev(file, &part, 1);
    close(file);
}

// The error number in a line "<call> <error> <text>" that is meant for this call of it, else 0.
int ErrorFor(const std::string& line, const std::string& call, const std::string& subject) {
    const std::size_t first = line.find(' ');
    const std::size_t second = line.find(' ', first + 1);
    if (second == std::string::npos || line.substr(0, first) != call ||
        subject.find(line.substr(second + 1)) == std::string::npos) {
        return 0;
    }
    Record(call + line.substr(second));
    return std::atoi(line.substr(first + 1).c_str());
}

// Returns whether the call fails, and then sets errno. Else leaves errno alone.
bool Fails(const std::string& call, const std::string& subject) {
    const int errorBefore = errno;
    const std::string lines = ContentOf(PathIn("FAULTS"));
    for (std::size_t begin = 0, end = 0; begin < lines.size(); begin = end + 1) {
        end = lines.find('\n', begin);
        if (end == std::string::npos) {
            break;
        }
        if (const int error = ErrorFor(lines.substr(begin, end - begin), call, subject)) {
            errno = error;
            return true;
        }
    }
    errno = errorBefore;
    return false;
}

std::string PathOf(int file) {
    std::array<char, 512> path = {};
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    return readlink(link.c_str(), path.data(), path.size() - 1) > 0 ? path.data() : "";
}

std::time_t Shift() {
    return std::atoll(ContentOf(PathIn("CLOCK_SHIFT")).c_str());
}

}  // namespace

extern "C" {

// TinyXML is compiled without large files: the declaration in the header may mean another function.
std::FILE* OpenStream(const char* path, const char* mode) __asm__("fopen");

std::FILE* OpenStream(const char* path, const char* mode) {
    return Fails("fopen", path) ? nullptr
                                : Next<std::FILE*(const char*, const char*)>("fopen")(path, mode);
}

int open(const char* path, int flags, ...) {
    constexpr mode_t readableAndWritableByAll = 0666;  // as all have it that this program creates
    return Fails("open", path) ? -1 : openat(AT_FDCWD, path, flags, readableAndWritableByAll);
}

int access(const char* path, int mode) {
    return Fails("access", path) ? -1 : faccessat(AT_FDCWD, path, mode, 0);
}

int stat(const char* path, struct stat* status) {
    return Fails("stat", path) ? -1 : fstatat(AT_FDCWD, path, status, 0);
}

ssize_t read(int file, void* buffer, std::size_t size) {
    const char* const call = lseek(file, 0, SEEK_CUR) > 0 ? "read-on" : "read";
    iovec part = {buffer, size};
    return Fails(call, PathOf(file)) ? -1 : readv(file, &part, 1);
}

// One that fails has read half of it.
std::size_t fread(void* buffer, std::size_t size, std::size_t count, std::FILE* stream) {
    const bool fails = Fails("fread", PathOf(fileno(stream)));
    const auto next = Next<std::size_t(void*, std::size_t, std::size_t, std::FILE*)>("fread");
    if (!fails) {
        return next(buffer, size, count, stream);
    }
    next(buffer, 1, size * count / 2, stream);
    return count / 2;
}

ssize_t write(int file, const void* buffer, std::size_t size) {
    const std::string path = PathOf(file);
    const bool isFirst = lseek(file, 0, SEEK_CUR) == 0;
    const bool isHalf = Fails("write-on", path);
    if ((isHalf && !isFirst) || Fails("write", path)) {
        return -1;
    }
    iovec part = {const_cast<void*>(buffer), isHalf ? size / 2 : size};
    return writev(file, &part, 1);
}

int system(const char* command) {
    return Fails("system", command) ? -1 : Next<int(const char*)>("system")(command);
}

std::time_t time(std::time_t* result) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

int clock_gettime(clockid_t clock, timespec* result) {
    // In 32 bit, the one without a number in its name has 32-bit times.
    constexpr const char* name = sizeof(long) == 4 ? "__clock_gettime64" : "clock_gettime";
    static const auto next = Next<int(clockid_t, timespec*)>(name);
    const int outcome = next(clock, result);
    if (outcome == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        result->tv_sec += Shift();
    }
    return outcome;
}

}  // extern "C"
