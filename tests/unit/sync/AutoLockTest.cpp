#include "sync/AutoLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/ProbeJob.h"

namespace kennly::test {

static_assert(std::is_nothrow_destructible_v<AutoLock>);

class AutoLockTest : public ::testing::Test {
protected:
    // Whether another thread can take the lock. One that cannot keeps trying until the lock is
    // given up, at the latest at the end of the test.
    bool IsFree(std::chrono::milliseconds limit) {
        tries.push_back(std::make_unique<Try>());
        Try& attempt = *tries.back();
        attempt.thread = std::thread([this, &attempt] {
            const AutoLock held(&lock);
            attempt.entered = true;
        });
        return WaitUntil([&attempt] { return attempt.entered.load(); }, limit);
    }
    bool IsFree() { return IsFree(WaitLimit); }
    bool IsHeld() { return !IsFree(std::chrono::milliseconds(30)); }

    ~AutoLockTest() override {
        for (const auto& attempt : tries) {
            attempt->thread.join();
        }
    }

    struct Try {
        std::atomic<bool> entered{false};
        std::thread thread;
    };

    CriticalSection lock{true};
    std::vector<std::unique_ptr<Try>> tries;
};

TEST_F(AutoLockTest, HoldsTheLockToTheEndOfItsScope) {
    {
        const AutoLock held(&lock);
        EXPECT_TRUE(IsHeld());
    }
    EXPECT_TRUE(IsFree());
}

TEST_F(AutoLockTest, GivesTheLockUpWhenAnExceptionLeavesItsScope) {
    try {
        const AutoLock held(&lock);
        throw std::runtime_error("leaves the scope");
    } catch (const std::runtime_error&) {
        EXPECT_TRUE(IsFree());
    }
}

TEST_F(AutoLockTest, CanBeNestedOnOneThread) {
    const AutoLock outer(&lock);
    { const AutoLock inner(&lock); }
    EXPECT_TRUE(IsHeld());
}

TEST_F(AutoLockTest, GivesTheLockUpOnceWhenReleasedEarly) {
    AutoLock outer(&lock);
    {
        AutoLock inner(&lock);
        inner.Release();
        inner.Release();
        EXPECT_TRUE(IsHeld());
    }
    EXPECT_TRUE(IsHeld());

    outer.Release();

    EXPECT_TRUE(IsFree());
}

}  // namespace kennly::test
