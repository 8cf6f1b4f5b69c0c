#include "sync/WaiterTable.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <thread>
#include <utility>
#include <vector>

#include "pool/WatchDogThreadPool.h"
#include "sync/AutoLock.h"
#include "sync/CriticalSection.h"
#include "sync/Event.h"

namespace {

constexpr int FutexHash = 78;
constexpr unsigned long SetSlots = 1;
constexpr unsigned long GetSlots = 2;

// What the kernel was asked for last.
unsigned long rowsAsked = 0;
bool refuses = false;

long processors = 1;

}  // namespace

extern "C" {

long __wrap_sysconf(int name);
long __real_sysconf(int name);

long __wrap_sysconf(int name) {
    return name == _SC_NPROCESSORS_ONLN ? processors : __real_sysconf(name);
}

int __real_prctl(int option, ...);
int __wrap_prctl(int option, ...);

int __wrap_prctl(int option, ...) {
    va_list arguments;
    va_start(arguments, option);
    const auto operation = va_arg(arguments, unsigned long);
    const auto rows = va_arg(arguments, unsigned long);
    const auto flags = va_arg(arguments, unsigned long);
    va_end(arguments);
    if (option == FutexHash && operation == SetSlots && flags == 0) {
        rowsAsked = rows;
        if (refuses) {
            errno = EINVAL;
            return -1;
        }
    }
    return __real_prctl(option, operation, rows, flags, 0UL);
}
}

namespace kennly::test {

namespace {

unsigned long RowsAskedFor(std::uint32_t threads) {
    rowsAsked = 0;
    SizeWaiterTable(threads);
    return rowsAsked;
}

TEST(WaiterTable, HasARowForFourThreadsAndAPowerOfTwoOfThem) {
    refuses = true;  // the largest would take what memory the kernel has
    EXPECT_EQ(RowsAskedFor(0), 16U);
    EXPECT_EQ(RowsAskedFor(3), 16U);
    EXPECT_EQ(RowsAskedFor(67), 16U);
    EXPECT_EQ(RowsAskedFor(68), 32U);
    EXPECT_EQ(RowsAskedFor(3000), 1024U);
    EXPECT_EQ(RowsAskedFor(15000), 4096U);
    EXPECT_EQ(RowsAskedFor(0xFFFFFFFF), 0x40000000U);
    refuses = false;
}

TEST(WaiterTable, IsNoSmallerThanTheKernelWouldChooseByItself) {
    refuses = true;
    for (const auto& [number, rows] :
         {std::pair(-1L, 16UL), {4L, 16UL}, {5L, 32UL}, {32L, 128UL}}) {
        processors = number;
        EXPECT_EQ(RowsAskedFor(90), std::max(rows, 32UL)) << number;
        EXPECT_EQ(RowsAskedFor(3), rows) << number;
        EXPECT_EQ(RowsAskedFor(3000), 1024U) << number;
    }
    processors = 1;
    refuses = false;
}

TEST(WaiterTable, IsWhatTheKernelHasThen) {
    if (prctl(FutexHash, GetSlots, 0UL, 0UL, 0UL) < 0) {
        GTEST_SKIP() << "this kernel has one table for all processes";
    }
    for (const std::uint32_t threads : {3000U, 15000U, 30U}) {
        SizeWaiterTable(threads);
        EXPECT_EQ(static_cast<unsigned long>(prctl(FutexHash, GetSlots, 0UL, 0UL, 0UL)), rowsAsked)
            << threads;
    }
}

TEST(WaiterTable, LosesNobodyWhoWaitsWhileItChanges) {
    constexpr int Waiters = 50;
    CriticalSection mutex(false);
    int waiting = 0;
    Event event(false);
    std::atomic<int> woken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < Waiters; ++i) {
        threads.emplace_back([&] {
            AutoLock lock(&mutex);
            ++waiting;
            woken += event.WaitReleasing(lock) ? 1 : 0;  // false when the event was set before
        });
    }
    const auto allWait = [&] {
        AutoLock lock(&mutex);
        return waiting == Waiters;
    };
    while (!allWait()) {
        std::this_thread::yield();
    }
    for (int i = 0; i < 20; ++i) {
        SizeWaiterTable(3000);
        SizeWaiterTable(0);
    }
    EXPECT_TRUE(event.Set());
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(woken, Waiters);
}

TEST(WaiterTable, SuitsThePoolThatIsMade) {
    rowsAsked = 0;
    ASSERT_TRUE(CreateThreadPool(90));
    EXPECT_EQ(rowsAsked, 32U);
    EXPECT_TRUE(TidyThreadPool());
}

TEST(WaiterTable, KeepsNoPoolFromBeingMadeWhenItIsRefused) {
    refuses = true;
    const bool created = CreateThreadPool(90);
    refuses = false;
    EXPECT_TRUE(created);
    EXPECT_TRUE(TidyThreadPool());
}

}  // namespace

}  // namespace kennly::test
