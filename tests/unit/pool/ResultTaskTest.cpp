#include "pool/ResultTask.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "action/ProcessAction.h"
#include "pool/ActionProcessingTask.h"
#include "pool/WatchProcessingTask.h"
#include "watch/ProcessWatch.h"

namespace {

std::function<std::int32_t(const std::string&)> step;  // what the task runs
std::function<void()> whenARegistryBecomesEmpty;

}  // namespace

namespace kennly {

std::int32_t ProcessWatch(const std::string& jobName) {
    return step("check of " + jobName);
}

std::int32_t ProcessAction(const std::string& jobName) {
    return step("remedy of " + jobName);
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

namespace {

std::int32_t Step(const std::string& jobName) {
    return step(jobName);
}

}  // namespace

class ResultTaskTest : public ::testing::Test {
protected:
    ResultTaskTest() {
        registry->Register("web");
        step = [](const std::string& /*jobName*/) {
            return ResultHealthy;
        };
    }
    ~ResultTaskTest() override {
        step = nullptr;
        whenARegistryBecomesEmpty = nullptr;
    }

    const std::shared_ptr<TaskRegistry> registry = std::make_shared<TaskRegistry>();
    ResultTask<Step> task{registry, "web"};
};

TEST_F(ResultTaskTest, IsWaitableAndWithoutAResultUntilItRuns) {
    EXPECT_TRUE(task.IsWaitable());
    EXPECT_EQ(task.Result(), ResultNotEvaluated);
    EXPECT_FALSE(registry->IsEmpty());
}

TEST_F(ResultTaskTest, KeepsWhatItsStepReturns) {
    for (const std::int32_t result : {1, 0, -1, 77}) {
        SCOPED_TRACE(result);
        std::string name;
        step = [&](const std::string& jobName) {
            name = jobName;
            return result;
        };
        task.Run(5);
        EXPECT_EQ(task.Result(), result);
        EXPECT_EQ(name, "web");
    }
}

TEST_F(ResultTaskTest, IsRegisteredAndWithoutAResultWhileItsStepRuns) {
    task.Run(0);  // leaves a result behind
    registry->Register("web");
    std::int32_t during = ResultHealthy;
    bool registered = false;
    step = [&](const std::string& jobName) {
        during = task.Result();
        registered = !registry->Register(jobName);
        return ResultFailed;
    };

    task.Run(0);

    EXPECT_EQ(during, ResultNotEvaluated);
    EXPECT_TRUE(registered);
    EXPECT_TRUE(registry->IsEmpty());
}

TEST_F(ResultTaskTest, StoresItsResultBeforeItLeavesTheRegistry) {
    std::int32_t resultOnLeaving = 99;
    whenARegistryBecomesEmpty = [&] {
        resultOnLeaving = task.Result();
    };

    task.Run(0);

    EXPECT_EQ(resultOnLeaving, ResultHealthy);
}

TEST_F(ResultTaskTest, HasNoResultWhenItsStepThrowsAndLeavesTheRegistry) {
    task.Run(0);
    registry->Register("web");
    step = [](const std::string& /*jobName*/) -> std::int32_t {
        throw std::runtime_error("from the step");
    };

    EXPECT_NO_THROW(task.Run(0));

    EXPECT_EQ(task.Result(), ResultNotEvaluated);
    EXPECT_TRUE(registry->IsEmpty());
}

TEST_F(ResultTaskTest, LeavesTheRegistryWithoutAResultWhenItIsGivenUp) {
    task.GivenUp();

    EXPECT_TRUE(registry->IsEmpty());
    EXPECT_EQ(task.Result(), ResultNotEvaluated);
}

TEST_F(ResultTaskTest, LeavesOtherJobsRegistered) {
    registry->Register("mail");

    task.Run(0);

    EXPECT_FALSE(registry->Register("mail"));
    EXPECT_TRUE(registry->Register("web"));
}

TEST_F(ResultTaskTest, RunsTheCheckOrTheRemedy) {
    std::string ran;
    step = [&](const std::string& what) {
        ran += what + ";";
        return ResultHealthy;
    };

    WatchProcessingTask(registry, "web").Run(0);
    ActionProcessingTask(registry, "web").Run(0);

    EXPECT_EQ(ran, "check of web;remedy of web;");
}

TEST(ResultTaskOwnershipTest, HoldsItsRegistry) {
    auto registry = std::make_shared<TaskRegistry>();
    const std::weak_ptr<TaskRegistry> observed = registry;
    {
        const ResultTask<Step> task(registry, "web");
        registry.reset();
        EXPECT_FALSE(observed.expired());
    }
    EXPECT_TRUE(observed.expired());
}

}  // namespace kennly::test
