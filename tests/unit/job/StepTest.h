#pragma once

// What holds for both steps of a job, its check and its remedy, when a worker runs them by the
// job's name. A test of one of the two includes this, describes its step and instantiates StepTest.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "config/TheConfig.h"
#include "job/ResultCode.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "support/RecordedLog.h"
#include "support/SandboxPolling.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

/// What happens to the step of the job "web".
struct Observed {
    /// In the place of the step's own work. Counts the run.
    std::int32_t Run() {
        ++runs;
        return run();
    }

    void Destroy() {
        destroyed = true;
        if (whenDestroyed) {
            whenDestroyed();
        }
    }

    std::function<std::int32_t()> run;
    std::atomic<int> runs{0};
    std::atomic<bool> destroyed{false};
    std::function<void()> whenDestroyed;
};

/// A check or a remedy.
struct Step {
    std::function<std::int32_t(const std::string&)> process;
    std::function<void(DogJob&)> remove;                 // deletes the step of the job
    std::function<void(DogJob&, Observed&)> substitute;  // after that, gives it an observed one
    std::string exceptionText;                           // logged when the step of "web" throws
};

class StepTest : public ::testing::TestWithParam<Step> {
protected:
    StepTest() {
        Reset();
        LoadObservedJob();
        observed_.run = [] {
            return ResultHealthy;
        };
    }

    ~StepTest() override { Reset(); }

    static void Reset() {
        DestroyTheConfig();
        configFile[0] = '\0';
        closingDown = false;
        tidyingThreadPool = false;
        ForgetLog();
    }

    void LoadObservedJob() {
        LoadJob("web");
        const JobHandle job = FindConfiguredJob("web");
        GetParam().remove(*job);
        GetParam().substitute(*job, observed_);
    }

    void LoadJob(const std::string& name) {
        const std::string path =
            directory_.Write("kennly.xml", "<dog><job name='" + name +
                                               "' enabled='true'><check type='CheckCommandResult'/>"
                                               "<remedy type='Execute'/></job></dog>");
        std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
        if (theConfig == nullptr) {
            CreateTheConfig();
        }
        ASSERT_TRUE(theConfig->Load());
    }

    static std::int32_t Process(const std::string& jobName) { return GetParam().process(jobName); }

    /// Runs the step on a worker; while it runs, `meanwhile` happens here.
    std::int32_t RunWhile(const std::function<void()>& meanwhile) {
        std::atomic<bool> released{false};
        observed_.run = [&] {
            while (!released) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return observed_.destroyed ? ResultFailed : ResultHealthy;
        };
        std::int32_t result = ResultNotEvaluated;
        std::thread worker([&] { result = Process("web"); });
        EXPECT_TRUE(WaitUntil([&] { return observed_.runs == 1; }, std::chrono::seconds(30)));
        meanwhile();
        EXPECT_FALSE(observed_.destroyed);
        released = true;
        worker.join();
        return result;
    }

    Observed observed_;
    const TemporaryDirectory directory_;
};

TEST_P(StepTest, HandsBackWhatTheStepReports) {
    for (const std::int32_t result : {ResultHealthy, ResultFailed, ResultNotEvaluated, 7}) {
        SCOPED_TRACE(result);
        observed_.run = [=] {
            return result;
        };

        EXPECT_EQ(Process("web"), result);
    }
    EXPECT_EQ(observed_.runs, 4);
    EXPECT_THAT(RecordedLines(), ::testing::IsEmpty());
}

TEST_P(StepTest, RunsNothingWhileAFlagAsksTheJobsToEnd) {
    for (std::atomic<bool>* const flag : {&closingDown, &tidyingThreadPool}) {
        *flag = true;

        EXPECT_EQ(Process("web"), ResultNotEvaluated);

        *flag = false;
    }
    EXPECT_EQ(observed_.runs, 0);
    EXPECT_THAT(RecordedLines(), ::testing::IsEmpty());
}

TEST_P(StepTest, DoesNotWaitForALoadWhileAFlagAsksTheJobsToEnd) {
    for (std::atomic<bool>* const flag : {&closingDown, &tidyingThreadPool}) {
        LoadObservedJob();
        *flag = true;
        std::atomic<bool> returned{false};
        std::thread worker;
        observed_.whenDestroyed = [&] {  // in the middle of a load, which holds the lock
            worker = std::thread([&] {
                EXPECT_EQ(Process("web"), ResultNotEvaluated);
                returned = true;
            });
            EXPECT_TRUE(WaitUntil([&] { return returned.load(); }, std::chrono::seconds(30)));
        };

        LoadJob("db");

        ASSERT_TRUE(worker.joinable());
        worker.join();
        observed_.whenDestroyed = nullptr;
        *flag = false;
    }
}

TEST_P(StepTest, SaysNothingOfAJobThatIsNotThere) {
    for (const char* const name : {"db", "", "WEB", "web "}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Process(name), ResultNotEvaluated);
    }
    EXPECT_EQ(observed_.runs, 0);
    EXPECT_THAT(RecordedLines(), ::testing::IsEmpty());
}

TEST_P(StepTest, SaysNothingOfAJobWithoutTheStep) {
    const JobHandle job = FindConfiguredJob("web");
    GetParam().remove(*job);

    EXPECT_EQ(Process("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), ::testing::IsEmpty());
}

TEST_P(StepTest, SaysNothingWithoutAConfiguration) {
    DestroyTheConfig();

    EXPECT_EQ(Process("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), ::testing::IsEmpty());
}

TEST_P(StepTest, LogsOneLineForAStepThatThrows) {
    observed_.run = []() -> std::int32_t {
        throw std::runtime_error("unforeseen");
    };

    EXPECT_EQ(Process("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), ::testing::ElementsAre(Error(GetParam().exceptionText)));
}

TEST_P(StepTest, LogsOneLineWhateverTheStepThrows) {
    observed_.run = []() -> std::int32_t {
        throw 42;
    };

    EXPECT_EQ(Process("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), ::testing::ElementsAre(Error(GetParam().exceptionText)));
}

TEST_P(StepTest, KeepsTheJobAliveWhileALoadReplacesIt) {
    EXPECT_EQ(RunWhile([this] { LoadJob("db"); }), ResultHealthy);

    EXPECT_TRUE(observed_.destroyed);
    EXPECT_EQ(FindConfiguredJob("web"), nullptr);
}

TEST_P(StepTest, KeepsTheJobAliveWhileTheConfigurationIsDestroyed) {
    EXPECT_EQ(RunWhile(DestroyTheConfig), ResultHealthy);

    EXPECT_TRUE(observed_.destroyed);
}

TEST_P(StepTest, HoldsNoJobAfterTheRun) {
    Process("web");

    LoadJob("db");

    EXPECT_TRUE(observed_.destroyed);
}

}  // namespace kennly::test
