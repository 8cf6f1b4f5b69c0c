#include "sync/ThreadStack.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstdint>
#include <iostream>
#include <stdexcept>

#include "support/Sanitizers.h"
#include "sync/Thread.h"

namespace {

bool isRefused = false;

}  // namespace

extern "C" {

int __real_pthread_setattr_default_np(const pthread_attr_t* attributes);
int __wrap_pthread_setattr_default_np(const pthread_attr_t* attributes);

int __wrap_pthread_setattr_default_np(const pthread_attr_t* attributes) {
    return isRefused ? EINVAL : __real_pthread_setattr_default_np(attributes);
}
}

namespace kennly::test {

namespace {

struct Attributes {
    std::size_t stack = 0;
    std::size_t guard = 0;
};

// Fills in those of the calling thread.
void Examine(Attributes& found) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    EXPECT_EQ(pthread_attr_getstacksize(&attributes, &found.stack), 0);
    EXPECT_EQ(pthread_attr_getguardsize(&attributes, &found.guard), 0);
    pthread_attr_destroy(&attributes);
}

class ExaminedThread : public Thread {
public:
    std::int32_t Run() override {
        Examine(found);
        return 0;
    }

    Attributes found;
};

// The bytes of the calling thread's stack between its top and the deepest that is not zero any
// more.
std::size_t UsedOfStack() {
    pthread_attr_t attributes;
    void* lowest = nullptr;
    std::size_t size = 0;
    EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    EXPECT_EQ(pthread_attr_getstack(&attributes, &lowest, &size), 0);
    pthread_attr_destroy(&attributes);
    const auto* const bytes = static_cast<const volatile unsigned char*>(lowest);
    std::size_t untouched = 0;
    while (untouched < size && bytes[untouched] == 0) {
        ++untouched;
    }
    return size - untouched;
}

class ThrowingThread : public Thread {
public:
    std::int32_t Run() override {
        try {
            throw std::runtime_error("caught");
        } catch (const std::exception&) {
            used = UsedOfStack();
        }
        return 0;
    }

    std::size_t used = 0;
};

Attributes AttributesOfANewThread() {
    ExaminedThread thread;
    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.Join());
    return thread.found;
}

}  // namespace

class ThreadStackTest : public ::testing::Test {
protected:
    static constexpr std::size_t StackBefore = std::size_t{4} * 1024 * 1024;

    ThreadStackTest() {
        isRefused = false;
        EXPECT_EQ(pthread_getattr_default_np(&usual_), 0);
        pthread_attr_t before = usual_;
        EXPECT_EQ(pthread_attr_setstacksize(&before, StackBefore), 0);
        EXPECT_EQ(__real_pthread_setattr_default_np(&before), 0);
    }
    ~ThreadStackTest() override {
        EXPECT_EQ(__real_pthread_setattr_default_np(&usual_), 0);
        pthread_attr_destroy(&usual_);
    }

private:
    pthread_attr_t usual_ = {};  // of the whole process
};

TEST_F(ThreadStackTest, IsThatOfEachThreadFromThenOnAndHasItsGuard) {
    const Attributes before = AttributesOfANewThread();
    ASSERT_EQ(before.stack, StackBefore);
    ASSERT_GT(before.guard, 0U);

    EXPECT_TRUE(SetThreadStack());

    for (int thread = 0; thread < 3; ++thread) {
        const Attributes after = AttributesOfANewThread();
        EXPECT_EQ(after.stack, ThreadStackBytes);
        EXPECT_EQ(after.guard, before.guard);
    }
}

TEST_F(ThreadStackTest, LeavesTheLimitThatCommandsInheritAlone) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_STACK, &before), 0);

    EXPECT_TRUE(SetThreadStack());

    rlimit after = {};
    ASSERT_EQ(getrlimit(RLIMIT_STACK, &after), 0);
    EXPECT_EQ(after.rlim_cur, before.rlim_cur);
    EXPECT_EQ(after.rlim_max, before.rlim_max);
}

TEST_F(ThreadStackTest, StaysAsItIsWhenTheSystemRefuses) {
    isRefused = true;

    EXPECT_FALSE(SetThreadStack());

    EXPECT_EQ(AttributesOfANewThread().stack, StackBefore);
}

TEST_F(ThreadStackTest, IsManyTimesWhatAnExceptionNeeds) {
    if (WithSanitizer) {
        GTEST_SKIP() << "a sanitizer needs more of it";
    }
    ASSERT_TRUE(SetThreadStack());
    ThrowingThread thread;
    ASSERT_TRUE(thread.Start());

    ASSERT_TRUE(thread.Join());

    EXPECT_GT(thread.used, 0U);
    EXPECT_LE(8 * thread.used, ThreadStackBytes);
    std::cout << "    " << thread.used << " bytes used" << std::endl;
}

}  // namespace kennly::test
