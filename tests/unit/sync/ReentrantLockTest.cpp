#include "sync/ReentrantLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <type_traits>

#include "support/ProbeJob.h"
#include "sync/AppMutex.h"
#include "sync/CriticalSection.h"

namespace kennly::test {

static_assert(std::is_nothrow_destructible_v<CriticalSection>);
static_assert(std::is_nothrow_destructible_v<AppMutex>);

namespace {

// Another thread that takes the lock and gives it up again.
template <typename Lock>
class Contender {
public:
    explicit Contender(Lock& lock)
        : thread_([this, &lock] {
              arriving_ = true;
              lock.Lock();
              entered_ = true;
              lock.Unlock();
          }) {
        WaitUntil([this] { return arriving_.load(); }, WaitLimit);
    }
    ~Contender() { thread_.join(); }
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    bool Enters() {
        return WaitUntil([this] { return entered_.load(); }, WaitLimit);
    }
    // Gives it time enough to enter a lock that is free by mistake.
    bool StaysOut() {
        return !WaitUntil([this] { return entered_.load(); }, std::chrono::milliseconds(30));
    }

private:
    std::atomic<bool> arriving_{false};
    std::atomic<bool> entered_{false};
    std::thread thread_;
};

template <typename Action>
void OnAnotherThread(Action action) {
    std::thread(action).join();
}

}  // namespace

template <typename Lock>
class ReentrantLockTest : public ::testing::Test {
protected:
    Lock lock{true};
};

using BothPurposes = ::testing::Types<CriticalSection, AppMutex>;
TYPED_TEST_SUITE(ReentrantLockTest, BothPurposes, );  // the comma is for clang++

TYPED_TEST(ReentrantLockTest, IsFreedByTheLastOfAsManyUnlocksAsLocks) {
    for (int level = 0; level < 3; ++level) {
        this->lock.Lock();
    }
    Contender<TypeParam> other(this->lock);

    EXPECT_TRUE(other.StaysOut());
    this->lock.Unlock();
    EXPECT_TRUE(other.StaysOut());
    this->lock.Unlock();
    EXPECT_TRUE(other.StaysOut());
    this->lock.Unlock();

    EXPECT_TRUE(other.Enters());
}

TYPED_TEST(ReentrantLockTest, IgnoresAnUnlockByAThreadThatDoesNotHoldIt) {
    this->lock.Lock();
    this->lock.Lock();
    OnAnotherThread([this] {
        this->lock.Unlock();
        this->lock.Unlock();
    });
    Contender<TypeParam> other(this->lock);

    this->lock.Unlock();
    EXPECT_TRUE(other.StaysOut());
    this->lock.Unlock();

    EXPECT_TRUE(other.Enters());
}

TYPED_TEST(ReentrantLockTest, IgnoresAnUnlockWhileItIsFree) {
    this->lock.Unlock();
    this->lock.Lock();
    Contender<TypeParam> first(this->lock);
    EXPECT_TRUE(first.StaysOut());
    this->lock.Unlock();
    EXPECT_TRUE(first.Enters());

    this->lock.Unlock();  // by the thread that owned it last

    Contender<TypeParam> second(this->lock);
    EXPECT_TRUE(second.Enters());
}

TYPED_TEST(ReentrantLockTest, KeepsTwoThreadsOutOfEachOthersWay) {
    constexpr int rounds = 20000;
    int count = 0;  // wrong in the end, and a race, if the lock lets two threads in
    const auto work = [this, &count] {
        for (int i = 0; i < rounds; ++i) {
            this->lock.Lock();
            this->lock.Lock();
            ++count;
            this->lock.Unlock();
            this->lock.Unlock();
        }
    };

    std::thread other(work);
    work();
    other.join();

    EXPECT_EQ(count, 2 * rounds);
}

TYPED_TEST(ReentrantLockTest, IsAPlainMutexWithoutRecursion) {
    TypeParam plain(false);
    plain.Lock();
    Contender<TypeParam> other(plain);
    EXPECT_TRUE(other.StaysOut());

    plain.Unlock();

    EXPECT_TRUE(other.Enters());
}

TEST(LockTypesTest, CannotBePassedForEachOtherNorCopied) {
    EXPECT_FALSE((std::is_convertible_v<CriticalSection*, AppMutex*>));
    EXPECT_FALSE((std::is_convertible_v<AppMutex*, CriticalSection*>));
    EXPECT_FALSE(std::is_copy_constructible_v<CriticalSection>);
    EXPECT_FALSE(std::is_copy_assignable_v<CriticalSection>);
}

}  // namespace kennly::test
