#include "job/JobSteps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "pool/TaskQueue.h"
#include "pool/WatchDogThreadPool.h"
#include "support/FailingAllocation.h"
#include "support/RecordedLog.h"
#include "support/RecordedPauses.h"
#include "support/SandboxPolling.h"

namespace {

constexpr std::chrono::seconds Limit(30);

// What a step does on its worker, in the place of looking the job up.
struct Step {
    std::mutex mutex;
    std::function<std::int32_t(const std::string&)> run;  // guarded by mutex
    std::atomic<int> runs{0};                             // how many have ended

    void Prepare(std::function<std::int32_t(const std::string&)> newRun) {
        const std::lock_guard lock(mutex);
        run = std::move(newRun);
        runs = 0;
    }

    std::int32_t Run(const std::string& name) {
        std::function<std::int32_t(const std::string&)> copy;
        {
            const std::lock_guard lock(mutex);
            copy = run;
        }
        const std::int32_t result = copy(name);
        ++runs;
        return result;
    }
};

Step check;
Step remedy;

}  // namespace

namespace kennly {

std::int32_t ProcessWatch(const std::string& jobName) {
    return check.Run(jobName);
}

std::int32_t ProcessAction(const std::string& jobName) {
    return remedy.Run(jobName);
}

}  // namespace kennly

namespace kennly::test {

using ::testing::IsEmpty;

/// One of the two steps: how it is run and queued, and which of a job's workers it belongs to.
struct StepKind {
    const char* name;
    std::int32_t (*run)(std::int32_t slotBase, const std::string& name);
    Step& step;
    std::uint32_t workerOffset;
    bool (*queue)(std::uint32_t workerIndex, const std::string& name);
    std::shared_ptr<TaskRegistry> (*registry)();
};

StepKind Check() {
    return {"Check",
            RunCheck,
            check,
            1,
            [](std::uint32_t i, const std::string& name) { return QueueWatch(i, name) != nullptr; },
            WatchRegistry};
}

StepKind Remedy() {
    return {
        "Remedy",
        RunRemedy,
        remedy,
        2,
        [](std::uint32_t i, const std::string& name) { return QueueAction(i, name) != nullptr; },
        ActionRegistry};
}

/// A worker's job that tells on which thread it ran.
class ThreadIdJob : public ThreadPool::IJob {
public:
    ThreadIdJob() : IJob(true) {}
    void Run(std::uint32_t /*context*/) override { id = std::this_thread::get_id(); }
    std::thread::id id;
};

class JobStepsTest : public ::testing::TestWithParam<StepKind> {
protected:
    JobStepsTest() {
        ForgetLog();
        ForgetPauses();
        PauseBriefly();
        StepReturns(ResultHealthy);
    }

    ~JobStepsTest() override {
        released_ = true;
        closingDown = false;
        TidyThreadPool();
        // A registry that was cleared counts as empty only after its next use.
        for (const auto& registry : {WatchRegistry(), ActionRegistry()}) {
            registry->Register("web");
            registry->Unregister("web");
        }
        WhilePausing(nullptr);
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happened
    }

    /// The wait for a result, which the real pause makes once a second, must not spin here.
    static void PauseBriefly() {
        WhilePausing([](std::size_t, unsigned) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
    }

    std::int32_t Run(std::int32_t slotBase = 0) { return GetParam().run(slotBase, "web"); }

    void StepReturns(std::int32_t result) {
        GetParam().step.Prepare([result](const std::string&) { return result; });
    }

    /// The step of `blocked` runs until released_ is set.
    void StepBlocksFor(const std::string& blocked, std::int32_t result) {
        GetParam().step.Prepare([this, blocked, result](const std::string& name) {
            while (name == blocked && !released_) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return result;
        });
    }

    std::atomic<bool> released_{false};
};

INSTANTIATE_TEST_SUITE_P(Steps, JobStepsTest, ::testing::Values(Check(), Remedy()),
                         [](const auto& test) { return test.param.name; });

TEST_P(JobStepsTest, HandsBackWhatTheStepFound) {
    ASSERT_TRUE(CreateThreadPool(3));
    for (const std::int32_t result : {ResultHealthy, ResultFailed, ResultNotEvaluated, 7}) {
        SCOPED_TRACE(result);
        StepReturns(result);

        EXPECT_EQ(Run(), result);

        EXPECT_EQ(GetParam().step.runs, 1);
    }
}

TEST_P(JobStepsTest, RunsOnItsOwnOneOfTheJobsWorkers) {
    ASSERT_TRUE(CreateThreadPool(9));
    const auto expected = std::make_shared<ThreadIdJob>();
    GetThreadPool()->AddJob(3 + GetParam().workerOffset, expected);
    ASSERT_TRUE(WaitUntil([&] { return expected->IsFinished(); }, Limit));
    std::thread::id used;
    std::string name;
    GetParam().step.Prepare([&](const std::string& jobName) {
        used = std::this_thread::get_id();
        name = jobName;
        return ResultHealthy;
    });

    EXPECT_EQ(Run(/*slotBase=*/3), ResultHealthy);

    EXPECT_EQ(used, expected->id);
    EXPECT_EQ(name, "web");
}

TEST_P(JobStepsTest, FindsNothingOutWhenTheStepThrows) {
    ASSERT_TRUE(CreateThreadPool(3));
    GetParam().step.Prepare(
        [](const std::string&) -> std::int32_t { throw std::runtime_error("unforeseen"); });

    EXPECT_EQ(Run(), ResultNotEvaluated);
}

TEST_P(JobStepsTest, FindsNothingOutWhileTheSameStepOfTheJobIsPending) {
    ASSERT_TRUE(CreateThreadPool(3));
    StepBlocksFor("web", ResultHealthy);
    ASSERT_TRUE(GetParam().queue(GetParam().workerOffset, "web"));

    EXPECT_EQ(Run(), ResultNotEvaluated);

    EXPECT_THAT(RecordedPauses(), IsEmpty());
    released_ = true;
    ASSERT_TRUE(WaitUntil([] { return GetParam().registry()->IsEmpty(); }, Limit));
    EXPECT_EQ(GetParam().step.runs, 1);
}

TEST_P(JobStepsTest, FindsNothingOutWithoutAPool) {
    EXPECT_EQ(Run(), ResultNotEvaluated);

    EXPECT_EQ(GetParam().step.runs, 0);
    EXPECT_THAT(RecordedPauses(), IsEmpty());
}

TEST_P(JobStepsTest, FindsNothingOutWhenItRunsOutOfMemory) {
    ASSERT_TRUE(CreateThreadPool(3));
    int refused = 0;
    bool enough = false;
    for (std::size_t index = 0; !enough && index < 100; ++index) {
        SCOPED_TRACE(index);
        std::int32_t result = ResultHealthy;
        {
            const FailingAllocation failing(index);
            result = GetParam().run(0, "web");
            enough = !failing.HasFailed();
        }
        if (!enough) {
            EXPECT_EQ(result, ResultNotEvaluated);
            EXPECT_TRUE(GetParam().registry()->IsEmpty());
            EXPECT_THAT(RecordedPauses(), IsEmpty());
            ++refused;
        }
    }

    EXPECT_TRUE(enough);
    EXPECT_GE(refused, 2);  // the name's place in the registry, the task
}

TEST_P(JobStepsTest, FindsNothingOutWhenItsWaitThrowsAndDoesTheStepNoHarm) {
    ASSERT_TRUE(CreateThreadPool(3));
    StepBlocksFor("web", ResultHealthy);
    WhilePausing([](std::size_t, unsigned) { throw std::runtime_error("from a pause"); });

    EXPECT_EQ(Run(), ResultNotEvaluated);

    EXPECT_EQ(RecordedPauses().size(), 1U);
    EXPECT_EQ(GetParam().step.runs, 0);
    released_ = true;  // the step goes on although nobody holds its task any more
    EXPECT_TRUE(WaitUntil([] { return GetParam().registry()->IsEmpty(); }, Limit));
    EXPECT_EQ(GetParam().step.runs, 1);
    PauseBriefly();
    EXPECT_EQ(Run(), ResultHealthy);
}

TEST_P(JobStepsTest, WaitsUntilNoOtherJobHasTheStepPending) {
    ASSERT_TRUE(CreateThreadPool(6));
    StepBlocksFor("db", ResultHealthy);
    ASSERT_TRUE(GetParam().queue(3 + GetParam().workerOffset, "db"));
    bool stillWaitedAfterItsOwn = false;
    WhilePausing([&](std::size_t, unsigned seconds) {
        EXPECT_EQ(seconds, 1U);
        if (GetParam().step.runs == 1) {
            stillWaitedAfterItsOwn = true;
            released_ = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });

    EXPECT_EQ(Run(), ResultHealthy);

    EXPECT_TRUE(stillWaitedAfterItsOwn);
    EXPECT_TRUE(GetParam().registry()->IsEmpty());
}

TEST_P(JobStepsTest, DoesNotWaitForAStepThatRunsWhenTheProcessShutsDown) {
    ASSERT_TRUE(CreateThreadPool(3));
    StepBlocksFor("web", ResultHealthy);
    WhilePausing([](std::size_t count, unsigned) {
        if (count == 2) {
            closingDown = true;
        }
    });

    EXPECT_EQ(Run(), ResultNotEvaluated);

    EXPECT_EQ(RecordedPauses().size(), 2U);
    EXPECT_EQ(GetParam().step.runs, 0);
    released_ = true;  // the step goes on although nobody holds its task any more
    EXPECT_TRUE(WaitUntil([] { return GetParam().step.runs == 1; }, Limit));
}

TEST_P(JobStepsTest, DoesNotWaitAtAllOnceTheProcessShutsDown) {
    ASSERT_TRUE(CreateThreadPool(3));
    StepBlocksFor("web", ResultHealthy);
    closingDown = true;

    EXPECT_EQ(Run(), ResultNotEvaluated);

    EXPECT_THAT(RecordedPauses(), IsEmpty());
    released_ = true;
    EXPECT_TRUE(WaitUntil([] { return GetParam().step.runs == 1; }, Limit));
}

}  // namespace kennly::test
