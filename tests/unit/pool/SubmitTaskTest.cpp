#include "pool/SubmitTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "main/ProcessState.h"
#include "support/FailingAllocation.h"
#include "support/ProbeJob.h"
#include "support/RecordedLog.h"

namespace kennly::test {

using ::testing::IsEmpty;

namespace {

std::atomic<int> runs{0};

// A task that leaves its registry as the real ones do, once its gate is open.
class ProbeTask : public ThreadPool::IJob {
public:
    ProbeTask(std::shared_ptr<TaskRegistry> registry, std::string jobName)
        : IJob(true), registry_(std::move(registry)), jobName_(std::move(jobName)) {}

    void Run(std::uint32_t /*context*/) override {
        ++runs;
        gate->Wait();
        registry_->Unregister(jobName_);
    }

    const std::shared_ptr<Gate> gate = std::make_shared<Gate>();

private:
    const std::shared_ptr<TaskRegistry> registry_;
    const std::string jobName_;
};

}  // namespace

class SubmitTaskTest : public ::testing::Test {
protected:
    SubmitTaskTest() {
        closingDown = false;
        ForgetLog();
        runs = 0;
    }
    ~SubmitTaskTest() override {
        EXPECT_TRUE(TidyThreadPool());
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happened
    }

    std::shared_ptr<ProbeTask> Submit(std::uint32_t worker) {
        return SubmitTask<ProbeTask>(registry, worker, name);
    }
    bool IsRegistered() {
        if (!registry->Register(name)) {
            return true;
        }
        registry->Unregister(name);
        return false;
    }
    bool BecomesEmpty() const {
        return WaitUntil([this] { return registry->IsEmpty(); }, WaitLimit);
    }

    const std::shared_ptr<TaskRegistry> registry = std::make_shared<TaskRegistry>();
    // Too long to be kept without an allocation of its own.
    const std::string name = std::string(100, 'w');
};

TEST_F(SubmitTaskTest, RunsANewTaskForARegisteredName) {
    ASSERT_TRUE(CreateThreadPool(1));

    const auto task = Submit(0);

    ASSERT_NE(task, nullptr);
    EXPECT_TRUE(IsRegistered());
    task->gate->Open();
    EXPECT_TRUE(WaitUntil([&task] { return task->IsFinished(); }, WaitLimit));
    EXPECT_FALSE(IsRegistered());
    EXPECT_EQ(runs, 1);
}

TEST_F(SubmitTaskTest, RefusesASecondTaskUntilTheFirstHasLeftTheRegistry) {
    ASSERT_TRUE(CreateThreadPool(2));
    const auto first = Submit(0);
    ASSERT_NE(first, nullptr);

    EXPECT_EQ(Submit(1), nullptr);

    first->gate->Open();
    ASSERT_TRUE(BecomesEmpty());
    EXPECT_EQ(runs, 1);
    const auto second = Submit(1);
    ASSERT_NE(second, nullptr);
    second->gate->Open();
    EXPECT_TRUE(BecomesEmpty());
}

TEST_F(SubmitTaskTest, LeavesTheNameWhereThereIsNoPool) {
    EXPECT_EQ(Submit(0), nullptr);
    EXPECT_TRUE(IsRegistered());

    ASSERT_TRUE(CreateThreadPool(1));
    EXPECT_EQ(Submit(0), nullptr);

    registry->Clear();
    const auto task = Submit(0);
    ASSERT_NE(task, nullptr);
    task->gate->Open();
    EXPECT_TRUE(BecomesEmpty());
    EXPECT_EQ(runs, 1);
}

TEST_F(SubmitTaskTest, LeavesTheNameWhenTheIndexLiesOutsideThePool) {
    ASSERT_TRUE(CreateThreadPool(1));

    const auto task = Submit(1);

    ASSERT_NE(task, nullptr);
    EXPECT_EQ(task.use_count(), 1);  // nobody has queued it
    EXPECT_TRUE(IsRegistered());
    EXPECT_EQ(Submit(0), nullptr);
    EXPECT_EQ(runs, 0);
}

TEST_F(SubmitTaskTest, TakesTheNameOutAgainWhenItRunsOutOfMemory) {
    ASSERT_TRUE(CreateThreadPool(1));
    std::size_t failures = 0;
    std::shared_ptr<ProbeTask> task;
    for (std::size_t index = 0; !task && !HasFailure(); ++index) {
        SCOPED_TRACE(index);
        {
            const FailingAllocation failing(index);
            try {
                task = Submit(0);
            } catch (const std::bad_alloc&) {
                ++failures;
            }
        }
        EXPECT_EQ(registry->IsEmpty(), !task);
        EXPECT_EQ(IsRegistered(), task != nullptr);
    }
    EXPECT_GE(failures, 5U);  // the name twice, the task, its gate, its place in the queue
    ASSERT_NE(task, nullptr);
    task->gate->Open();
    EXPECT_TRUE(BecomesEmpty());
    EXPECT_EQ(runs, 1);  // no task of a failed submission was queued
}

TEST_F(SubmitTaskTest, DoesNothingWithoutARegistry) {
    ASSERT_TRUE(CreateThreadPool(1));
    EXPECT_EQ(SubmitTask<ProbeTask>(nullptr, 0, name), nullptr);
    EXPECT_EQ(runs, 0);
}

}  // namespace kennly::test
