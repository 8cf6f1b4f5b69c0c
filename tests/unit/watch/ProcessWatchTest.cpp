#include "watch/ProcessWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What happens to the check of the job "web".
struct Observed {
    std::function<std::int32_t()> evaluate;
    std::atomic<int> evaluations{0};
    std::atomic<bool> destroyed{false};
    std::function<void()> whenDestroyed;
};

class ObservedWatch : public DogWatch {
public:
    explicit ObservedWatch(Observed& observed) : observed_(observed) {}
    ~ObservedWatch() override {
        observed_.destroyed = true;
        if (observed_.whenDestroyed) {
            observed_.whenDestroyed();
        }
    }

    std::int32_t DoWatch() override {
        ++observed_.evaluations;
        return observed_.evaluate();
    }

private:
    Observed& observed_;
};

class ProcessWatchTest : public ::testing::Test {
protected:
    ProcessWatchTest() {
        Reset();
        LoadObservedJob();
        observed_.evaluate = [] {
            return ResultHealthy;
        };
    }

    ~ProcessWatchTest() override { Reset(); }

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
        delete job->check;
        job->check = new ObservedWatch(observed_);
        job->slotBase = 0;
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

    /// Evaluates the check on a worker; while it is evaluated, `meanwhile` happens here.
    std::int32_t EvaluateWhile(const std::function<void()>& meanwhile) {
        std::atomic<bool> released{false};
        observed_.evaluate = [&] {
            while (!released) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return observed_.destroyed ? ResultFailed : ResultHealthy;
        };
        std::int32_t result = ResultNotEvaluated;
        std::thread worker([&] { result = ProcessWatch("web"); });
        EXPECT_TRUE(
            WaitUntil([&] { return observed_.evaluations == 1; }, std::chrono::seconds(30)));
        meanwhile();
        EXPECT_FALSE(observed_.destroyed);
        released = true;
        worker.join();
        return result;
    }

    Observed observed_;
    const TemporaryDirectory directory_;
};

TEST_F(ProcessWatchTest, HandsBackWhatTheCheckFound) {
    for (const std::int32_t result : {ResultHealthy, ResultFailed, ResultNotEvaluated, 7}) {
        SCOPED_TRACE(result);
        observed_.evaluate = [=] {
            return result;
        };

        EXPECT_EQ(ProcessWatch("web"), result);
    }
    EXPECT_EQ(observed_.evaluations, 4);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessWatchTest, EvaluatesNothingWhileAFlagAsksTheJobsToEnd) {
    for (std::atomic<bool>* const flag : {&closingDown, &tidyingThreadPool}) {
        *flag = true;

        EXPECT_EQ(ProcessWatch("web"), ResultNotEvaluated);

        *flag = false;
    }
    EXPECT_EQ(observed_.evaluations, 0);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessWatchTest, LeavesAJobAloneThatHasNoWorkersYet) {
    FindConfiguredJob("web")->slotBase = NoWorkers;

    EXPECT_EQ(ProcessWatch("web"), ResultNotEvaluated);

    EXPECT_EQ(observed_.evaluations, 0);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessWatchTest, DoesNotWaitForALoadWhileAFlagAsksTheJobsToEnd) {
    for (std::atomic<bool>* const flag : {&closingDown, &tidyingThreadPool}) {
        LoadObservedJob();
        *flag = true;
        std::atomic<bool> returned{false};
        std::thread worker;
        observed_.whenDestroyed = [&] {  // in the middle of a load, which holds the lock
            worker = std::thread([&] {
                EXPECT_EQ(ProcessWatch("web"), ResultNotEvaluated);
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

TEST_F(ProcessWatchTest, SaysNothingOfAJobThatIsNotThere) {
    for (const char* const name : {"db", "", "WEB", "web "}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(ProcessWatch(name), ResultNotEvaluated);
    }
    EXPECT_EQ(observed_.evaluations, 0);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessWatchTest, SaysNothingOfAJobWithoutACheck) {
    const JobHandle job = FindConfiguredJob("web");
    delete job->check;
    job->check = nullptr;

    EXPECT_EQ(ProcessWatch("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessWatchTest, SaysNothingWithoutAConfiguration) {
    DestroyTheConfig();

    EXPECT_EQ(ProcessWatch("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessWatchTest, LogsOneLineForACheckThatThrows) {
    observed_.evaluate = []() -> std::int32_t {
        throw std::runtime_error("unforeseen");
    };

    EXPECT_EQ(ProcessWatch("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(),
                ElementsAre(Error("Exception while processing check for job: web")));
}

TEST_F(ProcessWatchTest, LogsOneLineWhateverTheCheckThrows) {
    observed_.evaluate = []() -> std::int32_t {
        throw 42;
    };

    EXPECT_EQ(ProcessWatch("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(),
                ElementsAre(Error("Exception while processing check for job: web")));
}

TEST_F(ProcessWatchTest, KeepsTheJobAliveWhileALoadReplacesIt) {
    EXPECT_EQ(EvaluateWhile([this] { LoadJob("db"); }), ResultHealthy);

    EXPECT_TRUE(observed_.destroyed);
    EXPECT_EQ(FindConfiguredJob("web"), nullptr);
}

TEST_F(ProcessWatchTest, KeepsTheJobAliveWhileTheConfigurationIsDestroyed) {
    EXPECT_EQ(EvaluateWhile(DestroyTheConfig), ResultHealthy);

    EXPECT_TRUE(observed_.destroyed);
}

TEST_F(ProcessWatchTest, HoldsNoJobAfterTheEvaluation) {
    ProcessWatch("web");

    LoadJob("db");

    EXPECT_TRUE(observed_.destroyed);
}

}  // namespace kennly::test
