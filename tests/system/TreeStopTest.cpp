#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::UnorderedElementsAreArray;

class TreeStopTest : public BackgroundTest {
protected:
    /// Asks a parent to end when its pause has just begun, and returns the seconds until it has
    /// written its last line.
    double SecondsToStop(const std::string& parent) const {
        const std::string& heartbeat = HeartbeatOf.at(parent);
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(heartbeat), heartbeat));
        const auto asked = Clock::now();
        SendTo(parent, SIGTERM);
        return SecondsBetween(asked, EndOf(parent));
    }

    /// Whether most of a few measurements, each in a sandbox of its own, are below a limit; a busy
    /// machine may spoil some.
    template <class F>
    ::testing::AssertionResult MostAreBelow(double limit, F measurement) {
        constexpr int most = 3;  // of five
        std::vector<double> below;
        std::vector<double> others;
        while (below.size() < most && others.size() < most) {
            SetUp();
            const double seconds = measurement();
            (seconds < limit ? below : others).push_back(seconds);
        }
        return ::testing::AssertionResult(below.size() == most)
               << ::testing::PrintToString(others) << " beside " << ::testing::PrintToString(below);
    }
};

TEST_F(TreeStopTest, EndsTheChildAndThenTheParent) {
    struct Row {
        std::vector<std::string> options;
        std::vector<std::string> tags;
    };
    for (const Row& row : {Row{{}, MainTree}, Row{{"-W"}, WatcherTree}}) {
        SCOPED_TRACE(row.tags.front());
        SetUp();
        StartTrees(row.options, row.tags);

        SendTo(row.tags.front(), SIGTERM);

        EXPECT_LT(EndOf(row.tags.back()), EndOf(row.tags.front()));
        EXPECT_TRUE(WaitUntilOnly({}));
        EXPECT_THAT(Lines(), UnorderedElementsAreArray(ExitsOf(row.tags)));
    }
}

TEST_F(TreeStopTest, TakesAboutASecond) {
    EXPECT_TRUE(MostAreBelow(1.7, [this] {
        StartTrees({}, MainTree);
        const double seconds = SecondsToStop("P ");
        EXPECT_GT(seconds, 0.95);
        return seconds;
    }));
}

TEST_F(TreeStopTest, IsImmediateWhenTheChildHasEndedBefore) {
    EXPECT_TRUE(MostAreBelow(0.8, [this] {
        StartTrees({}, MainTree);
        SendTo("C ", SIGKILL);
        EXPECT_TRUE(WaitUntilOnly({"P "}));  // it has been reaped
        return SecondsToStop("P ");
    }));

    EXPECT_TRUE(WaitUntilOnly({}));
    EXPECT_THAT(Lines(), ::testing::ElementsAre(ExitOf("P ")));
}

TEST_F(TreeStopTest, IsOfOneTreeOnly) {
    const std::vector<std::vector<std::string>> orders = {{"P ", "WP"}, {"WP", "P "}};
    for (const std::vector<std::string>& order : orders) {
        SCOPED_TRACE(order.front());
        SetUp();
        StartTrees({"-w"}, BothTrees);

        SendTo(order.front(), SIGTERM);

        const auto& other = order.front() == "P " ? WatcherTree : MainTree;
        EXPECT_TRUE(WaitUntilOnly(other));
        EXPECT_TRUE(WaitForBeatsOf(other));
        EXPECT_TRUE(WaitUntilOnly(other));
        EXPECT_EQ(Lines().size(), 2U);
        SendTo(order.back(), SIGTERM);
        EXPECT_TRUE(WaitUntilOnly({}));
        EXPECT_TRUE(WaitForExitsOf(BothTrees));
        EXPECT_THAT(Lines(), UnorderedElementsAreArray(ExitsOf(BothTrees)));
    }
}

TEST_F(TreeStopTest, DoesNotWaitForCommandsThatRun) {
    Configure(Configuration(Job("web", Check(Note("check") + "; sleep 1000") + Remedy("true"))));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForTraces("check", 1));

    SendTo("P ", SIGTERM);

    EXPECT_TRUE(WaitForLine(ExitOf("C "), 1, Prompt));
    EXPECT_TRUE(WaitForLine(ExitOf("P "), 1, Prompt));
}

}  // namespace kennly::test
