#include "pool/WatchProcessingTask.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "watch/ProcessWatch.h"

namespace {

std::function<std::int32_t(const std::string&)> check;  // what ProcessWatch does
std::function<void()> whenARegistryBecomesEmpty;

}  // namespace

namespace kennly {

std::int32_t ProcessWatch(const std::string& jobName) {
    return check(jobName);
}

}  // namespace kennly

extern "C" {

int __real_pthread_cond_broadcast(pthread_cond_t* variable);
int __wrap_pthread_cond_broadcast(pthread_cond_t* variable);

int __wrap_pthread_cond_broadcast(pthread_cond_t* variable) {
    if (whenARegistryBecomesEmpty) {
        whenARegistryBecomesEmpty();
    }
    return __real_pthread_cond_broadcast(variable);
}
}

namespace kennly::test {

class WatchProcessingTaskTest : public ::testing::Test {
protected:
    WatchProcessingTaskTest() {
        registry->Register("web");
        check = [](const std::string& /*jobName*/) {
            return ResultHealthy;
        };
    }
    ~WatchProcessingTaskTest() override {
        check = nullptr;
        whenARegistryBecomesEmpty = nullptr;
    }

    const std::shared_ptr<TaskRegistry> registry = std::make_shared<TaskRegistry>();
    WatchProcessingTask task{registry, "web"};
};

TEST_F(WatchProcessingTaskTest, IsWaitableAndWithoutAResultUntilItRuns) {
    EXPECT_TRUE(task.IsWaitable());
    EXPECT_EQ(task.Result(), ResultNotEvaluated);
    EXPECT_FALSE(registry->IsEmpty());
}

TEST_F(WatchProcessingTaskTest, KeepsWhatTheCheckReturns) {
    for (const std::int32_t result : {1, 0, -1, 77}) {
        SCOPED_TRACE(result);
        std::string name;
        check = [&](const std::string& jobName) {
            name = jobName;
            return result;
        };
        task.Run(5);
        EXPECT_EQ(task.Result(), result);
        EXPECT_EQ(name, "web");
    }
}

TEST_F(WatchProcessingTaskTest, IsRegisteredAndWithoutAResultWhileTheCheckRuns) {
    task.Run(0);  // leaves a result behind
    registry->Register("web");
    std::int32_t during = ResultHealthy;
    bool registered = false;
    check = [&](const std::string& jobName) {
        during = task.Result();
        registered = !registry->Register(jobName);
        return ResultFailed;
    };

    task.Run(0);

    EXPECT_EQ(during, ResultNotEvaluated);
    EXPECT_TRUE(registered);
    EXPECT_TRUE(registry->IsEmpty());
}

TEST_F(WatchProcessingTaskTest, StoresItsResultBeforeItLeavesTheRegistry) {
    std::int32_t resultOnLeaving = 99;
    whenARegistryBecomesEmpty = [&] {
        resultOnLeaving = task.Result();
    };

    task.Run(0);

    EXPECT_EQ(resultOnLeaving, ResultHealthy);
}

TEST_F(WatchProcessingTaskTest, HasNoResultWhenTheCheckThrowsAndLeavesTheRegistry) {
    task.Run(0);
    registry->Register("web");
    check = [](const std::string& /*jobName*/) -> std::int32_t {
        throw std::runtime_error("from the check");
    };

    EXPECT_NO_THROW(task.Run(0));

    EXPECT_EQ(task.Result(), ResultNotEvaluated);
    EXPECT_TRUE(registry->IsEmpty());
}

TEST_F(WatchProcessingTaskTest, LeavesTheRegistryWithoutAResultWhenItIsGivenUp) {
    task.GivenUp();

    EXPECT_TRUE(registry->IsEmpty());
    EXPECT_EQ(task.Result(), ResultNotEvaluated);
}

TEST_F(WatchProcessingTaskTest, LeavesOtherJobsRegistered) {
    registry->Register("mail");

    task.Run(0);

    EXPECT_FALSE(registry->Register("mail"));
    EXPECT_TRUE(registry->Register("web"));
}

TEST(WatchProcessingTaskOwnershipTest, HoldsItsRegistry) {
    auto registry = std::make_shared<TaskRegistry>();
    const std::weak_ptr<TaskRegistry> observed = registry;
    {
        const WatchProcessingTask task(registry, "web");
        registry.reset();
        EXPECT_FALSE(observed.expired());
    }
    EXPECT_TRUE(observed.expired());
}

}  // namespace kennly::test
