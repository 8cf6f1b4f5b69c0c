#include "pool/JobQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>

#include "action/ProcessAction.h"
#include "job/JobSteps.h"
#include "job/ProcessJob.h"
#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "pool/WatchDogThreadPool.h"
#include "support/FailingAllocation.h"
#include "support/ProbeJob.h"
#include "support/RecordedLog.h"
#include "watch/ProcessWatch.h"

namespace {

std::function<void(const std::string&)> cycle;  // what ProcessJob does

// Which thread has done what, by the job's name and a word for the step.
class Steps {
public:
    void Done(const std::string& step) {
        const std::lock_guard lock(mutex_);
        threads_[step] = std::this_thread::get_id();
    }
    std::thread::id Thread(const std::string& step) const {
        const std::lock_guard lock(mutex_);
        const auto found = threads_.find(step);
        return found != threads_.end() ? found->second : std::thread::id();
    }
    std::size_t Count() const {
        const std::lock_guard lock(mutex_);
        return threads_.size();
    }
    void Forget() {
        const std::lock_guard lock(mutex_);
        threads_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::thread::id> threads_;
};

Steps steps;

}  // namespace

namespace kennly {

void ProcessJob(const std::string& name) {
    cycle(name);
}

std::int32_t ProcessWatch(const std::string& jobName) {
    steps.Done(jobName + " check");
    return ResultFailed;
}

std::int32_t ProcessAction(const std::string& jobName) {
    steps.Done(jobName + " remedy");
    return ResultHealthy;
}

}  // namespace kennly

namespace kennly::test {

using ::testing::IsEmpty;

class JobQueueTest : public ::testing::Test {
protected:
    JobQueueTest() {
        closingDown = false;
        ForgetLog();
        steps.Forget();
        cycle = [](const std::string& name) {
            steps.Done(name + " cycle");
        };
    }
    ~JobQueueTest() override {
        EXPECT_TRUE(TidyThreadPool());
        JobRegistry()->Unregister("");  // a registry that was cleared tells only now that it is
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happened
    }

    static bool BecomesEmpty() {
        return WaitUntil([] { return JobRegistry()->IsEmpty(); }, WaitLimit);
    }
    // The thread of one worker of the process's pool.
    static std::thread::id ThreadOf(std::uint32_t worker) {
        const auto record = std::make_shared<JobRecord>();
        GetThreadPool()->AddJob(worker, PlainJob(record));
        EXPECT_TRUE(record->WaitForDestruction());
        return record->thread;
    }
};

TEST_F(JobQueueTest, RunsTheCycleOnTheWorkerGiven) {
    ASSERT_TRUE(CreateThreadPool(3));

    EXPECT_TRUE(QueueJob(1, "web"));

    ASSERT_TRUE(BecomesEmpty());
    EXPECT_EQ(steps.Thread("web cycle"), ThreadOf(1));
}

TEST_F(JobQueueTest, DoesNotTellThatAJobRunsAlready) {
    Gate gate;
    std::atomic<int> cycles{0};
    cycle = [&](const std::string& /*name*/) {
        ++cycles;
        gate.Wait();
    };
    ASSERT_TRUE(CreateThreadPool(2));
    EXPECT_TRUE(QueueJob(0, "web"));

    EXPECT_TRUE(QueueJob(1, "web"));

    gate.Open();
    ASSERT_TRUE(BecomesEmpty());
    EXPECT_EQ(cycles, 1);
    EXPECT_TRUE(QueueJob(1, "web"));
    ASSERT_TRUE(BecomesEmpty());
    EXPECT_EQ(cycles, 2);
}

TEST_F(JobQueueTest, DoesNotTellThatThereIsNoPoolAndLeavesTheName) {
    EXPECT_TRUE(QueueJob(0, "web"));

    EXPECT_FALSE(JobRegistry()->Register("web"));
    ASSERT_TRUE(CreateThreadPool(1));
    EXPECT_TRUE(QueueJob(0, "web"));
    ThreadOf(0);  // whatever was queued before it has run
    EXPECT_EQ(steps.Count(), 0U);
}

TEST_F(JobQueueTest, DoesNotTellThatTheIndexLiesOutsideThePoolAndLeavesTheName) {
    ASSERT_TRUE(CreateThreadPool(1));

    EXPECT_TRUE(QueueJob(1, "web"));

    EXPECT_FALSE(JobRegistry()->Register("web"));
    ThreadOf(0);
    EXPECT_EQ(steps.Count(), 0U);
}

TEST_F(JobQueueTest, QueuesNothingWhenItRunsOutOfMemory) {
    ASSERT_TRUE(CreateThreadPool(1));
    const std::string name(100, 'w');
    std::size_t failures = 0;
    bool queued = false;
    for (std::size_t index = 0; !queued; ++index) {
        SCOPED_TRACE(index);
        EXPECT_TRUE(JobRegistry()->IsEmpty());
        const FailingAllocation failing(index);
        try {
            queued = QueueJob(0, name);
        } catch (const std::bad_alloc&) {
            ++failures;
        }
    }
    EXPECT_GE(failures, 3U);
    EXPECT_TRUE(BecomesEmpty());
    EXPECT_EQ(steps.Count(), 1U);
}

TEST_F(JobQueueTest, TellsWhetherATaskHasStarted) {
    const auto registry = std::make_shared<TaskRegistry>();
    JobProcessingTask task(registry, "web");
    EXPECT_FALSE(HasStarted(task));

    task.Run(0);

    EXPECT_TRUE(HasStarted(task));
}

TEST_F(JobQueueTest, GivesEachOfThreeJobsThreeWorkersOfItsOwn) {
    const std::map<std::string, std::int32_t> slots = {{"first", 0}, {"second", 3}, {"third", 6}};
    std::atomic<int> wrong{0};
    cycle = [&](const std::string& name) {
        steps.Done(name + " cycle");
        wrong += RunCheck(slots.at(name), name) == ResultFailed ? 0 : 1;
        wrong += RunRemedy(slots.at(name), name) == ResultHealthy ? 0 : 1;
    };
    ASSERT_TRUE(CreateThreadPool(9));

    for (const auto& [name, slot] : slots) {
        QueueJob(static_cast<std::uint32_t>(slot), name);
    }

    ASSERT_TRUE(BecomesEmpty());
    EXPECT_EQ(wrong, 0);
    for (const auto& [name, slot] : slots) {
        SCOPED_TRACE(name);
        const auto worker = static_cast<std::uint32_t>(slot);
        EXPECT_EQ(steps.Thread(name + " cycle"), ThreadOf(worker));
        EXPECT_EQ(steps.Thread(name + " check"), ThreadOf(worker + 1));
        EXPECT_EQ(steps.Thread(name + " remedy"), ThreadOf(worker + 2));
    }
}

}  // namespace kennly::test
