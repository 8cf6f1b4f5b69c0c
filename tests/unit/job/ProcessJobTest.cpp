#include "job/ProcessJob.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "config/TheConfig.h"
#include "job/JobSteps.h"
#include "job/ResultCode.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "support/RecordedLog.h"
#include "support/RecordedPauses.h"
#include "support/TemporaryDirectory.h"

namespace {

// One step of a job as the cycle has asked for it.
struct Step {
    std::string kind;
    std::int32_t slotBase;
    std::string name;
};

bool operator==(const Step& a, const Step& b) {
    return a.kind == b.kind && a.slotBase == b.slotBase && a.name == b.name;
}

std::ostream& operator<<(std::ostream& out, const Step& step) {
    return out << step.kind << "(" << step.slotBase << ", " << step.name << ")";
}

// What the steps of the job find; the process shuts down after the last check.
std::vector<std::int32_t> checkResults;
std::int32_t remedyResult = kennly::ResultHealthy;
std::vector<Step> steps;
std::function<void()> whileChecking;   // called before each check's result
std::function<void()> whileRemedying;  // the same for each remedy

}  // namespace

namespace kennly {

std::int32_t RunCheck(std::int32_t slotBase, const std::string& name) {
    steps.push_back({"check", slotBase, name});
    if (whileChecking) {
        whileChecking();
    }
    if (checkResults.empty()) {
        closingDown = true;
        return ResultNotEvaluated;
    }
    const std::int32_t result = checkResults.front();
    checkResults.erase(checkResults.begin());
    return result;
}

std::int32_t RunRemedy(std::int32_t slotBase, const std::string& name) {
    steps.push_back({"remedy", slotBase, name});
    if (whileRemedying) {
        whileRemedying();
    }
    return remedyResult;
}

}  // namespace kennly

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Seconds = std::vector<unsigned>;
using Results = std::vector<std::int32_t>;

struct JobSettings {
    int maxErrors = 0;
    int checkDelay = 0;
    int remedyDelay = 0;
};

class ProcessJobTest : public ::testing::Test {
protected:
    ProcessJobTest() { Reset(); }
    ~ProcessJobTest() override { Reset(); }

    static void Reset() {
        checkResults.clear();
        remedyResult = ResultHealthy;
        steps.clear();
        whileChecking = nullptr;
        whileRemedying = nullptr;
        WhilePausing(nullptr);
        ForgetPauses();
        ForgetLog();
        DestroyTheConfig();
        configFile[0] = '\0';
        closingDown = false;
        tidyingThreadPool = false;
    }

    /// Loads a configuration whose one job is "web".
    void GivenJob(const JobSettings& settings, std::int32_t slotBase = 0) {
        const std::string content =
            "<dog><job name='web' enabled='true' maxerrors='" + std::to_string(settings.maxErrors) +
            "'><check type='CheckCommandResult' delay='" + std::to_string(settings.checkDelay) +
            "'><param value='true'/></check><remedy type='Execute' delay='" +
            std::to_string(settings.remedyDelay) + "'><param value='true'/></remedy></job></dog>";
        Load(content);
        FindConfiguredJob("web")->slotBase = slotBase;
    }

    void Load(const std::string& content) {
        const std::string path = directory_.Write("kennly.xml", content);
        std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
        if (theConfig == nullptr) {
            CreateTheConfig();
        }
        ASSERT_TRUE(theConfig->Load());
    }

    /// Runs the job until its checks have had these results, and gives back its pauses.
    Seconds Pauses(Results results) {
        checkResults = std::move(results);
        ProcessJob("web");
        return RecordedPauses();
    }

    /// How many remedies or checks have run.
    static long Count(const std::string& kind) {
        return std::count_if(steps.begin(), steps.end(),
                             [&](const Step& step) { return step.kind == kind; });
    }

    const TemporaryDirectory directory_;
};

// A cycle pauses for the remedy, if there is one, and then for the check delay, here 0.

TEST_F(ProcessJobTest, WaitsFifteenSecondsOnceFailuresPassMaxErrors) {
    GivenJob({/*maxErrors=*/3, /*checkDelay=*/0, /*remedyDelay=*/5});

    EXPECT_THAT(Pauses(Results(5, ResultFailed)), ElementsAre(5, 0, 5, 0, 5, 0, 15, 0, 15, 0));
    EXPECT_EQ(Count("remedy"), 5);
}

TEST_F(ProcessJobTest, ShortensALongRemedyDelayToFifteenSeconds) {
    GivenJob({/*maxErrors=*/3, /*checkDelay=*/0, /*remedyDelay=*/60});

    EXPECT_THAT(Pauses(Results(4, ResultFailed)), ElementsAre(60, 0, 60, 0, 60, 0, 15, 0));
}

TEST_F(ProcessJobTest, ThrottlesARemedyWithoutDelayToo) {
    GivenJob({/*maxErrors=*/1, /*checkDelay=*/0, /*remedyDelay=*/0});

    EXPECT_THAT(Pauses(Results(2, ResultFailed)), ElementsAre(0, 15, 0));
    EXPECT_EQ(Count("remedy"), 2);
}

TEST_F(ProcessJobTest, StartsCountingAfreshAfterAHealthyCheck) {
    GivenJob({/*maxErrors=*/1, /*checkDelay=*/0, /*remedyDelay=*/5});

    EXPECT_THAT(Pauses({ResultFailed, ResultFailed, ResultHealthy, ResultFailed, ResultFailed}),
                ElementsAre(5, 0, 15, 0, 0, 5, 0, 15, 0));
}

TEST_F(ProcessJobTest, CountsChecksThatCouldNotBeEvaluated) {
    GivenJob({/*maxErrors=*/3, /*checkDelay=*/0, /*remedyDelay=*/5});

    EXPECT_THAT(Pauses({ResultNotEvaluated, ResultNotEvaluated, ResultFailed, ResultFailed}),
                ElementsAre(0, 0, 5, 0, 15, 0));
    EXPECT_EQ(Count("remedy"), 2);
}

TEST_F(ProcessJobTest, TakesEveryOtherResultForAFailure) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/0, /*remedyDelay=*/0});

    EXPECT_THAT(Pauses({2, -2, 127, std::numeric_limits<std::int32_t>::min()}),
                ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(Count("remedy"), 4);
}

TEST_F(ProcessJobTest, NeverThrottlesWithoutAPositiveThreshold) {
    for (const int maxErrors : {0, -1}) {
        SCOPED_TRACE(maxErrors);
        Reset();
        GivenJob({maxErrors, /*checkDelay=*/0, /*remedyDelay=*/5});

        EXPECT_THAT(Pauses(Results(3, ResultFailed)), ElementsAre(5, 0, 5, 0, 5, 0));
    }
}

TEST_F(ProcessJobTest, RunsTheRemedyAtOnceWithoutAPositiveDelay) {
    for (const int remedyDelay : {0, -1}) {
        SCOPED_TRACE(remedyDelay);
        Reset();
        GivenJob({/*maxErrors=*/0, /*checkDelay=*/7, remedyDelay});

        EXPECT_THAT(Pauses({ResultFailed}), ElementsAre(7));
        EXPECT_EQ(Count("remedy"), 1);
    }
}

TEST_F(ProcessJobTest, PausesForTheCheckDelayAfterEachCycleWhateverItsResult) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/30, /*remedyDelay=*/5});

    EXPECT_THAT(Pauses({ResultHealthy, ResultNotEvaluated, ResultFailed}),
                ElementsAre(30, 30, 5, 30));
}

TEST_F(ProcessJobTest, ChecksAtOnceInTheFirstCycle) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/30, /*remedyDelay=*/5});
    Seconds pausesBefore = {99};
    whileChecking = [&] {
        pausesBefore = RecordedPauses();
    };

    Pauses({});

    EXPECT_THAT(pausesBefore, IsEmpty());
    EXPECT_EQ(Count("check"), 1);
}

TEST_F(ProcessJobTest, ReadsANegativeCheckDelayAsAVeryLongOne) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/-1, /*remedyDelay=*/0});

    EXPECT_THAT(Pauses({ResultHealthy}), ElementsAre(4294967295U));
}

TEST_F(ProcessJobTest, IgnoresWhatBecameOfTheRemedy) {
    for (const std::int32_t result : {ResultHealthy, ResultFailed, ResultNotEvaluated}) {
        SCOPED_TRACE(result);
        Reset();
        GivenJob({/*maxErrors=*/1, /*checkDelay=*/0, /*remedyDelay=*/5});
        remedyResult = result;

        EXPECT_THAT(Pauses(Results(2, ResultFailed)), ElementsAre(5, 0, 15, 0));
    }
}

TEST_F(ProcessJobTest, HandsTheJobsWorkersAndNameToBothSteps) {
    GivenJob({}, /*slotBase=*/6);

    Pauses({ResultFailed});

    EXPECT_THAT(steps, ElementsAre(Step{"check", 6, "web"}, Step{"remedy", 6, "web"},
                                   Step{"check", 6, "web"}));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessJobTest, DoesNothingForAJobThatIsNotThere) {
    GivenJob({});

    ProcessJob("db");

    EXPECT_THAT(steps, IsEmpty());
    EXPECT_THAT(RecordedPauses(), IsEmpty());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ProcessJobTest, DoesNothingForAJobThatHasNoWorkersYet) {
    GivenJob({}, NoWorkers);

    ProcessJob("web");

    EXPECT_THAT(steps, IsEmpty());
}

TEST_F(ProcessJobTest, DoesNothingWithoutAConfiguration) {
    ProcessJob("web");

    EXPECT_THAT(steps, IsEmpty());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

/// For both flags that end a job.
class ProcessJobEndTest : public ProcessJobTest,
                          public ::testing::WithParamInterface<std::atomic<bool>*> {
protected:
    static void Raise() { *GetParam() = true; }

    /// Raises the flag in the pause with this number, counted from 1.
    static void RaiseAtPause(std::size_t number) {
        WhilePausing([number](std::size_t count, unsigned) {
            if (count == number) {
                Raise();
            }
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Flags, ProcessJobEndTest,
                         ::testing::Values(&closingDown, &tidyingThreadPool), [](const auto& test) {
                             return test.param == &closingDown ? "ClosingDown" : "Tidying";
                         });

TEST_P(ProcessJobEndTest, BeginsNoCycle) {
    GivenJob({});
    Raise();

    EXPECT_THAT(Pauses({ResultFailed}), IsEmpty());
    EXPECT_THAT(steps, IsEmpty());
}

TEST_P(ProcessJobEndTest, EndsAfterTheCheckWithoutAPauseOrRemedy) {
    for (const std::int32_t result : {ResultHealthy, ResultFailed, ResultNotEvaluated}) {
        SCOPED_TRACE(result);
        Reset();
        GivenJob({/*maxErrors=*/0, /*checkDelay=*/7, /*remedyDelay=*/5});
        whileChecking = Raise;

        EXPECT_THAT(Pauses({result, ResultFailed}), IsEmpty());
        EXPECT_THAT(steps, ElementsAre(Step{"check", 0, "web"}));
    }
}

TEST_P(ProcessJobEndTest, EndsAfterThePauseBeforeARemedyWithoutRunningIt) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/7, /*remedyDelay=*/5});
    RaiseAtPause(1);

    EXPECT_THAT(Pauses({ResultFailed, ResultFailed}), ElementsAre(5));
    EXPECT_THAT(steps, ElementsAre(Step{"check", 0, "web"}));
}

TEST_P(ProcessJobEndTest, EndsAfterAThrottledPauseWithoutRunningTheRemedy) {
    GivenJob({/*maxErrors=*/1, /*checkDelay=*/7, /*remedyDelay=*/0});
    RaiseAtPause(2);

    EXPECT_THAT(Pauses({ResultNotEvaluated, ResultFailed, ResultFailed}), ElementsAre(7, 15));
    EXPECT_EQ(Count("remedy"), 0);
}

TEST_P(ProcessJobEndTest, EndsAfterTheRemedyWithoutAPause) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/7, /*remedyDelay=*/0});
    whileRemedying = Raise;

    EXPECT_THAT(Pauses({ResultFailed, ResultFailed}), IsEmpty());
    EXPECT_THAT(steps, ElementsAre(Step{"check", 0, "web"}, Step{"remedy", 0, "web"}));
}

TEST_P(ProcessJobEndTest, EndsAfterThePauseBetweenTwoCycles) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/7, /*remedyDelay=*/0});
    RaiseAtPause(1);

    EXPECT_THAT(Pauses({ResultHealthy, ResultFailed}), ElementsAre(7));
    EXPECT_THAT(steps, ElementsAre(Step{"check", 0, "web"}));
}

TEST_F(ProcessJobTest, LogsAnExceptionOfEachStepAndEnds) {
    const auto raise = [] {
        throw std::runtime_error("unforeseen");
    };
    const std::vector<std::pair<std::string, std::function<void()>>> rows = {
        {"check",
         [&] {
             whileChecking = raise;
         }},
        {"pause",
         [&] {
             WhilePausing([=](std::size_t, unsigned) { raise(); });
         }},
        {"remedy",
         [&] {
             whileRemedying = raise;
         }},
    };
    for (const auto& [step, prepare] : rows) {
        SCOPED_TRACE(step);
        Reset();
        GivenJob({});
        prepare();

        Pauses({ResultFailed, ResultFailed});

        EXPECT_THAT(RecordedLines(), ElementsAre(Error("Exception in ProcessJob for job: web")));
        EXPECT_EQ(Count("check"), 1);
    }
}

TEST_F(ProcessJobTest, KeepsTheOldValuesWhenTheJobIsReplaced) {
    GivenJob({/*maxErrors=*/2, /*checkDelay=*/7, /*remedyDelay=*/5}, /*slotBase=*/3);
    WhilePausing([this](std::size_t count, unsigned) {
        if (count == 1) {
            GivenJob({/*maxErrors=*/0, /*checkDelay=*/70, /*remedyDelay=*/50}, /*slotBase=*/30);
        }
    });

    EXPECT_THAT(Pauses(Results(3, ResultFailed)), ElementsAre(5, 7, 5, 7, 15, 7));
    EXPECT_THAT(steps[1], (Step{"remedy", 3, "web"}));
    EXPECT_THAT(steps.back(), (Step{"check", 3, "web"}));
}

TEST_F(ProcessJobTest, GoesOnWhenTheJobIsRemoved) {
    GivenJob({/*maxErrors=*/0, /*checkDelay=*/7, /*remedyDelay=*/5});
    whileChecking = [this] {
        Load("<dog/>");
    };

    EXPECT_THAT(Pauses({ResultNotEvaluated, ResultNotEvaluated}), ElementsAre(7, 7));
    EXPECT_EQ(Count("check"), 3);
}

TEST_F(ProcessJobTest, KeepsNoHoldOnTheJob) {
    GivenJob({});
    const std::weak_ptr<DogJob> job = FindConfiguredJob("web");
    bool goneInCheck = false;
    whileChecking = [&] {
        Load("<dog/>");
        goneInCheck = job.expired();
    };

    Pauses({});

    EXPECT_TRUE(goneInCheck);
}

}  // namespace kennly::test
