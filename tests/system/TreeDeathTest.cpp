#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::IsEmpty;

class TreeDeathTest : public BackgroundTest {
protected:
    void SetUp() override {
        BackgroundTest::SetUp();
        Configure(Configuration(Marker("main")), MainConfiguration);
        Configure(Configuration(Marker("watcher")), WatcherConfiguration);
    }

    /// Starts both trees. Their children are in the long pause that follows a load then.
    void StartBoth() {
        StartTrees({"-w"}, BothTrees);
        ASSERT_TRUE(WaitForLine(LoadedOf("C ", "main")));
        ASSERT_TRUE(WaitForLine(LoadedOf("WC", "watcher")));
    }

    static std::vector<std::string> AllBut(const std::vector<std::string>& left) {
        std::vector<std::string> others = BothTrees;
        for (const std::string& of : left) {
            others.erase(std::find(others.begin(), others.end(), of));
        }
        return others;
    }

    /// Kills a child: nothing happens but that it is gone.
    void ExpectNoSuccessorOf(const std::string& child) {
        StartBoth();
        const auto othersBefore = AllBut({child});
        const std::size_t linesBefore = Lines().size();

        SendTo(child, SIGKILL);

        EXPECT_TRUE(WaitUntilOnly(othersBefore));
        const std::int64_t last = TimeOf(HeartbeatOf.at(child));
        EXPECT_TRUE(WaitForBeatsOf(othersBefore));
        EXPECT_TRUE(WaitForBeatsOf(othersBefore));
        EXPECT_EQ(TimeOf(HeartbeatOf.at(child)), last);
        EXPECT_TRUE(WaitUntilOnly(othersBefore));
        EXPECT_EQ(Lines().size(), linesBefore);
    }

    /// Kills a parent: its child ends in order, at once, and the other tree lives on.
    void ExpectItsChildToEndWith(const std::string& parent, const std::string& child) {
        StartBoth();
        const std::size_t linesBefore = Lines().size();

        SendTo(parent, SIGKILL);

        EXPECT_TRUE(WaitForLine(ExitOf(child), 1, Prompt));
        EXPECT_TRUE(WaitUntilOnly(AllBut({parent, child})));
        EXPECT_TRUE(WaitForBeatsOf(AllBut({parent, child})));
        EXPECT_TRUE(WaitUntilOnly(AllBut({parent, child})));
        EXPECT_EQ(Lines().size(), linesBefore + 1);
    }
};

TEST_F(TreeDeathTest, OfTheChildLeavesAllOthersAsTheyAre) {
    ExpectNoSuccessorOf("C ");
}

TEST_F(TreeDeathTest, OfTheWatcherChildLeavesAllOthersAsTheyAre) {
    ExpectNoSuccessorOf("WC");
}

TEST_F(TreeDeathTest, OfTheParentEndsItsChildAlone) {
    ExpectItsChildToEndWith("P ", "C ");
}

TEST_F(TreeDeathTest, OfTheWatcherParentEndsItsChildAlone) {
    ExpectItsChildToEndWith("WP", "WC");
}

TEST_F(TreeDeathTest, InOrderOfAChildThatIsAskedToLeavesItsParentAsItIs) {
    StartBoth();

    SendTo("C ", SIGTERM);
    SendTo("WC", SIGTERM);

    EXPECT_TRUE(WaitForLine(ExitOf("C ")));
    EXPECT_TRUE(WaitForLine(ExitOf("WC")));
    EXPECT_TRUE(WaitUntilOnly({"P ", "WP"}));
    EXPECT_TRUE(WaitForBeatsOf({"P ", "WP"}));
    EXPECT_TRUE(WaitUntilOnly({"P ", "WP"}));
    EXPECT_THAT(ArrivalsOf(ExitOf("P ")), IsEmpty());
    EXPECT_THAT(ArrivalsOf(ExitOf("WP")), IsEmpty());
}

}  // namespace kennly::test
