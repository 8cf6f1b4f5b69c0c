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

constexpr long FewestRows = 16;
constexpr long RowsAProcessor = 4;

}  // namespace

unsigned long WaiterTableRows(std::uint32_t threadCount, long processors) {
    const auto fewest =
        static_cast<unsigned long>(std::max(FewestRows, RowsAProcessor * processors));
    const unsigned long wanted = std::max(fewest, threadCount / ThreadsARow);
    unsigned long rows = 1;
    while (rows < wanted) {
        rows *= 2;
    }
    return rows;
}

void SizeWaiterTable(std::uint32_t threadCount) {
    // Refused, the table stays as it is, and nothing is wrong but the speed.
    prctl(FutexHash, FutexHashSetSlots, WaiterTableRows(threadCount, sysconf(_SC_NPROCESSORS_ONLN)),
          0UL, 0UL);
}

}  // namespace kennly
