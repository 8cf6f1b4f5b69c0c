#include "sync/Event.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/ProbeJob.h"

namespace {

// What the condition variable does instead of its work while `fails` is set.
struct Condition {
    std::atomic<bool> fails{false};
    std::atomic<bool> wakesForNothing{false};
    std::atomic<int> waits{0};
    std::atomic<int> broadcasts{0};
    std::atomic<pthread_mutex_t*> mutex{nullptr};
} condition;

// The mutexes that this thread takes, in order, while there is a list for them.
thread_local std::vector<pthread_mutex_t*>* taken = nullptr;

}  // namespace

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_cond_wait(pthread_cond_t* variable, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* variable, pthread_mutex_t* mutex);
int __real_pthread_cond_broadcast(pthread_cond_t* variable);
int __wrap_pthread_cond_broadcast(pthread_cond_t* variable);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (taken != nullptr) {
        taken->push_back(mutex);
    }
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_cond_wait(pthread_cond_t* variable, pthread_mutex_t* mutex) {
    ++condition.waits;
    condition.mutex = mutex;
    if (condition.fails) {
        return EINVAL;
    }
    if (condition.wakesForNothing.exchange(false)) {
        return 0;
    }
    return __real_pthread_cond_wait(variable, mutex);
}

int __wrap_pthread_cond_broadcast(pthread_cond_t* variable) {
    ++condition.broadcasts;
    return condition.fails ? EINVAL : __real_pthread_cond_broadcast(variable);
}
}

namespace kennly::test {

static_assert(std::is_nothrow_destructible_v<Event>);

namespace {

// A thread that waits for the event and keeps what the wait returned.
class Waiter {
public:
    explicit Waiter(Event& event)
        : thread_([this, &event] {
              result_ = event.Wait();
              returned_ = true;
          }) {}
    ~Waiter() { thread_.join(); }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    bool Returns() {
        return WaitUntil([this] { return returned_.load(); }, WaitLimit);
    }
    bool HasReturned() const { return returned_; }
    bool Result() const { return result_; }

private:
    std::atomic<bool> result_{false};
    std::atomic<bool> returned_{false};
    std::thread thread_;
};

}  // namespace

class EventTest : public ::testing::Test {
protected:
    EventTest() {
        condition.fails = false;
        condition.wakesForNothing = false;
        condition.waits = 0;
        condition.broadcasts = 0;
    }

    // A thread that has begun to wait holds the event's mutex until it sleeps.
    static bool HaveBegunToWait(int count) {
        return WaitUntil([count] { return condition.waits >= count; }, WaitLimit);
    }
};

TEST_F(EventTest, BeginsAsItWasMade) {
    EXPECT_TRUE(Event(true).IsSet());
    EXPECT_FALSE(Event(false).IsSet());
}

TEST_F(EventTest, IsSetAndResetByHandAndSaysSo) {
    Event event(false);

    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.IsSet());
    EXPECT_TRUE(event.Reset());
    EXPECT_FALSE(event.IsSet());
    EXPECT_TRUE(event.Reset());
    EXPECT_FALSE(event.IsSet());
    EXPECT_EQ(condition.broadcasts, 1);
}

TEST_F(EventTest, WaitReturnsFalseAtOnceWhenItIsSetAlreadyAndStaysSet) {
    Event event(true);

    EXPECT_FALSE(event.Wait());

    EXPECT_TRUE(event.IsSet());
    EXPECT_EQ(condition.waits, 0);
}

TEST_F(EventTest, WaitReturnsTrueOnceAnotherThreadSetsItAndStaysSet) {
    Event event(false);
    Waiter waiter(event);
    ASSERT_TRUE(HaveBegunToWait(1));

    EXPECT_TRUE(event.Set());

    ASSERT_TRUE(waiter.Returns());
    EXPECT_TRUE(waiter.Result());
    EXPECT_TRUE(event.IsSet());
}

TEST_F(EventTest, SetWakesEveryWaiter) {
    constexpr int count = 5;
    Event event(false);
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int i = 0; i < count; ++i) {
        waiters.push_back(std::make_unique<Waiter>(event));
    }
    ASSERT_TRUE(HaveBegunToWait(count));

    event.Set();

    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter->Returns());
        EXPECT_TRUE(waiter->Result());
    }
}

TEST_F(EventTest, WaitGoesOnWaitingWhenItIsWokenForNothing) {
    condition.wakesForNothing = true;
    Event event(false);
    Waiter waiter(event);
    ASSERT_TRUE(HaveBegunToWait(2));
    EXPECT_FALSE(waiter.HasReturned());

    event.Set();

    ASSERT_TRUE(waiter.Returns());
    EXPECT_TRUE(waiter.Result());
}

TEST_F(EventTest, WaitReturnsFalseWhenWaitingFails) {
    condition.fails = true;
    Event event(false);

    EXPECT_FALSE(event.Wait());

    EXPECT_EQ(condition.waits, 1);
    EXPECT_FALSE(event.IsSet());
}

TEST_F(EventTest, SetReturnsFalseWhenTheWaitersCannotBeWokenButIsSet) {
    condition.fails = true;
    Event event(false);

    EXPECT_FALSE(event.Set());

    EXPECT_EQ(condition.broadcasts, 1);
    EXPECT_TRUE(event.IsSet());
}

TEST_F(EventTest, WaitReleasingTakesItsOwnMutexBeforeItGivesTheLockUp) {
    condition.fails = true;
    CriticalSection lock(true);
    Event event(false);
    AutoLock own(&lock);
    std::vector<pthread_mutex_t*> order;

    taken = &order;
    EXPECT_FALSE(event.WaitReleasing(own));
    taken = nullptr;

    ASSERT_FALSE(order.empty());
    EXPECT_EQ(order.front(), condition.mutex.load());
}

TEST_F(EventTest, WaitReleasingGivesTheLockUpSoThatItsHolderCanSetIt) {
    CriticalSection lock(true);
    Event event(false);
    std::atomic<bool> result{false};
    Gate held;
    std::thread waiter([&] {
        AutoLock own(&lock);
        held.Open();
        result = event.WaitReleasing(own);
    });
    ASSERT_TRUE(held.Wait());

    {
        const AutoLock own(&lock);
        event.Set();
    }

    waiter.join();
    EXPECT_TRUE(result);
    EXPECT_EQ(condition.waits, 1);
}

TEST_F(EventTest, WaitReleasingGivesTheLockUpAndReturnsFalseWhenItIsSetAlready) {
    CriticalSection lock(true);
    Event event(true);
    AutoLock own(&lock);

    EXPECT_FALSE(event.WaitReleasing(own));

    std::thread([&lock] { const AutoLock other(&lock); }).join();  // hangs if the lock is held
    EXPECT_EQ(condition.waits, 0);
}

}  // namespace kennly::test
