#include "pool/ActionProcessingTask.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "action/ProcessAction.h"

namespace {

std::function<std::int32_t(const std::string&)> remedy;  // what ProcessAction does
std::function<void()> whenARegistryBecomesEmpty;

}  // namespace

namespace kennly {

std::int32_t ProcessAction(const std::string& jobName) {
    return remedy(jobName);
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

class ActionProcessingTaskTest : public ::testing::Test {
protected:
    ActionProcessingTaskTest() {
        registry->Register("web");
        remedy = [](const std::string& /*jobName*/) {
            return ResultHealthy;
        };
    }
    ~ActionProcessingTaskTest() override {
        remedy = nullptr;
        whenARegistryBecomesEmpty = nullptr;
    }

    const std::shared_ptr<TaskRegistry> registry = std::make_shared<TaskRegistry>();
    ActionProcessingTask task{registry, "web"};
};

TEST_F(ActionProcessingTaskTest, IsWaitableAndWithoutAResultUntilItRuns) {
    EXPECT_TRUE(task.IsWaitable());
    EXPECT_EQ(task.Result(), ResultNotEvaluated);
    EXPECT_FALSE(registry->IsEmpty());
}

TEST_F(ActionProcessingTaskTest, KeepsWhatTheRemedyReturns) {
    for (const std::int32_t result : {1, 0, -1, 77}) {
        SCOPED_TRACE(result);
        std::string name;
        remedy = [&](const std::string& jobName) {
            name = jobName;
            return result;
        };
        task.Run(5);
        EXPECT_EQ(task.Result(), result);
        EXPECT_EQ(name, "web");
    }
}

TEST_F(ActionProcessingTaskTest, IsRegisteredAndWithoutAResultWhileTheRemedyRuns) {
    task.Run(0);  // leaves a result behind
    registry->Register("web");
    std::int32_t during = ResultHealthy;
    bool registered = false;
    remedy = [&](const std::string& jobName) {
        during = task.Result();
        registered = !registry->Register(jobName);
        return ResultFailed;
    };

    task.Run(0);

    EXPECT_EQ(during, ResultNotEvaluated);
    EXPECT_TRUE(registered);
    EXPECT_TRUE(registry->IsEmpty());
}

TEST_F(ActionProcessingTaskTest, StoresItsResultBeforeItLeavesTheRegistry) {
    std::int32_t resultOnLeaving = 99;
    whenARegistryBecomesEmpty = [&] {
        resultOnLeaving = task.Result();
    };

    task.Run(0);

    EXPECT_EQ(resultOnLeaving, ResultHealthy);
}

TEST_F(ActionProcessingTaskTest, HasNoResultWhenTheRemedyThrowsAndLeavesTheRegistry) {
    task.Run(0);
    registry->Register("web");
    remedy = [](const std::string& /*jobName*/) -> std::int32_t {
        throw std::runtime_error("from the remedy");
    };

    EXPECT_NO_THROW(task.Run(0));

    EXPECT_EQ(task.Result(), ResultNotEvaluated);
    EXPECT_TRUE(registry->IsEmpty());
}

TEST_F(ActionProcessingTaskTest, LeavesTheRegistryWithoutAResultWhenItIsGivenUp) {
    task.GivenUp();

    EXPECT_TRUE(registry->IsEmpty());
    EXPECT_EQ(task.Result(), ResultNotEvaluated);
}

TEST_F(ActionProcessingTaskTest, LeavesOtherJobsRegistered) {
    registry->Register("mail");

    task.Run(0);

    EXPECT_FALSE(registry->Register("mail"));
    EXPECT_TRUE(registry->Register("web"));
}

TEST(ActionProcessingTaskOwnershipTest, HoldsItsRegistry) {
    auto registry = std::make_shared<TaskRegistry>();
    const std::weak_ptr<TaskRegistry> observed = registry;
    {
        const ActionProcessingTask task(registry, "web");
        registry.reset();
        EXPECT_FALSE(observed.expired());
    }
    EXPECT_TRUE(observed.expired());
}

}  // namespace kennly::test
