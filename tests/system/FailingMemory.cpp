#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

// To be loaded before the C library into the program. It acts in a program called kennly alone, not
// in the commands that this one starts and that are given its environment. That says what happens:
//
// FAILING_ALLOCATION=<n>: the nth allocation since the program was executed fails, once.
// ALLOCATION_REPORT=<path>: the file to which a line is appended when that has happened: "failed",
// and one at an orderly end: "allocations: <number>".
// SHORTER_SLEEP=<n>: sleep() takes the nth part of its time.

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

bool IsTheProgram() {
    return std::strcmp(program_invocation_short_name, "kennly") == 0;
}

long NumberIn(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? std::atol(value) : 0;
}

std::atomic<long> allocations{0};

// Nothing here may allocate.
void Report(const char* text) {
    const char* const path = std::getenv("ALLOCATION_REPORT");
    const int file =
        path != nullptr ? open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644) : -1;
    if (file >= 0) {
        [[maybe_unused]] const ssize_t written = write(file, text, std::strlen(text));
        close(file);
    }
}

// Before the C library has begun, the program has no name, and nothing is counted.
bool MustFail() {
    if (!IsTheProgram()) {
        return false;
    }
    static const long failing = NumberIn("FAILING_ALLOCATION");
    if (++allocations != failing) {
        return false;
    }
    Report("failed\n");
    errno = ENOMEM;
    return true;
}

// As a static object's destructor, it runs at an orderly end.
struct Total {
    ~Total() {
        if (IsTheProgram()) {
            char text[64];
            std::snprintf(text, sizeof(text), "allocations: %ld\n", allocations.load());
            Report(text);
        }
    }
};

const Total total;

}  // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
    return MustFail() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return MustFail() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept {
    return MustFail() ? nullptr : __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return MustFail() ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
    void* const found = memalign(alignment, size);
    if (found == nullptr) {
        return ENOMEM;
    }
    *memory = found;
    return 0;
}

unsigned sleep(unsigned seconds) {
    static const long parts = IsTheProgram() ? NumberIn("SHORTER_SLEEP") : 0;
    const double part = parts > 0 ? static_cast<double>(parts) : 1;
    const auto nanoseconds = static_cast<long long>(seconds * 1e9 / part);
    timespec rest = {static_cast<time_t>(nanoseconds / 1'000'000'000),
                     static_cast<long>(nanoseconds % 1'000'000'000)};
    if (nanosleep(&rest, &rest) == 0) {
        return 0;
    }
    const double left = static_cast<double>(rest.tv_sec) + static_cast<double>(rest.tv_nsec) / 1e9;
    return static_cast<unsigned>(std::ceil(left * part));
}

}  // extern "C"
