#include "config/TheConfig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/SandboxPolling.h"
#include "unit/config/ConfigTest.h"

namespace kennly::test {

class TheConfigTest : public ConfigTest {
protected:
    TheConfigTest() { WriteJobs(ValidJob("web")); }
    ~TheConfigTest() override { DestroyTheConfig(); }
};

TEST_F(TheConfigTest, IsNoneAtFirst) {
    EXPECT_EQ(theConfig, nullptr);
    EXPECT_EQ(FindConfiguredJob("web"), nullptr);
}

TEST_F(TheConfigTest, IsEmptyOnceCreated) {
    CreateTheConfig();

    ASSERT_NE(theConfig, nullptr);
    EXPECT_TRUE(theConfig->Jobs().empty());
    EXPECT_EQ(FindConfiguredJob("web"), nullptr);
}

TEST_F(TheConfigTest, FindsItsJobsByName) {
    CreateTheConfig();
    ASSERT_TRUE(theConfig->Load());

    EXPECT_EQ(FindConfiguredJob("web"), theConfig->Jobs().front());
    EXPECT_EQ(FindConfiguredJob("WEB"), nullptr);
    EXPECT_EQ(FindConfiguredJob(""), nullptr);
}

TEST_F(TheConfigTest, FindsNothingOnceDestroyed) {
    CreateTheConfig();
    ASSERT_TRUE(theConfig->Load());
    const std::weak_ptr<DogJob> job = FindConfiguredJob("web");

    DestroyTheConfig();

    EXPECT_EQ(theConfig, nullptr);
    EXPECT_EQ(FindConfiguredJob("web"), nullptr);
    EXPECT_TRUE(job.expired());
    DestroyTheConfig();
    EXPECT_EQ(theConfig, nullptr);
}

TEST_F(TheConfigTest, LeavesAJobInUseToItsHolder) {
    CreateTheConfig();
    ASSERT_TRUE(theConfig->Load());
    const JobHandle job = FindConfiguredJob("web");

    DestroyTheConfig();

    EXPECT_EQ(job->name, "web");
    EXPECT_EQ(job->check->jobName, "web");
    EXPECT_EQ(job.use_count(), 1);
}

TEST_F(TheConfigTest, ReplacesAnEarlierConfiguration) {
    CreateTheConfig();
    ASSERT_TRUE(theConfig->Load());
    const std::weak_ptr<DogJob> job = FindConfiguredJob("web");

    CreateTheConfig();

    EXPECT_TRUE(job.expired());
    EXPECT_EQ(FindConfiguredJob("web"), nullptr);
}

TEST_F(TheConfigTest, AnswersManyThreadsWhileItIsCreatedAndDestroyed) {
    std::atomic<bool> done{false};
    std::atomic<int> found{0};
    std::atomic<int> missed{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!done) {
                const JobHandle job = FindConfiguredJob("web");
                wrong += job != nullptr && (job->name != "web" || job->check->jobName != "web");
                ++(job != nullptr ? found : missed);
            }
        });
    }

    int rounds = 0;
    EXPECT_TRUE(WaitUntil(
        [&] {
            for (int i = 0; i < 20; ++i, ++rounds) {
                CreateTheConfig();
                EXPECT_TRUE(theConfig->Load());
                DestroyTheConfig();
            }
            return rounds >= 200 && found > 100 && missed > 100;
        },
        std::chrono::seconds(20)));
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
}

}  // namespace kennly::test
