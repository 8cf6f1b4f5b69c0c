#include "ctl/UptakeWatch.h"

#include <string>

#include "unit/status/PlainProcess.h"

namespace kennly::test {

using State = UptakeWatch::State;

class UptakeWatchTest : public ::testing::Test {
protected:
    void HaveThreads(int count) const { worker.Ask({"threads", std::to_string(count)}); }

    bool wasRead = false;
    const StandInProgram program;
    PlainProcess worker{program.path, program.With({"-f"})};
};

TEST_F(UptakeWatchTest, WaitsUntilAllThreadsAreNewAndThreeForEachJob) {
    HaveThreads(3);
    UptakeWatch watch(worker.Number(), [this] { return wasRead; });
    EXPECT_EQ(watch.Look(1), State::Waiting);
    wasRead = true;
    EXPECT_EQ(watch.Look(1), State::Read) << "the threads are the old ones";
    HaveThreads(0);
    EXPECT_EQ(watch.Look(1), State::Read) << "there are none yet";
    HaveThreads(2);
    EXPECT_EQ(watch.Look(1), State::Read) << "one is missing";
    HaveThreads(3);
    EXPECT_EQ(watch.Look(1), State::TakenUp);
    EXPECT_EQ(watch.Look(2), State::Read) << "not those of two jobs";
    HaveThreads(6);
    EXPECT_EQ(watch.Look(2), State::TakenUp);
}

TEST_F(UptakeWatchTest, TakesNoThreadsOfAnEarlierFileForThoseOfThisOne) {
    HaveThreads(3);
    UptakeWatch watch(worker.Number(), [this] { return wasRead; });
    HaveThreads(0);
    HaveThreads(3);
    EXPECT_EQ(watch.Look(1), State::Waiting) << "new, but the file has not been read";
    wasRead = true;
    EXPECT_EQ(watch.Look(1), State::Read) << "they were there before it was read";
    HaveThreads(0);
    HaveThreads(3);
    EXPECT_EQ(watch.Look(1), State::TakenUp);
}

TEST_F(UptakeWatchTest, GoesByThreadsAloneWhereNobodyKnowsOfTheReading) {
    HaveThreads(3);
    UptakeWatch watch(worker.Number(), nullptr);
    EXPECT_EQ(watch.Look(1), State::Waiting);
    HaveThreads(0);
    EXPECT_EQ(watch.Look(1), State::Waiting);
    EXPECT_EQ(watch.Look(0), State::TakenUp);
    HaveThreads(3);
    EXPECT_EQ(watch.Look(1), State::TakenUp);
}

TEST_F(UptakeWatchTest, GoesByTheReadingWhereThereIsNoJobBeforeAndAfter) {
    UptakeWatch watch(worker.Number(), [this] { return wasRead; });
    UptakeWatch blind(worker.Number(), nullptr);
    EXPECT_EQ(watch.Look(0), State::Waiting);
    EXPECT_EQ(blind.Look(0), State::Waiting);
    wasRead = true;
    EXPECT_EQ(watch.Look(0), State::TakenUp);
    EXPECT_EQ(blind.Look(0), State::Waiting);
    EXPECT_EQ(watch.Look(1), State::Read);
    HaveThreads(3);
    EXPECT_EQ(watch.Look(1), State::TakenUp);
}

TEST_F(UptakeWatchTest, SeesThatTheWorkerHasEnded) {
    HaveThreads(3);
    UptakeWatch watch(worker.Number(), [this] { return wasRead; });
    worker.EndUnreaped();
    EXPECT_EQ(watch.Look(1), State::Gone);
    worker.End();
    EXPECT_EQ(watch.Look(1), State::Gone);
}

}  // namespace kennly::test
