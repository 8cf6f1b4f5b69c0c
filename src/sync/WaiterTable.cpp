#include "sync/WaiterTable.h"

#include <sys/prctl.h>

namespace kennly {

namespace {

// Not yet in the headers of every system that we build on.
constexpr int FutexHash = 78;                   // PR_FUTEX_HASH
constexpr unsigned long FutexHashSetSlots = 1;  // PR_FUTEX_HASH_SET_SLOTS

constexpr unsigned long ThreadsARow = 4;
constexpr unsigned long FewestRows = 16;  // as the kernel has at least

// The kernel takes powers of two alone.
unsigned long RowsFor(std::uint32_t threadCount) {
    unsigned long rows = FewestRows;
    while (rows < threadCount / ThreadsARow) {
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
