#include "sync/WaiterTable.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <thread>
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

}  // namespace

extern "C" {

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

TEST(WaiterTable, HasARowForFourThreadsAndAPowerOfTwoOfThem) {
    EXPECT_EQ(WaiterTableRows(0, 1), 16U);
    EXPECT_EQ(WaiterTableRows(3, 1), 16U);
    EXPECT_EQ(WaiterTableRows(67, 1), 16U);
    EXPECT_EQ(WaiterTableRows(68, 1), 32U);
    EXPECT_EQ(WaiterTableRows(3000, 1), 1024U);
    EXPECT_EQ(WaiterTableRows(15000, 1), 4096U);
    EXPECT_EQ(WaiterTableRows(0xFFFFFFFF, 1), 0x40000000U);
}

TEST(WaiterTable, IsNoSmallerThanTheKernelWouldChooseByItself) {
    EXPECT_EQ(WaiterTableRows(3, -1), 16U);
    EXPECT_EQ(WaiterTableRows(3, 4), 16U);
    EXPECT_EQ(WaiterTableRows(3, 5), 32U);
    EXPECT_EQ(WaiterTableRows(90, 32), 128U);
    EXPECT_EQ(WaiterTableRows(3000, 32), 1024U);
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
    EXPECT_EQ(rowsAsked, WaiterTableRows(90, sysconf(_SC_NPROCESSORS_ONLN)));
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
