#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "config/TheConfig.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "pool/JobQueue.h"
#include "support/RecordedLog.h"
#include "support/TemporaryDirectory.h"

namespace {

std::vector<std::string> queued;  // "index name" of each job queued
bool queueAnswer = true;
std::function<void(const std::string& name)> whileQueuing;

}  // namespace

namespace kennly {

bool QueueJob(std::uint32_t workerIndex, const std::string& jobName) {
    queued.push_back(std::to_string(workerIndex) + " " + jobName);
    if (whileQueuing) {
        whileQueuing(jobName);
    }
    return queueAnswer;
}

}  // namespace kennly

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AssignJobsTest : public ::testing::Test {
protected:
    AssignJobsTest() { Reset(); }
    ~AssignJobsTest() override { Reset(); }

    static void Reset() {
        queued.clear();
        queueAnswer = true;
        whileQueuing = nullptr;
        ForgetLog();
        DestroyTheConfig();
        configFile[0] = '\0';
    }

    void Load(const std::vector<std::string>& names) {
        std::string content = "<dog>";
        for (const std::string& name : names) {
            content += "<job name='" + name +
                       "' enabled='true'><check type='CheckCommandResult'/>"
                       "<remedy type='Execute'/></job>";
        }
        const std::string path = directory_.Write("kennly.xml", content + "</dog>");
        std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
        CreateTheConfig();
        ASSERT_TRUE(theConfig->Load());
    }

    static std::int32_t SlotBase(const std::string& name) {
        return FindConfiguredJob(name)->slotBase;
    }

    const TemporaryDirectory directory_;
};

TEST_F(AssignJobsTest, GivesEachJobThreeWorkersInTheOrderOfTheFile) {
    Load({"web", "db", "mail"});

    EXPECT_TRUE(theConfig->AssignJobs());

    EXPECT_THAT(queued, ElementsAre("0 web", "3 db", "6 mail"));
    EXPECT_EQ(SlotBase("web"), 0);
    EXPECT_EQ(SlotBase("db"), 3);
    EXPECT_EQ(SlotBase("mail"), 6);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(AssignJobsTest, BeginsWithTheFirstWorkerEachTime) {
    Load({"web", "db"});
    theConfig->AssignJobs();
    queued.clear();

    EXPECT_TRUE(theConfig->AssignJobs());

    EXPECT_THAT(queued, ElementsAre("0 web", "3 db"));
}

TEST_F(AssignJobsTest, SucceedsWithoutAnyJob) {
    Load({});

    EXPECT_TRUE(theConfig->AssignJobs());

    EXPECT_THAT(queued, IsEmpty());
}

TEST_F(AssignJobsTest, DoesNotAskWhetherAJobWasQueued) {
    Load({"web", "db"});
    queueAnswer = false;

    EXPECT_TRUE(theConfig->AssignJobs());

    EXPECT_THAT(queued, ElementsAre("0 web", "3 db"));
}

TEST_F(AssignJobsTest, KnowsTheWorkersBeforeTheJobIsQueued) {
    Load({"web", "db"});
    std::vector<std::int32_t> slots;
    whileQueuing = [&](const std::string& name) {
        slots.push_back(SlotBase(name));
    };

    theConfig->AssignJobs();

    EXPECT_THAT(slots, ElementsAre(0, 3));
}

TEST_F(AssignJobsTest, LetsTheJobsLookThemselvesUpMeanwhile) {
    Load({"web"});
    bool found = false;
    whileQueuing = [&](const std::string& name) {
        std::thread([&] { found = FindConfiguredJob(name) != nullptr; }).join();
    };

    theConfig->AssignJobs();

    EXPECT_TRUE(found);
}

TEST_F(AssignJobsTest, LogsAnExceptionAndLeavesTheJobsAfterItUnstarted) {
    Load({"web", "db", "mail"});
    whileQueuing = [](const std::string& name) {
        if (name == "db") {
            throw std::bad_alloc();
        }
    };

    EXPECT_FALSE(theConfig->AssignJobs());

    EXPECT_THAT(queued, ElementsAre("0 web", "3 db"));
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("exception while assigning jobs!")));
}

}  // namespace kennly::test
