#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

/// Parents that are killed while their children are on the way.
class LostParentTest : public BackgroundTest {
protected:
    /// The parent, once its only child has that tag; an orphan, as the first process has ended.
    std::optional<DaemonProcess> ParentOf(const std::string& childTag) const {
        const auto parents = ChildrenOf(*sandbox, NumberInside(sandbox->FirstProcess()));
        if (parents.size() != 1 || parents[0].Tag() != "P ") {
            return std::nullopt;
        }
        const auto children = ChildrenOf(*sandbox, parents[0].number);
        const bool found = children.size() == 1 && children[0].Tag() == childTag;
        return found ? std::optional<DaemonProcess>(parents[0]) : std::nullopt;
    }

    void KillParentOf(const std::string& childTag) {
        ASSERT_EQ(EndOfDaemon(), std::optional<int>(0));
        std::optional<DaemonProcess> parent;
        const auto isFound = [&] {
            parent = ParentOf(childTag);
            return parent.has_value();
        };
        ASSERT_TRUE(WaitUntil(isFound, Generous));
        ASSERT_EQ(kill(parent->outside, SIGKILL), 0);
    }
};

TEST_F(LostParentTest, EndsItsChildInOrderHoweverFarThatHasCome) {
    struct Row {
        const char* slowCall;  // in which the child is when its parent dies
        const char* childTag;
    };
    const std::vector<Row> rows = {
        {"prctl", "P "}, {"getppid", "P "}, {"execv", "P "}, {"getppid", "C "}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.slowCall) + " as " + row.childTag);
        SetUp();
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {"SLOW_CALL", row.slowCall}};
        StartDaemon({}, start);

        KillParentOf(row.childTag);

        EXPECT_TRUE(WaitForLines(1));
        EXPECT_TRUE(WaitUntilOnly({}));
        EXPECT_THAT(LinesWithoutNumbers(), ElementsAre(ExitLine("", "C ", 0)));
        ASSERT_FALSE(HasFailure());
    }
}

}  // namespace kennly::test
