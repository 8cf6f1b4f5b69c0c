#include "config/DogConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/SandboxPolling.h"
#include "unit/config/ConfigTest.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(std::is_nothrow_destructible_v<DogConfig>);

namespace {

// Both read the job's name while they are destroyed: the job must still be there.
class RecordedRemedy : public DogAction {
public:
    RecordedRemedy(std::vector<std::string>& record, const DogJob& job)
        : record_(record), job_(job) {}
    ~RecordedRemedy() override {
        record_.push_back("remedy of " + job_.name);
        whenDestroyed();
    }

    std::function<void()> whenDestroyed = [] {
    };

private:
    std::vector<std::string>& record_;
    const DogJob& job_;
};

class RecordedCheck : public DogWatch {
public:
    RecordedCheck(std::vector<std::string>& record, const DogJob& job)
        : record_(record), job_(job) {}
    ~RecordedCheck() override { record_.push_back("check of " + job_.name); }

    void Remember() noexcept override { record_.push_back("memory of " + job_.name); }

private:
    std::vector<std::string>& record_;
    const DogJob& job_;
};

}  // namespace

class DogConfigTest : public ConfigTest {
protected:
    void Load(const std::vector<std::string>& names) {
        std::string jobs;
        for (const std::string& name : names) {
            jobs += ValidJob(name);
        }
        WriteJobs(jobs);
        ASSERT_TRUE(config->Load());
    }

    // Replaces check and remedy of each job by ones that record their destruction.
    void RecordDestructions() {
        for (const JobHandle& job : config->Jobs()) {
            delete job->check;
            job->check = new RecordedCheck(record, *job);
            delete job->remedy;
            job->remedy = new RecordedRemedy(record, *job);
        }
    }

    static RecordedRemedy& RemedyOf(const JobHandle& job) {
        return dynamic_cast<RecordedRemedy&>(*job->remedy);
    }

    std::vector<std::string> record;  // outlives the jobs
    std::unique_ptr<DogConfig> config = std::make_unique<DogConfig>();
};

TEST_F(DogConfigTest, IsEmptyAtFirst) {
    EXPECT_THAT(config->Jobs(), IsEmpty());
    EXPECT_EQ(config->FindJob("web"), nullptr);
    EXPECT_EQ(config->FindJob(""), nullptr);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(DogConfigTest, CanBeDestroyedThroughABase) {
    EXPECT_TRUE(std::has_virtual_destructor_v<DogConfig>);
}

TEST_F(DogConfigTest, FindsAJobByItsNameByteByByte) {
    Load({"web", "Web", "w\xC3\xA4 b", ""});

    for (const std::string name : {"web", "Web", "w\xC3\xA4 b", ""}) {
        SCOPED_TRACE(name);
        const JobHandle job = config->FindJob(name);
        ASSERT_NE(job, nullptr);
        EXPECT_EQ(job->name, name);
    }
    for (const std::string name : {"WEB", "we", "webb", " web", "web "}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(config->FindJob(name), nullptr);
    }
}

TEST_F(DogConfigTest, FindsTheVeryJobsOfItsList) {
    Load({"b", "a", "c"});

    for (const JobHandle& job : config->Jobs()) {
        EXPECT_EQ(config->FindJob(job->name), job);
    }
}

TEST_F(DogConfigTest, GivesUpAllJobsWhenCleared) {
    Load({"a", "b"});

    config->ClearJobs();

    EXPECT_THAT(config->Jobs(), IsEmpty());
    EXPECT_EQ(config->FindJob("a"), nullptr);
    EXPECT_EQ(config->FindJob("b"), nullptr);
    config->ClearJobs();
    EXPECT_THAT(config->Jobs(), IsEmpty());
}

TEST_F(DogConfigTest, DestroysItsJobsInTheOrderOfTheFileRemedyFirst) {
    const struct {
        const char* what;
        std::function<void()> act;
    } rows[] = {
        {"cleared",
         [this] {
             config->ClearJobs();
         }},
        {"loaded",
         [this] {
             Load({"new"});
         }},
        {"loaded in vain",
         [this] {
             WriteConfig("<config>");
             EXPECT_FALSE(config->Load());
         }},
        {"destroyed",
         [this] {
             config = std::make_unique<DogConfig>();
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Load({"b", "c", "a"});
        RecordDestructions();
        record.clear();

        row.act();

        EXPECT_THAT(record, ElementsAre("remedy of b", "check of b", "remedy of c", "check of c",
                                        "remedy of a", "check of a"));
    }
}

TEST_F(DogConfigTest, FindsNoJobAnyMoreWhileTheFirstIsDestroyed) {
    Load({"a", "b"});
    RecordDestructions();
    bool found = true;
    RemedyOf(config->FindJob("a")).whenDestroyed = [&] {
        found = config->FindJob("b") != nullptr;
    };

    config->ClearJobs();

    EXPECT_EQ(record.size(), 4U);
    EXPECT_FALSE(found);
}

TEST_F(DogConfigTest, HasAJobInUseRememberAndLeavesItToItsLastHolder) {
    Load({"a", "b"});
    RecordDestructions();
    JobHandle first = config->FindJob("a");
    JobHandle second = first;

    Load({"a"});

    const std::vector<std::string> untilNow = {"memory of a", "remedy of b", "check of b"};
    EXPECT_EQ(record, untilNow);
    EXPECT_NE(config->FindJob("a"), first);
    EXPECT_EQ(first->name, "a");
    first.reset();
    EXPECT_EQ(record, untilNow);
    record.clear();
    second.reset();
    EXPECT_THAT(record, ElementsAre("remedy of a", "check of a"));
}

TEST_F(DogConfigTest, HasAJobInUseRememberAndLeavesItToItsLastHolderWhenDestroyed) {
    Load({"a"});
    RecordDestructions();
    JobHandle job = config->FindJob("a");

    config.reset();

    EXPECT_THAT(record, ElementsAre("memory of a"));
    job.reset();
    EXPECT_THAT(record, ElementsAre("memory of a", "remedy of a", "check of a"));
}

TEST_F(DogConfigTest, DestroysAJobOnTheThreadOfItsLastHolder) {
    Load({"a"});
    RecordDestructions();
    JobHandle job = config->FindJob("a");
    std::thread::id destroyer;
    RemedyOf(job).whenDestroyed = [&] {
        destroyer = std::this_thread::get_id();
    };
    config->ClearJobs();

    std::thread holder([held = std::move(job)]() mutable { held.reset(); });
    const std::thread::id expected = holder.get_id();
    holder.join();

    EXPECT_EQ(destroyer, expected);
}

TEST_F(DogConfigTest, LetsALookupWaitForALoadAndFindTheNewJobs) {
    Load({"old"});
    RecordDestructions();
    WriteJobs(ValidJob("new"));
    std::atomic<bool> returned{false};
    JobHandle found;
    std::thread lookup;
    // In the middle of the load; a lookup that does not wait has time to come back empty-handed.
    RemedyOf(config->FindJob("old")).whenDestroyed = [&] {
        std::atomic<bool> started{false};
        lookup = std::thread([&] {
            started = true;
            found = config->FindJob("new");
            returned = true;
        });
        WaitUntil([&] { return started.load(); }, std::chrono::seconds(10));
        EXPECT_FALSE(WaitUntil([&] { return returned.load(); }, std::chrono::milliseconds(100)));
    };

    EXPECT_TRUE(config->Load());

    ASSERT_TRUE(lookup.joinable());
    lookup.join();
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->name, "new");
}

TEST_F(DogConfigTest, AnswersManyThreadsWhileItLoadsAgainAndAgain) {
    Load({"a", "b"});
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::atomic<int> lookups{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, name = std::string(i % 2 == 0 ? "a" : "b")] {
            while (!done) {
                const JobHandle job = config->FindJob(name);
                // A lookup never falls between the old jobs and the new ones.
                wrong += job == nullptr || job->name != name || job->check->jobName != name ||
                         job->remedy->params.size() != 1;
                ++lookups;
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(config->Load());
    }
    EXPECT_TRUE(WaitUntil([&] { return lookups > 100; }, std::chrono::seconds(20)));
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
}

}  // namespace kennly::test
