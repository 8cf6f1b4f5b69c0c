#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// Failures while the program starts.
class TreeFailureTest : public BackgroundTest {
protected:
    /// Has one call fail in every process of the program.
    static StartOptions With(const std::string& variable, const std::string& value) {
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {variable, value}};
        return start;
    }
    static StartOptions FailingFork(int nth) { return With("FAILING_FORK", std::to_string(nth)); }
    static StartOptions FailingExecution(const std::string& option) {
        return With("FAILING_EXECV", option);
    }

    /// Takes the number of the one process that has written lines. It is not that of `others`.
    void TakeNumberFromLines(const std::vector<std::string>& others) {
        ASSERT_TRUE(WaitForLines(2));
        number = NumberIn(Lines().front());
        EXPECT_THAT(number, ::testing::MatchesRegex("[0-9]+"));
        EXPECT_THAT(others, ::testing::Not(::testing::Contains(number)));
    }

    /// What a tree is started with, and what its parent leaves.
    struct Tree {
        std::vector<std::string> options;
        const char* tag;
        const char* heartbeat;
    };
    static inline const std::vector<Tree> Trees = {{{}, "P ", "parent"},
                                                   {{"-W"}, "WP", "watcherparent"}};
};

TEST_F(TreeFailureTest, OfTheFirstForkEndsTheFirstProcess) {
    struct Row {
        std::vector<std::string> options;
        const char* tag;
    };
    for (const Row& row : {Row{{"-w"}, "P "}, Row{{"-W"}, "WP"}}) {
        SCOPED_TRACE(row.tag);
        SetUp();
        tag = row.tag;

        EXPECT_EQ(RunToItsEnd(row.options, FailingFork(1)), 1);

        EXPECT_TRUE(WaitForLine(Exit(1)));
        EXPECT_THAT(Lines(), ElementsAre(Error("main - cannot fork"), Exit(1)));
        EXPECT_THAT(Heartbeats(), IsEmpty());
        EXPECT_TRUE(WaitUntilOnly({}));
    }
}

TEST_F(TreeFailureTest, OfTheForkOfTheWatcherEndsTheParentBeforeItHasAChild) {
    tag = "P ";

    EXPECT_EQ(RunToItsEnd({"-w"}, FailingFork(2)), 0);

    const std::string first = number;
    TakeNumberFromLines({first});
    EXPECT_THAT(Lines(), ElementsAre(Error("create_watchdogwatcher - cannot fork"), Exit(1)));
    EXPECT_TRUE(WaitUntilOnly({}));
    EXPECT_THAT(Heartbeats(), ElementsAre("parent"));
}

TEST_F(TreeFailureTest, OfTheForkOfTheChildEndsTheParentWithoutAFailureStatus) {
    for (const Tree& tree : Trees) {
        SCOPED_TRACE(tree.tag);
        SetUp();
        tag = tree.tag;

        EXPECT_EQ(RunToItsEnd(tree.options, FailingFork(2)), 0);

        const std::string first = number;
        TakeNumberFromLines({first});
        EXPECT_THAT(Lines(), ElementsAre(Error("createchildprocess - cannot fork"), Exit(0)));
        EXPECT_TRUE(WaitUntilOnly({}));
        EXPECT_THAT(Heartbeats(), ElementsAre(tree.heartbeat));
    }
}

TEST_F(TreeFailureTest, OfTheForkOfTheChildLeavesTheWatcherAlone) {
    tag = "P ";

    StartTrees({"-w"}, WatcherTree, FailingFork(3));

    TakeNumberFromLines({Role("WP").number, Role("WC").number});
    EXPECT_THAT(Lines(), ElementsAre(Error("createchildprocess - cannot fork"), Exit(0)));
    EXPECT_TRUE(WaitUntilOnly(WatcherTree));
    EXPECT_TRUE(WaitForBeatsOf(WatcherTree));
}

TEST_F(TreeFailureTest, OfTheExecutionOfTheWatcherLeavesTheMainTreeAlone) {
    tag = "P ";

    StartTrees({"-w"}, MainTree, FailingExecution("-W"));

    TakeNumberFromLines({Role("P ").number, Role("C ").number});
    EXPECT_THAT(Lines(), ElementsAre(Error("create_watchdogwatcher - cannot execv"), Exit(1)));
    EXPECT_TRUE(WaitUntilOnly(MainTree));
    EXPECT_TRUE(WaitForBeatsOf(MainTree));
    EXPECT_THAT(Heartbeats(), ElementsAre("child", "parent"));
}

TEST_F(TreeFailureTest, OfTheExecutionOfTheChildLeavesTheParentAlone) {
    for (const Tree& tree : Trees) {
        SCOPED_TRACE(tree.tag);
        SetUp();
        tag = tree.tag;

        StartTrees(tree.options, {tag}, FailingExecution("-Z"));

        TakeNumberFromLines({Role(tag).number});
        EXPECT_THAT(Lines(), ElementsAre(Error("createchildprocess - cannot execv"), Exit(1)));
        EXPECT_TRUE(WaitUntilOnly({tag}));
        EXPECT_TRUE(WaitForBeatsOf({tag}));
        EXPECT_THAT(Heartbeats(), ElementsAre(tree.heartbeat));
        StopTrees();
        EXPECT_TRUE(WaitForLine(ExitOf(tag)));
    }
}

}  // namespace kennly::test
