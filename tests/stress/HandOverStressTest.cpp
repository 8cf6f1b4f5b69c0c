#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "main/ProcessState.h"
#include "pool/ThreadPool.h"
#include "stress/RandomDelays.h"
#include "stress/Stress.h"
#include "support/Dice.h"

namespace kennly::test {

namespace {

struct Counts {
    std::atomic<int> ran{0};
    std::atomic<int> givenUp{0};
};

class CountedJob : public ThreadPool::IJob {
public:
    explicit CountedJob(Counts& counts) : IJob(false), counts_(counts) {}
    void Run(std::uint32_t /*context*/) override { ++counts_.ran; }
    void GivenUp() noexcept override { ++counts_.givenUp; }

private:
    Counts& counts_;
};

}  // namespace

class HandOverStressTest : public ::testing::Test {
protected:
    HandOverStressTest() { closingDown = false; }

    static constexpr int HandOvers = Rounds(100000);

    Figures figures;
    Dice dice{Seed};
    Counts counts;
};

TEST_F(HandOverStressTest, RunsOneJobOnEachWorkerOfAPoolThatIsJustStarting) {
    int queued = 0;
    int pools = 0;
    while (queued < HandOvers) {
        const std::uint32_t workers = 1U << dice.UpTo(7);
        ThreadPool pool(workers, nullptr);
        ASSERT_TRUE(pool.IsCreated());
        for (std::uint32_t i = 0; i < workers; ++i) {
            pool.AddJob(workers - 1 - i, std::make_shared<CountedJob>(counts));
        }
        queued += static_cast<int>(workers);
        ++pools;
        ASSERT_TRUE(SpinUntil([&] { return counts.ran == queued; }))
            << "pool " << pools << " of " << workers << ": " << queued - counts.ran << " lost, "
            << counts.givenUp << " given up";
    }
    EXPECT_EQ(counts.givenUp, 0);
    figures.Print("%d pools started, %d jobs handed over, none lost", pools, queued);
}

TEST_F(HandOverStressTest, RunsTheJobThatIsQueuedAtTheMomentItsWorkerGoesIdle) {
    ThreadPool pool(1, nullptr);
    for (int queued = 1; queued <= HandOvers; ++queued) {
        pool.AddJob(0, std::make_shared<CountedJob>(counts));
        ASSERT_TRUE(SpinUntil([&] { return counts.ran == queued; }))
            << "job " << queued << ": " << counts.givenUp << " given up";
        Spin(dice.UpTo(200));
    }
    EXPECT_EQ(counts.givenUp, 0);
    figures.Print("%d jobs handed over one by one, none lost", HandOvers);
}

}  // namespace kennly::test
