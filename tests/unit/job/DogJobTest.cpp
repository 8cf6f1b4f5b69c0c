#include "job/DogJob.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(std::is_nothrow_destructible_v<DogJob>);

using Destroyed = std::vector<std::string>;

class NotingAction : public DogAction {
public:
    explicit NotingAction(Destroyed& destroyed) : destroyed_(destroyed) {}
    ~NotingAction() override { destroyed_.push_back("remedy"); }

private:
    Destroyed& destroyed_;
};

class NotingWatch : public DogWatch {
public:
    explicit NotingWatch(Destroyed& destroyed) : destroyed_(destroyed) {}
    ~NotingWatch() override { destroyed_.push_back("check"); }

private:
    Destroyed& destroyed_;
};

class NotingJob : public DogJob {
public:
    explicit NotingJob(Destroyed& destroyed) : destroyed_(destroyed) {}
    ~NotingJob() override { destroyed_.push_back("job"); }

private:
    Destroyed& destroyed_;
};

TEST(DogJobTest, BeginsDisabledAndWithoutAThreshold) {
    const JobHandle job = NewJob();

    EXPECT_FALSE(job->enabled);
    EXPECT_EQ(job->name, "");
    EXPECT_EQ(job->maxErrors, 0);
    EXPECT_EQ(job->remedy, nullptr);
    EXPECT_EQ(job->check, nullptr);
    EXPECT_EQ(job->slotBase, NoWorkers);
}

TEST(DogJobTest, IsDestroyedAfterItsRemedyAndThenItsCheck) {
    Destroyed destroyed;
    auto* const job = new NotingJob(destroyed);
    job->check = new NotingWatch(destroyed);
    job->remedy = new NotingAction(destroyed);

    DestroyJob(job);

    EXPECT_THAT(destroyed, ElementsAre("remedy", "check", "job"));
}

TEST(DogJobTest, LeavesCheckAndRemedyToWhoeverDestroysTheJobItself) {
    Destroyed destroyed;
    NotingWatch check(destroyed);
    NotingAction remedy(destroyed);
    {
        DogJob job;
        job.check = &check;
        job.remedy = &remedy;
    }

    EXPECT_THAT(destroyed, IsEmpty());
}

TEST(DogJobTest, IsDestroyedWithoutCheckOrRemedy) {
    Destroyed destroyed;
    DestroyJob(nullptr);

    DestroyJob(new NotingJob(destroyed));

    EXPECT_THAT(destroyed, ElementsAre("job"));
}

TEST(DogJobTest, IsDestroyedByItsLastHolder) {
    Destroyed destroyed;
    JobHandle first = NewJob();
    first->check = new NotingWatch(destroyed);
    first->remedy = new NotingAction(destroyed);
    JobHandle last = first;

    first.reset();
    EXPECT_THAT(destroyed, IsEmpty());
    last.reset();

    EXPECT_THAT(destroyed, ElementsAre("remedy", "check"));
}

}  // namespace kennly::test
