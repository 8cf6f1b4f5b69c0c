#include <numeric>

#include "support/Lanes.h"
#include "system/FaultFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

/// A pool of three jobs has nine threads.
class ThreadFailureTest : public FaultTest {
public:
    /// Nine numbers.
    static std::vector<int> From(int first) {
        std::vector<int> numbers(9);
        std::iota(numbers.begin(), numbers.end(), first);
        return numbers;
    }

    /// Has the nth thread since the start fail to start.
    void StartWithFailingThread(int nth) {
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS},
                             {"FAILING_THREAD", std::to_string(nth)}};
        StartDaemon({"-f"}, start);
    }

    bool WaitForBeats(int count) const {
        while (count > 0 && WaitForHeartbeat(TimeOf(ChildHeartbeat))) {
            --count;
        }
        return count == 0;
    }

    /// Expects no job and no thread but the heartbeat's, until there is another configuration.
    void ExpectFailureAndRecovery(const std::string& failed) {
        const std::string line = Error("Error creating Thread Pool");
        ASSERT_TRUE(WaitForLine(line));
        EXPECT_TRUE(WaitForThreadsOf(0));
        EXPECT_TRUE(WaitForBeats(3));
        EXPECT_TRUE(NoneOfThree(failed));

        ExpectRecovery();

        EXPECT_TRUE(WaitForThreadsOf(3));
        StopDaemon();
        EXPECT_THAT(Lines(), ElementsAre(line, Exit(0)));
    }

    using FaultTest::ConfigureThree;
    using FaultTest::WaitForThree;
};

TEST_F(ThreadFailureTest, OfAnyAtTheStartLeavesNoJobUntilTheNextConfiguration) {
    RunAtOnce<ThreadFailureTest>(From(1), [](ThreadFailureTest& lane, int nth) {
        lane.ConfigureThree("failed");
        lane.StartWithFailingThread(nth);
        lane.ExpectFailureAndRecovery("failed");
    });
}

TEST_F(ThreadFailureTest, OfAnyAtAReloadLeavesNoJobUntilTheNextConfiguration) {
    RunAtOnce<ThreadFailureTest>(From(10), [](ThreadFailureTest& lane, int nth) {
        lane.ConfigureThree("old");
        lane.StartWithFailingThread(nth);
        EXPECT_TRUE(lane.WaitForThree("old"));
        lane.ConfigureThree("failed");
        lane.ExpectFailureAndRecovery("failed");
    });
}

}  // namespace kennly::test
