#include "action/ProcessAction.h"

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

/// What happens to the remedy of the job "web".
struct Observed {
    std::function<std::int32_t()> run;
    std::atomic<int> runs{0};
    std::atomic<bool> destroyed{false};
    std::function<void()> whenDestroyed;
};

class ObservedAction : public DogAction {
public:
    explicit ObservedAction(Observed& observed) : observed_(observed) {}
    ~ObservedAction() override {
        observed_.destroyed = true;
        if (observed_.whenDestroyed) {
            observed_.whenDestroyed();
        }
    }

    std::int32_t DoAction() override {
        ++observed_.runs;
        return observed_.run();
    }

private:
    Observed& observed_;
};

class ProcessActionTest : public ::testing::Test {
protected:
    ProcessActionTest() {
        Reset();
        LoadObservedJob();
        observed_.run = [] {
            return ResultHealthy;
        };
    }

    ~ProcessActionTest() override { Reset(); }

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
        delete job->remedy;
        job->remedy = new ObservedAction(observed_);
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

    /// Runs the remedy on a worker; while it runs, `meanwhile` happens here.
    std::int32_t RunWhile(const std::function<void()>& meanwhile) {
        std::atomic<bool> released{false};
        observed_.run = [&] {
            while (!released) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return observed_.destroyed ? ResultFailed : ResultHealthy;
        };
        std::int32_t result = ResultNotEvaluated;
        std::thread worker([&] { result = ProcessAction("web"); });
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

TEST_F(ProcessActionTest, HandsBackWhatTheRemedyReports) {
    for (const std::int32_t result : {ResultHealthy, ResultFailed, ResultNotEvaluated, 7}) {
        SCOPED_TRACE(result);
        observed_.run = [=] {
            return result;
        };

        EXPECT_EQ(ProcessAction("web"), result);
    }
    EXPECT_EQ(observed_.runs, 4);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessActionTest, RunsNothingWhileAFlagAsksTheJobsToEnd) {
    for (std::atomic<bool>* const flag : {&closingDown, &tidyingThreadPool}) {
        *flag = true;

        EXPECT_EQ(ProcessAction("web"), ResultNotEvaluated);

        *flag = false;
    }
    EXPECT_EQ(observed_.runs, 0);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessActionTest, DoesNotWaitForALoadWhileAFlagAsksTheJobsToEnd) {
    for (std::atomic<bool>* const flag : {&closingDown, &tidyingThreadPool}) {
        LoadObservedJob();
        *flag = true;
        std::atomic<bool> returned{false};
        std::thread worker;
        observed_.whenDestroyed = [&] {  // in the middle of a load, which holds the lock
            worker = std::thread([&] {
                EXPECT_EQ(ProcessAction("web"), ResultNotEvaluated);
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

TEST_F(ProcessActionTest, SaysNothingOfAJobThatIsNotThere) {
    for (const char* const name : {"db", "", "WEB", "web "}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(ProcessAction(name), ResultNotEvaluated);
    }
    EXPECT_EQ(observed_.runs, 0);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessActionTest, SaysNothingOfAJobWithoutARemedy) {
    const JobHandle job = FindConfiguredJob("web");
    delete job->remedy;
    job->remedy = nullptr;

    EXPECT_EQ(ProcessAction("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessActionTest, SaysNothingWithoutAConfiguration) {
    DestroyTheConfig();

    EXPECT_EQ(ProcessAction("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessActionTest, LogsOneLineForARemedyThatThrows) {
    observed_.run = []() -> std::int32_t {
        throw std::runtime_error("unforeseen");
    };

    EXPECT_EQ(ProcessAction("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("Exception processing remedy for job web")));
}

TEST_F(ProcessActionTest, LogsOneLineWhateverTheRemedyThrows) {
    observed_.run = []() -> std::int32_t {
        throw 42;
    };

    EXPECT_EQ(ProcessAction("web"), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("Exception processing remedy for job web")));
}

TEST_F(ProcessActionTest, KeepsTheJobAliveWhileALoadReplacesIt) {
    EXPECT_EQ(RunWhile([this] { LoadJob("db"); }), ResultHealthy);

    EXPECT_TRUE(observed_.destroyed);
    EXPECT_EQ(FindConfiguredJob("web"), nullptr);
}

TEST_F(ProcessActionTest, KeepsTheJobAliveWhileTheConfigurationIsDestroyed) {
    EXPECT_EQ(RunWhile(DestroyTheConfig), ResultHealthy);

    EXPECT_TRUE(observed_.destroyed);
}

TEST_F(ProcessActionTest, HoldsNoJobAfterTheRun) {
    ProcessAction("web");

    LoadJob("db");

    EXPECT_TRUE(observed_.destroyed);
}

}  // namespace kennly::test
