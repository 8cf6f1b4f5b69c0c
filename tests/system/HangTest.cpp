#include "system/RecoveryFixture.h"

namespace kennly::test {

using ::testing::Contains;
using ::testing::Not;

using HangTest = RecoveryFixture;

TEST_F(HangTest, OfAChildIsEndedAndItsTreeReplaced) {
    StartTrees({"-w"}, BothTrees);
    const std::string exitOfParent = ExitOf("P ");
    const std::string exitOfChild = ExitOf("C ");

    ASSERT_NO_FATAL_FAILURE(ExpectTreeReplacedAfter(SIGSTOP, "C "));

    StopTrees();
    EXPECT_THAT(Lines(), Contains(exitOfParent));
    EXPECT_THAT(Lines(), Not(Contains(exitOfChild)));  // it was killed
}

TEST_F(HangTest, OfAParentIsEndedAndItsTreeReplaced) {
    StartTrees({"-w"}, BothTrees);
    const std::string exitOfParent = ExitOf("WP");

    ASSERT_NO_FATAL_FAILURE(ExpectTreeReplacedAfter(SIGSTOP, "WP"));

    StopTrees();
    EXPECT_THAT(Lines(), Not(Contains(exitOfParent)));
}

TEST_F(HangTest, OfAWholeTreeIsEndedAndTheTreeReplaced) {
    StartTrees({"-w"}, BothTrees);
    const std::string exitOfParent = ExitOf("P ");
    SendTo("P ", SIGSTOP);

    ASSERT_NO_FATAL_FAILURE(ExpectTreeReplacedAfter(SIGSTOP, "C "));

    StopTrees();
    EXPECT_THAT(Lines(), Not(Contains(exitOfParent)));
}

}  // namespace kennly::test
