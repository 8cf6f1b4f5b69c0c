#include <thread>

#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

/// Children that do not end when they are asked to.
class StubbornChildTest : public BackgroundTest {
protected:
    static constexpr double Grace = 9.5;       // what a child gets at least, in seconds
    static constexpr double LongGrace = 14.0;  // and at most

    void StopTheChildOf(const std::string& child) {
        SendTo(child, SIGSTOP);
        ASSERT_TRUE(WaitUntil([&] { return StatusField(Role(child).outside, "State")[0] == 'T'; },
                              Generous));
    }
};

TEST_F(StubbornChildTest, IsKilledAfterTenSeconds) {
    StartTrees({"-w"}, BothTrees);
    StopTheChildOf("C ");
    StopTheChildOf("WC");

    const auto asked = Clock::now();
    SendTo("P ", SIGTERM);
    SendTo("WP", SIGTERM);

    for (const std::string of : {"P ", "WP"}) {
        SCOPED_TRACE(of);
        const double seconds = SecondsBetween(asked, EndOf(of));
        EXPECT_GT(seconds, Grace);
        EXPECT_LT(seconds, Allowing(LongGrace));
    }
    EXPECT_TRUE(WaitUntilOnly({}));
    EXPECT_THAT(Lines(), UnorderedElementsAre(ExitOf("P "), ExitOf("WP")));
}

TEST_F(StubbornChildTest, GetsItsTimeHoweverOftenTheParentIsAsked) {
    StartTrees({}, MainTree);
    StopTheChildOf("C ");

    const auto asked = Clock::now();
    SendTo("P ", SIGTERM);
    while (ArrivalsOf(ExitOf("P ")).empty() &&
           SecondsBetween(asked, Clock::now()) < Allowing(LongGrace)) {
        kill(Role("P ").outside, SIGTERM);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }

    const double seconds = SecondsBetween(asked, EndOf("P "));
    EXPECT_GT(seconds, Grace);
    EXPECT_LT(seconds, Allowing(LongGrace));
    EXPECT_TRUE(WaitUntilOnly({}));
    EXPECT_THAT(Lines(), ElementsAre(ExitOf("P ")));
}

TEST_F(StubbornChildTest, MayStillEndInOrderWithinItsTime) {
    StartTrees({}, MainTree);
    StopTheChildOf("C ");
    SendTo("P ", SIGTERM);
    ASSERT_FALSE(WaitForLine(ExitOf("P "), 1, std::chrono::seconds(4)));

    SendTo("C ", SIGCONT);

    EXPECT_TRUE(WaitForLine(ExitOf("C "), 1, Prompt));
    EXPECT_TRUE(WaitForLine(ExitOf("P "), 1, Prompt));
    EXPECT_TRUE(WaitUntilOnly({}));
    EXPECT_THAT(Lines(), ElementsAre(ExitOf("C "), ExitOf("P ")));
}

}  // namespace kennly::test
