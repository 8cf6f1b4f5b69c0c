#include "sync/WaiterTable.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>

namespace kennly {

namespace {

// Not yet in the headers of every system that we build on.
constexpr int FutexHash = 78;                   // PR_FUTEX_HASH
constexpr unsigned long FutexHashSetSlots = 1;  // PR_FUTEX_HASH_SET_SLOTS

constexpr unsigned long ThreadsARow = 4;

// The most that the kernel chooses by itself, which it no longer does once it was asked.
unsigned long FewestRows() {
    constexpr long fewest = 16;
    constexpr long rowsAProcessor = 4;
    return static_cast<unsigned long>(
        std::max(fewest, rowsAProcessor * sysconf(_SC_NPROCESSORS_ONLN)));
}

// The kernel takes powers of two alone.
unsigned long RowsFor(std::uint32_t threadCount) {
    const unsigned long wanted = std::max(FewestRows(), threadCount / ThreadsARow);
    unsigned long rows = 1;
    while (rows < wanted) {
        rows *= 2;
    }
    return rows;
}

}  // namespace

void SizeWaiterTable(std::uint32_t threadCount) {
    // Refused, the table stays as it is, and nothing is wrong but the speed.
    prctl(FutexHash, FutexHashSetSlots, RowsFor(threadCount), 0UL, 0UL);
}

}  // namespace kennly
