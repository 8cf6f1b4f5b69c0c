#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "config/FileTime.h"
#include "config/TheConfig.h"
#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "stress/RandomDelays.h"
#include "stress/Stress.h"
#include "support/Dice.h"
#include "support/FileTimeRecord.h"
#include "support/TemporaryDirectory.h"
#include "watch/ProcessWatch.h"

namespace {

// A job, its worker and the file that it watches, whose path is the job's name.
struct Watched {
    const std::string name;
    std::atomic<std::int32_t> time{1700000000};
    std::atomic<std::int32_t> lastLook{0};
    std::atomic<int> looks{0};
    std::atomic<int> changes{0};   // from one look to the next
    std::atomic<int> failures{0};  // that the worker was told of
};

std::array<Watched, 3> files = {Watched{"web"}, Watched{"mail"}, Watched{"log"}};

}  // namespace

namespace kennly {

// Tells what a check has seen. Holds it up then, so that what else happens finds it evaluated.
bool GetFileTime(const std::string& path, std::int32_t& seconds) {
    for (Watched& file : files) {
        if (file.name == path) {
            seconds = file.time;
            file.changes += file.lastLook.exchange(seconds) == seconds ? 0 : 1;
            ++file.looks;
        }
    }
    test::SpinUpTo(300);
    return true;
}

}  // namespace kennly

namespace kennly::test {

class FileChangeStressTest : public ::testing::Test {
protected:
    FileChangeStressTest() {
        std::filesystem::create_directories(directory.Path("filetimes"));
        std::snprintf(configDir, sizeof(configDir), "%s", directory.Path("").c_str());
        std::string jobs;
        for (const Watched& file : files) {
            jobs += "<job name='" + file.name +
                    "' enabled='true'><check type='CheckForFileChange'><param value='" + file.name +
                    "'/></check><remedy type='Execute'/></job>";
        }
        const std::string path = directory.Write("kennly.xml", "<dog>" + jobs + "</dog>");
        std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
        CreateTheConfig();
        EXPECT_TRUE(theConfig->Load());
    }

    ~FileChangeStressTest() override {
        DestroyTheConfig();
        tidyingThreadPool = false;
        configFile[0] = '\0';
        configDir[0] = '\0';
    }

    // Starts what evaluates the checks of the jobs by name, as their workers do.
    void StartWorkers() {
        std::int32_t slot = 0;
        for (Watched& file : files) {
            FindConfiguredJob(file.name)->slotBase = slot;
            slot += 3;
        }
        for (Watched& file : files) {
            workers.emplace_back([&file] {
                while (!tidyingThreadPool) {
                    file.failures += ProcessWatch(file.name) == ResultFailed ? 1 : 0;
                }
            });
        }
    }

    void EndWorkers() {
        tidyingThreadPool = true;
        for (std::thread& worker : workers) {
            worker.join();
        }
        workers.clear();
        tidyingThreadPool = false;
    }

    // Changes some of the files.
    void ChangeAtRandom() {
        for (Watched& file : files) {
            file.time += static_cast<std::int32_t>(dice.UpTo(1));
        }
    }

    // Gives all jobs up, with or without their configuration, and loads them anew.
    void Reload() {
        if (dice.UpTo(4) == 0) {
            DestroyTheConfig();
            CreateTheConfig();
        }
        ASSERT_TRUE(theConfig->Load());
    }

    static bool WaitUntilAllAreSeen() {
        return SpinUntil([] {
            for (const Watched& file : files) {
                if (file.lastLook != file.time) {
                    return false;
                }
            }
            return true;
        });
    }

    // Expects that the records hold the times last seen, and that each change that was seen has
    // been acted on once.
    void ExpectNothingLost() const {
        for (const Watched& file : files) {
            EXPECT_EQ(directory.Read("filetimes/" + file.name), RecordOf(file.lastLook))
                << file.name;
            EXPECT_EQ(file.failures, file.changes) << file.name;
        }
    }

    const TemporaryDirectory directory;
    std::vector<std::thread> workers;
    Figures figures;
    Dice dice{Seed};
    RoundLimit limit;
};

TEST_F(FileChangeStressTest, AReloadAtAnyMomentLosesNoChangeAndRepeatsNone) {
    constexpr int rounds = 600;
    for (int round = 1; round <= rounds && !HasFailure(); ++round) {
        limit.Begin();
        ChangeAtRandom();  // while nobody looks
        StartWorkers();
        EXPECT_TRUE(WaitUntilAllAreSeen());

        ChangeAtRandom();
        JobHandle held = FindConfiguredJob(files[dice.UpTo(files.size() - 1)].name);
        Spin(dice.UpTo(2000));
        held->check->Remember();
        if (dice.UpTo(1) == 0) {  // else it may be the last to hold it
            held.reset();
        }
        ChangeAtRandom();
        Reload();
        Spin(dice.UpTo(2000));
        held.reset();
        EndWorkers();

        ExpectNothingLost();
    }
    const Watched& web = files[0];
    EXPECT_GT(web.failures, rounds / 4);
    figures.Print("%d reloads during %d looks at a file, %d changes seen, none lost", rounds,
                  web.looks.load(), web.changes.load());
}

}  // namespace kennly::test
