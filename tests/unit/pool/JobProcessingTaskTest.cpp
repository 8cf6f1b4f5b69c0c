#include "pool/JobProcessingTask.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "job/ProcessJob.h"

namespace {

std::function<void(const std::string&)> cycle;  // what ProcessJob does

}  // namespace

namespace kennly {

void ProcessJob(const std::string& name) {
    cycle(name);
}

}  // namespace kennly

namespace kennly::test {

class JobProcessingTaskTest : public ::testing::Test {
protected:
    JobProcessingTaskTest() { registry->Register("web"); }
    ~JobProcessingTaskTest() override { cycle = nullptr; }

    const std::shared_ptr<TaskRegistry> registry = std::make_shared<TaskRegistry>();
    JobProcessingTask task{registry, "web"};
};

TEST_F(JobProcessingTaskTest, BelongsToThePoolAndHasNotStartedUntilItRuns) {
    EXPECT_FALSE(task.IsWaitable());
    EXPECT_FALSE(task.Started());
    EXPECT_FALSE(registry->IsEmpty());
}

TEST_F(JobProcessingTaskTest, RunsTheCycleOfItsJobWhileItIsRegistered) {
    std::string name;
    bool started = false;
    bool registered = false;
    cycle = [&](const std::string& jobName) {
        name = jobName;
        started = task.Started();
        registered = !registry->Register(jobName);
    };

    task.Run(5);

    EXPECT_EQ(name, "web");
    EXPECT_TRUE(started);
    EXPECT_TRUE(registered);
    EXPECT_TRUE(task.Started());
    EXPECT_TRUE(registry->IsEmpty());
}

TEST_F(JobProcessingTaskTest, LeavesTheRegistryWhenTheCycleThrows) {
    cycle = [](const std::string& /*jobName*/) {
        throw std::runtime_error("from the cycle");
    };

    EXPECT_NO_THROW(task.Run(0));

    EXPECT_TRUE(registry->IsEmpty());
    EXPECT_TRUE(task.Started());
}

TEST_F(JobProcessingTaskTest, LeavesTheRegistryWhenItIsGivenUp) {
    task.GivenUp();

    EXPECT_TRUE(registry->IsEmpty());
    EXPECT_FALSE(task.Started());
}

TEST(JobProcessingTaskOwnershipTest, HoldsItsRegistry) {
    auto registry = std::make_shared<TaskRegistry>();
    const std::weak_ptr<TaskRegistry> observed = registry;
    {
        const JobProcessingTask task(registry, "web");
        registry.reset();
        EXPECT_FALSE(observed.expired());
    }
    EXPECT_TRUE(observed.expired());
}

}  // namespace kennly::test
