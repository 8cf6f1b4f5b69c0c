#include "sync/Thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "main/ProcessState.h"
#include "support/ProbeJob.h"
#include "support/RecordedLog.h"

namespace {

// What the thread library is asked for, and what it answers instead of working.
struct Library {
    int createError = 0;
    int joinError = 0;
    int creations = 0;
    bool withAttributes = false;
    pthread_t last = {};
    int joins = 0;
    std::function<void(int)> beforeJoin;
} library;

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __real_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
    ++library.creations;
    library.withAttributes = attributes != nullptr;
    if (library.createError != 0) {
        return library.createError;
    }
    const int error = __real_pthread_create(thread, attributes, entry, argument);
    library.last = *thread;
    return error;
}

int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue) {
    ++library.joins;
    if (library.beforeJoin) {
        library.beforeJoin(library.joins);
    }
    return library.joinError != 0 ? library.joinError
                                  : __real_pthread_tryjoin_np(thread, exitValue);
}
}

namespace kennly::test {

using ::testing::IsEmpty;

// For every class derived from it as well.
static_assert(std::is_nothrow_destructible_v<Thread>);

namespace {

class BodyThread : public Thread {
public:
    explicit BodyThread(std::function<std::int32_t()> body) : body_(std::move(body)) {}
    std::int32_t Run() override { return body_(); }

private:
    const std::function<std::int32_t()> body_;
};

}  // namespace

class ThreadTest : public ::testing::Test {
protected:
    ThreadTest() {
        closingDown = false;
        ForgetLog();
        library = {};
    }
    ~ThreadTest() override {
        closingDown = false;
        library = {};
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happened
    }

    // The thread that was started last, joined behind its object's back.
    static std::intptr_t ExitValue() {
        void* value = nullptr;
        EXPECT_EQ(pthread_join(library.last, &value), 0);
        return reinterpret_cast<std::intptr_t>(value);
    }
};

TEST_F(ThreadTest, RunsItsBodyOnAThreadOfItsOwnWithDefaultAttributes) {
    pthread_t inside = {};
    BodyThread thread([&inside] {
        inside = pthread_self();
        return 0;
    });
    EXPECT_EQ(library.creations, 0);

    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.Join());

    EXPECT_NE(pthread_equal(inside, library.last), 0);
    EXPECT_EQ(pthread_equal(inside, pthread_self()), 0);
    EXPECT_EQ(library.creations, 1);
    EXPECT_FALSE(library.withAttributes);
}

TEST_F(ThreadTest, HasTheResultOfItsBodyAsExitValue) {
    for (const std::int32_t result : {0, 7, -3, INT32_MAX, INT32_MIN}) {
        SCOPED_TRACE(result);
        BodyThread thread([result] { return result; });
        ASSERT_TRUE(thread.Start());
        EXPECT_EQ(ExitValue(), result);
    }
}

TEST_F(ThreadTest, EndsWithMinusOneWhenItsBodyThrowsAnything) {
    BodyThread throwsException([]() -> std::int32_t { throw std::runtime_error("from Run"); });
    ASSERT_TRUE(throwsException.Start());
    EXPECT_EQ(ExitValue(), -1);

    BodyThread throwsNumber([]() -> std::int32_t { throw 42; });
    ASSERT_TRUE(throwsNumber.Start());
    EXPECT_EQ(ExitValue(), -1);
}

TEST_F(ThreadTest, TellsThatItCouldNotBeStarted) {
    library.createError = EAGAIN;
    bool ran = false;
    BodyThread thread([&ran] {
        ran = true;
        return 0;
    });

    EXPECT_FALSE(thread.Start());

    EXPECT_EQ(library.creations, 1);
    EXPECT_FALSE(ran);
}

TEST_F(ThreadTest, JoinWaitsForTheEndOfTheBody) {
    Gate gate;
    std::atomic<bool> ended{false};
    BodyThread thread([&] {
        gate.Wait();
        ended = true;
        return 0;
    });
    ASSERT_TRUE(thread.Start());
    library.beforeJoin = [&gate](int joins) {
        if (joins == 5) {
            gate.Open();
        }
    };

    EXPECT_TRUE(thread.Join());

    EXPECT_TRUE(ended);
    EXPECT_GE(library.joins, 5);
}

TEST_F(ThreadTest, JoinTellsThatJoiningFailed) {
    BodyThread thread([] { return 0; });
    ASSERT_TRUE(thread.Start());
    library.joinError = ESRCH;

    EXPECT_FALSE(thread.Join());

    EXPECT_EQ(library.joins, 1);
    EXPECT_EQ(ExitValue(), 0);
}

TEST_F(ThreadTest, JoinReturnsAtOnceWhileTheProcessShutsDown) {
    Gate gate;
    BodyThread thread([&gate] { return gate.Wait() ? 5 : 6; });
    ASSERT_TRUE(thread.Start());
    closingDown = true;

    EXPECT_TRUE(thread.Join());

    EXPECT_EQ(library.joins, 0);
    gate.Open();
    EXPECT_EQ(ExitValue(), 5);  // it was neither joined nor hindered
}

TEST_F(ThreadTest, JoinIsLeftWhenAShutdownIsAskedForWhileItWaits) {
    Gate gate;
    BodyThread thread([&gate] { return gate.Wait() ? 5 : 6; });
    ASSERT_TRUE(thread.Start());
    library.beforeJoin = [](int joins) {
        closingDown = joins == 3;
    };

    EXPECT_TRUE(thread.Join());

    EXPECT_EQ(library.joins, 3);
    gate.Open();
    EXPECT_EQ(ExitValue(), 5);
}

}  // namespace kennly::test
