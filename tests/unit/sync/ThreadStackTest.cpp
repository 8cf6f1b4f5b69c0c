#include "sync/ThreadStack.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/Sanitizers.h"

namespace {

// The function that refuses to work.
std::string refusing;

}  // namespace

extern "C" {

int __real_pthread_getattr_default_np(pthread_attr_t* attributes);
int __wrap_pthread_getattr_default_np(pthread_attr_t* attributes);
int __real_pthread_attr_setstacksize(pthread_attr_t* attributes, std::size_t size);
int __wrap_pthread_attr_setstacksize(pthread_attr_t* attributes, std::size_t size);
int __real_pthread_setattr_default_np(const pthread_attr_t* attributes);
int __wrap_pthread_setattr_default_np(const pthread_attr_t* attributes);

int __wrap_pthread_getattr_default_np(pthread_attr_t* attributes) {
    return refusing == "getattr" ? ENOMEM : __real_pthread_getattr_default_np(attributes);
}

int __wrap_pthread_attr_setstacksize(pthread_attr_t* attributes, std::size_t size) {
    return refusing == "setstacksize" ? EINVAL : __real_pthread_attr_setstacksize(attributes, size);
}

int __wrap_pthread_setattr_default_np(const pthread_attr_t* attributes) {
    return refusing == "setattr" ? EINVAL : __real_pthread_setattr_default_np(attributes);
}
}

namespace kennly::test {

namespace {

struct Stack {
    const void* lowest = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
};

Stack StackOfThisThread() {
    Stack found;
    void* lowest = nullptr;
    pthread_attr_t attributes;
    EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    EXPECT_EQ(pthread_attr_getstack(&attributes, &lowest, &found.size), 0);
    EXPECT_EQ(pthread_attr_getguardsize(&attributes, &found.guard), 0);
    pthread_attr_destroy(&attributes);
    found.lowest = lowest;
    return found;
}

Stack StackOfANewThread() {
    Stack found;
    std::thread([&found] { found = StackOfThisThread(); }).join();
    return found;
}

// The bytes of the calling thread's stack between its top and the deepest that is not zero any
// more.
std::size_t UsedOfStack() {
    const Stack stack = StackOfThisThread();
    const auto* const bytes = static_cast<const volatile unsigned char*>(stack.lowest);
    std::size_t untouched = 0;
    while (untouched < stack.size && bytes[untouched] == 0) {
        ++untouched;
    }
    return stack.size - untouched;
}

std::size_t UsedByAnException() {
    try {
        throw std::runtime_error("caught");
    } catch (const std::exception&) {
        return UsedOfStack();
    }
}

}  // namespace

class ThreadStackTest : public ::testing::Test {
protected:
    static constexpr std::size_t StackBefore = std::size_t{4} * 1024 * 1024;

    ThreadStackTest() {
        refusing.clear();
        EXPECT_EQ(pthread_getattr_default_np(&usual_), 0);
        pthread_attr_t before = usual_;
        EXPECT_EQ(pthread_attr_setstacksize(&before, StackBefore), 0);
        EXPECT_EQ(pthread_setattr_default_np(&before), 0);
    }
    ~ThreadStackTest() override {
        refusing.clear();
        EXPECT_EQ(pthread_setattr_default_np(&usual_), 0);
        pthread_attr_destroy(&usual_);
    }

private:
    pthread_attr_t usual_ = {};  // of the whole process
};

TEST_F(ThreadStackTest, IsThatOfEachThreadFromThenOnAndHasItsGuard) {
    const Stack before = StackOfANewThread();
    ASSERT_EQ(before.size, StackBefore);
    ASSERT_GT(before.guard, 0U);

    EXPECT_TRUE(SetThreadStack());

    for (int thread = 0; thread < 3; ++thread) {
        const Stack after = StackOfANewThread();
        EXPECT_EQ(after.size, ThreadStackBytes);
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
    for (const char* const function : {"getattr", "setstacksize", "setattr"}) {
        SCOPED_TRACE(function);
        refusing = function;

        EXPECT_FALSE(SetThreadStack());

        EXPECT_EQ(StackOfANewThread().size, StackBefore);
    }
}

TEST_F(ThreadStackTest, IsManyTimesWhatAnExceptionNeeds) {
    if (WithSanitizer) {
        GTEST_SKIP() << "a sanitizer needs more of it";
    }
    ASSERT_TRUE(SetThreadStack());
    std::size_t used = 0;

    std::thread([&used] { used = UsedByAnException(); }).join();

    EXPECT_GT(used, 0U);
    EXPECT_LE(8 * used, ThreadStackBytes);
    std::cout << "    " << used << " bytes used" << std::endl;
}

}  // namespace kennly::test
