#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "main/ProcessState.h"
#include "pool/ThreadPool.h"
#include "stress/RandomDelays.h"
#include "stress/Stress.h"
#include "support/Dice.h"

namespace kennly::test {

namespace {

// What became of one job.
struct Fate {
    std::atomic<int> queued{0};
    std::atomic<int> ran{0};
    std::atomic<int> givenUp{0};
    std::atomic<int> destroyed{0};
};

using Fates = std::vector<Fate>;

class FatedJob : public ThreadPool::IJob {
public:
    FatedJob(bool waitable, Fate& fate) : IJob(waitable), fate_(fate) { ++fate_.queued; }
    ~FatedJob() override { ++fate_.destroyed; }
    FatedJob(const FatedJob&) = delete;
    FatedJob& operator=(const FatedJob&) = delete;

    void Run(std::uint32_t /*context*/) override { ++fate_.ran; }
    void GivenUp() noexcept override { ++fate_.givenUp; }

private:
    Fate& fate_;
};

// Queues the next of its kind on its own worker, until the fates are used up.
class ChainedJob : public FatedJob {
public:
    ChainedJob(ThreadPool& pool, std::uint32_t worker, Fates& fates, std::size_t number)
        : FatedJob(false, fates[number]),
          pool_(pool),
          worker_(worker),
          fates_(fates),
          number_(number) {}

    void Run(std::uint32_t context) override {
        FatedJob::Run(context);
        if (number_ + 1 < fates_.size()) {
            pool_.AddJob(worker_,
                         std::make_shared<ChainedJob>(pool_, worker_, fates_, number_ + 1));
        }
    }

private:
    ThreadPool& pool_;
    const std::uint32_t worker_;
    Fates& fates_;
    const std::size_t number_;
};

}  // namespace

class StopStressTest : public ::testing::Test {
protected:
    StopStressTest() { closingDown = false; }

    // Expects that each job that was queued was run or given up, once, and is no
    // more.
    void Settle(const Fates& fates) {
        for (const Fate& fate : fates) {
            EXPECT_EQ(fate.ran + fate.givenUp, fate.queued);
            EXPECT_EQ(fate.destroyed, fate.queued);
            ran += fate.ran;
            givenUp += fate.givenUp;
        }
    }

    Figures figures;
    Dice dice{Seed};
    RoundLimit limit;
    int ran = 0;
    int givenUp = 0;
};

TEST_F(StopStressTest, AWorkerThatIsStoppedAtAnyMomentEndsAndSettlesEveryJobOnce) {
    constexpr int rounds = Rounds(3000);
    constexpr std::uint32_t mostJobs = 100;
    int late = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        limit.Begin();
        Fates fates(1 + dice.UpTo(mostJobs));
        auto worker = ThreadPool::JobThread::StartNew(nullptr);
        ASSERT_NE(worker, nullptr);
        std::atomic<std::size_t> queued{0};
        std::thread submitter([&] {
            for (Fate& fate : fates) {
                worker->AddJob(std::make_shared<FatedJob>(queued % 2 == 0, fate));
                ++queued;
            }
        });
        // Stopped when a job was queued or has run, whichever it is, or a little
        // later.
        const std::size_t moment = dice.UpTo(static_cast<std::uint32_t>(fates.size()) - 1);
        const bool afterItsRun = round % 2 == 0;
        SpinUntil([&] { return afterItsRun ? fates[moment].ran > 0 : queued >= moment; });
        Spin(dice.UpTo(500));

        worker->Stop();
        late += queued < fates.size() ? 1 : 0;
        EXPECT_TRUE(worker->Join());

        submitter.join();
        worker.reset();
        Settle(fates);
    }
    EXPECT_GT(ran, 0);
    EXPECT_GT(givenUp, 0);
    figures.Print(
        "%d workers stopped, %d of them while jobs came in; %d jobs "
        "run, %d given up",
        rounds, late, ran, givenUp);
}

TEST_F(StopStressTest, APoolThatIsDestroyedAtAnyMomentSettlesEveryJobOnce) {
    constexpr int rounds = Rounds(1500);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        limit.Begin();
        const std::uint32_t workers = 1 + dice.UpTo(5);
        std::vector<Fates> fates(workers);
        std::vector<Fates> chained(workers);
        {
            ThreadPool pool(workers, nullptr);
            ASSERT_TRUE(pool.IsCreated());
            for (std::uint32_t i = 0; i < workers; ++i) {
                chained[i] = Fates(1 + dice.UpTo(100));
                fates[i] = Fates(dice.UpTo(20));
                pool.AddJob(i, std::make_shared<ChainedJob>(pool, i, chained[i], 0));
                for (Fate& fate : fates[i]) {
                    pool.AddJob(i, std::make_shared<FatedJob>(false, fate));
                }
            }
            Spin(dice.UpTo(20000));
            pool.Destroy();
        }
        for (std::uint32_t i = 0; i < workers; ++i) {
            Settle(fates[i]);
            Settle(chained[i]);
        }
    }
    EXPECT_GT(ran, 0);
    EXPECT_GT(givenUp, 0);
    figures.Print("%d pools destroyed; %d jobs run, %d given up", rounds, ran, givenUp);
}

}  // namespace kennly::test
