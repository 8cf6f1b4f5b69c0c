#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "action/ProcessAction.h"
#include "config/TheConfig.h"
#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "pool/WatchDogThreadPool.h"
#include "stress/RandomDelays.h"
#include "stress/Stress.h"
#include "support/Dice.h"
#include "support/TemporaryDirectory.h"
#include "sync/Pause.h"
#include "watch/ProcessWatch.h"

namespace {

constexpr int JobCount = 6;

// How often the check of each job has run since the last load.
std::array<std::atomic<int>, JobCount> checks{};

}  // namespace

namespace kennly {

// A second would only slow the test down.
void Pause(unsigned /*seconds*/) {
    std::this_thread::sleep_for(std::chrono::microseconds(20));
}

std::int32_t ProcessWatch(const std::string& jobName) {
    if (tidyingThreadPool || closingDown) {
        return ResultNotEvaluated;
    }
    ++checks.at(static_cast<std::size_t>(jobName[0] - 'a'));
    return ResultFailed;
}

std::int32_t ProcessAction(const std::string& /*jobName*/) {
    return ResultHealthy;
}

}  // namespace kennly

namespace kennly::test {

class ReloadStressTest : public ::testing::Test {
protected:
    ReloadStressTest() {
        std::string jobs;
        for (int number = 0; number < JobCount; ++number) {
            jobs += "<job name='" + std::string(1, static_cast<char>('a' + number)) +
                    "' enabled='true'><check type='CheckCommandResult'/><remedy type='Execute'/>"
                    "</job>";
        }
        const std::string path = directory.Write("kennly.xml", "<dog>" + jobs + "</dog>");
        std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
        CreateTheConfig();
    }
    ~ReloadStressTest() override {
        Tidy();
        DestroyTheConfig();
        configFile[0] = '\0';
    }

    static void Tidy() {
        tidyingThreadPool = true;
        EXPECT_TRUE(TidyThreadPool());
        tidyingThreadPool = false;
    }

    /// What the child does when its file has changed. Workers of the old pool may be late: some
    /// take their first job only while the new file is being loaded.
    static void Reload() {
        ASSERT_TRUE(theConfig->Load());
        Tidy();
        for (std::atomic<int>& count : checks) {
            count = 0;
        }
        ASSERT_TRUE(CreateThreadPool(3 * JobCount));
        ASSERT_TRUE(theConfig->AssignJobs());
    }

    static bool AllHaveBeenChecked() {
        for (const std::atomic<int>& count : checks) {
            if (count == 0) {
                return false;
            }
        }
        return true;
    }

    const TemporaryDirectory directory;
    Figures figures;
    Dice dice{Seed};
    RoundLimit limit;
};

TEST_F(ReloadStressTest, AReloadAtAnyMomentEndsTheOldJobsAndStartsAllOfTheNew) {
    constexpr int rounds = Rounds(1500);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        limit.Begin();
        Reload();
        if (round % 10 == 0) {
            EXPECT_TRUE(SpinUntil(AllHaveBeenChecked));
        }
        Spin(dice.UpTo(1U << (4 + dice.UpTo(12))));
    }
    figures.Print("%d reloads of %d jobs", rounds, JobCount);
}

}  // namespace kennly::test
