#include "pool/TaskQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "action/ProcessAction.h"
#include "main/ProcessState.h"
#include "pool/WatchDogThreadPool.h"
#include "support/ProbeJob.h"
#include "support/RecordedLog.h"
#include "support/RecordedPauses.h"
#include "watch/ProcessWatch.h"

namespace {

// What the check and the remedy of a job do. Changed only while no worker runs.
std::function<std::int32_t(const std::string&)> check;
std::function<std::int32_t(const std::string&)> remedy;

std::atomic<int> joinsAsked{0};

}  // namespace

namespace kennly {

std::int32_t ProcessWatch(const std::string& jobName) {
    return check(jobName);
}

std::int32_t ProcessAction(const std::string& jobName) {
    return remedy(jobName);
}

}  // namespace kennly

extern "C" {

int __real_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue);

int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue) {
    ++joinsAsked;
    return __real_pthread_tryjoin_np(thread, exitValue);
}
}

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TaskQueueTest : public ::testing::Test {
protected:
    TaskQueueTest() {
        Reset();
        ForgetLog();
        check = [](const std::string& /*jobName*/) {
            return ResultHealthy;
        };
        remedy = [](const std::string& /*jobName*/) {
            return ResultFailed;
        };
    }
    ~TaskQueueTest() override {
        Reset();
        EXPECT_TRUE(TidyThreadPool());
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happened
    }

    static void Reset() {
        closingDown = false;
        tidyingThreadPool = false;
        joinsAsked = 0;
        WhilePausing(nullptr);
        ForgetPauses();
        for (const auto& registry : {WatchRegistry(), ActionRegistry()}) {
            registry->Clear();
            registry->Unregister("");  // the empty registry tells so only now
        }
    }

    // A wait that lasts longer than the test wants ends as a shutdown.
    static void ShutDownAtPause(std::size_t number) {
        WhilePausing([number](std::size_t count, unsigned /*seconds*/) {
            if (count == number) {
                closingDown = true;
            }
        });
    }

    static bool BecomesEmpty(const std::shared_ptr<TaskRegistry>& registry) {
        return WaitUntil([&registry] { return registry->IsEmpty(); }, WaitLimit);
    }
};

TEST_F(TaskQueueTest, RunsTheCheckOnTheWorkerGivenAndHandsBackItsResult) {
    ASSERT_TRUE(CreateThreadPool(2));
    const auto record = std::make_shared<JobRecord>();
    GetThreadPool()->AddJob(1, PlainJob(record));
    ASSERT_TRUE(record->WaitForRun());
    std::thread::id thread;
    std::string name;
    check = [&](const std::string& jobName) {
        thread = std::this_thread::get_id();
        name = jobName;
        return ResultFailed;
    };

    const auto task = QueueWatch(1, "web");

    ASSERT_NE(task, nullptr);
    ASSERT_TRUE(BecomesEmpty(WatchRegistry()));
    EXPECT_EQ(GetResult(*task), ResultFailed);
    EXPECT_EQ(name, "web");
    EXPECT_EQ(thread, record->thread.load());
}

TEST_F(TaskQueueTest, RunsTheRemedyOnTheWorkerGivenAndHandsBackItsResult) {
    ASSERT_TRUE(CreateThreadPool(2));
    std::string name;
    remedy = [&](const std::string& jobName) {
        name = jobName;
        return ResultHealthy;
    };

    const auto task = QueueAction(1, "web");

    ASSERT_NE(task, nullptr);
    ASSERT_TRUE(BecomesEmpty(ActionRegistry()));
    EXPECT_EQ(GetResult(*task), ResultHealthy);
    EXPECT_EQ(name, "web");
}

TEST_F(TaskQueueTest, RefusesASecondCheckOfAJobWhileOneIsPendingButNotItsRemedy) {
    Gate gate;
    check = [&gate](const std::string& /*jobName*/) {
        return gate.Wait() ? 1 : 0;
    };
    ASSERT_TRUE(CreateThreadPool(3));
    const auto first = QueueWatch(1, "web");
    ASSERT_NE(first, nullptr);

    EXPECT_EQ(QueueWatch(1, "web"), nullptr);
    EXPECT_NE(QueueAction(2, "web"), nullptr);
    EXPECT_TRUE(BecomesEmpty(ActionRegistry()));
    EXPECT_FALSE(WatchRegistry()->IsEmpty());

    gate.Open();
    EXPECT_TRUE(BecomesEmpty(WatchRegistry()));
    EXPECT_NE(QueueWatch(1, "web"), nullptr);
    EXPECT_TRUE(BecomesEmpty(WatchRegistry()));
    EXPECT_THAT(RecordedPauses(), IsEmpty());  // nobody has waited
}

TEST_F(TaskQueueTest, RefusesASecondRemedyOfAJobWhileOneIsPendingButNotItsCheck) {
    Gate gate;
    remedy = [&gate](const std::string& /*jobName*/) {
        return gate.Wait() ? 1 : 0;
    };
    ASSERT_TRUE(CreateThreadPool(3));
    ASSERT_NE(QueueAction(2, "web"), nullptr);

    EXPECT_EQ(QueueAction(2, "web"), nullptr);
    EXPECT_NE(QueueWatch(1, "web"), nullptr);
    EXPECT_TRUE(BecomesEmpty(WatchRegistry()));

    gate.Open();
    EXPECT_TRUE(BecomesEmpty(ActionRegistry()));
}

TEST_F(TaskQueueTest, LeavesTheNameWithoutAPoolUntilThePoolIsTidied) {
    EXPECT_EQ(QueueWatch(1, "web"), nullptr);
    EXPECT_EQ(QueueAction(2, "web"), nullptr);
    ASSERT_TRUE(CreateThreadPool(3));
    EXPECT_EQ(QueueWatch(1, "web"), nullptr);
    EXPECT_EQ(QueueAction(2, "web"), nullptr);

    EXPECT_TRUE(TidyThreadPool());

    ASSERT_TRUE(CreateThreadPool(3));
    EXPECT_NE(QueueWatch(1, "web"), nullptr);
    EXPECT_NE(QueueAction(2, "web"), nullptr);
    EXPECT_TRUE(BecomesEmpty(WatchRegistry()));
    EXPECT_TRUE(BecomesEmpty(ActionRegistry()));
}

TEST_F(TaskQueueTest, ATaskOutsideThePoolNeverRunsAndIsWaitedForUntilAShutdown) {
    std::atomic<int> checks{0};
    check = [&checks](const std::string& /*jobName*/) {
        return ++checks;
    };
    ASSERT_TRUE(CreateThreadPool(3));
    const auto task = QueueWatch(3, "web");
    ASSERT_NE(task, nullptr);
    ShutDownAtPause(4);

    WaitForTasks(WatchRegistry());

    EXPECT_THAT(RecordedPauses(), ElementsAre(1, 1, 1, 1));
    EXPECT_EQ(checks, 0);
    EXPECT_EQ(GetResult(*task), ResultNotEvaluated);
    EXPECT_FALSE(WatchRegistry()->Register("web"));
    closingDown = false;
}

TEST_F(TaskQueueTest, ATaskThatItsWorkerGivesUpIsNotWaitedFor) {
    Gate begun;
    std::atomic<int> checks{0};
    check = [&](const std::string& /*jobName*/) {
        ++checks;
        begun.Open();
        return WaitUntil([] { return joinsAsked > 0; }, WaitLimit) ? ResultHealthy : ResultFailed;
    };
    ASSERT_TRUE(CreateThreadPool(1));
    const auto running = QueueWatch(0, "web");
    const auto queued = QueueWatch(0, "mail");
    ASSERT_TRUE(running && queued && begun.Wait());

    TidyThreadPool();  // stops the worker before it asks for its end

    ASSERT_TRUE(WatchRegistry()->IsEmpty());
    WaitForTasks(WatchRegistry());
    EXPECT_THAT(RecordedPauses(), IsEmpty());
    EXPECT_EQ(GetResult(*running), ResultHealthy);
    EXPECT_EQ(GetResult(*queued), ResultNotEvaluated);
    EXPECT_TRUE(queued->IsFinished());
    EXPECT_FALSE(queued->HasSucceeded());
    EXPECT_EQ(checks, 1);
}

TEST_F(TaskQueueTest, WaitingForNothingDoesNotPause) {
    WaitForTasks(WatchRegistry());
    WaitForTasks(nullptr);
    EXPECT_THAT(RecordedPauses(), IsEmpty());
}

TEST_F(TaskQueueTest, WaitingLooksOnceAndThenOnceASecond) {
    TaskRegistry& registry = *ActionRegistry();
    registry.Register("web");
    WhilePausing([&registry](std::size_t count, unsigned /*seconds*/) {
        if (count == 3) {
            registry.Unregister("web");
        }
        closingDown = count > 9;
    });

    WaitForTasks(ActionRegistry());

    EXPECT_THAT(RecordedPauses(), ElementsAre(1, 1, 1));
    EXPECT_FALSE(closingDown);
}

TEST_F(TaskQueueTest, WaitingEndsAtOnceWhenTheProcessShutsDownAlready) {
    WatchRegistry()->Register("web");
    closingDown = true;

    WaitForTasks(WatchRegistry());

    EXPECT_THAT(RecordedPauses(), IsEmpty());
    EXPECT_FALSE(WatchRegistry()->IsEmpty());
}

TEST_F(TaskQueueTest, WaitingDoesNotEndBecauseThePoolIsTidied) {
    WatchRegistry()->Register("web");
    tidyingThreadPool = true;
    ShutDownAtPause(3);

    WaitForTasks(WatchRegistry());

    EXPECT_THAT(RecordedPauses(), ElementsAre(1, 1, 1));
}

TEST_F(TaskQueueTest, WaitingForOneJobsCheckLastsUntilEveryJobsCheckHasEnded) {
    Gate gate;
    check = [&gate](const std::string& jobName) {
        return jobName == "slow" && !gate.Wait() ? ResultFailed : ResultHealthy;
    };
    ASSERT_TRUE(CreateThreadPool(6));
    const auto slow = QueueWatch(1, "slow");
    const auto fast = QueueWatch(4, "fast");
    ASSERT_TRUE(slow && fast);
    ASSERT_TRUE(WaitUntil([&fast] { return fast->IsFinished(); }, WaitLimit));
    WhilePausing([&](std::size_t count, unsigned /*seconds*/) {
        if (count == 5) {
            gate.Open();
            BecomesEmpty(WatchRegistry());
        }
    });

    WaitForTasks(WatchRegistry());  // of which the submitter of the fast check has its result

    EXPECT_THAT(RecordedPauses(), ElementsAre(1, 1, 1, 1, 1));
    EXPECT_EQ(GetResult(*slow), ResultHealthy);
    EXPECT_EQ(GetResult(*fast), ResultHealthy);
}

TEST_F(TaskQueueTest, AShutdownLeavesTheSubmitterWithWhateverTheTaskHolds) {
    Gate gate;
    check = [&gate](const std::string& /*jobName*/) {
        return gate.Wait() ? 1 : 0;
    };
    ASSERT_TRUE(CreateThreadPool(1));
    auto task = QueueWatch(0, "web");
    ASSERT_NE(task, nullptr);
    closingDown = true;

    WaitForTasks(WatchRegistry());

    EXPECT_EQ(GetResult(*task), ResultNotEvaluated);
    const std::weak_ptr<WatchProcessingTask> observed = task;
    task.reset();  // still runs, or is still queued
    EXPECT_FALSE(observed.expired());
    gate.Open();
    EXPECT_TRUE(WaitUntil([&observed] { return observed.expired(); }, WaitLimit));
}

}  // namespace kennly::test
