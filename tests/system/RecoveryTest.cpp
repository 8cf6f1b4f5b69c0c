#include "system/RecoveryFixture.h"

namespace kennly::test {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

using RecoveryTest = RecoveryFixture;

TEST_F(RecoveryTest, BringsBackWhicheverProcessIsKilledTenTimesInARow) {
    StartTrees({"-w"}, BothTrees);
    int round = 0;
    for (const char* const victim : {"C ", "P ", "WC", "WP", "C ", "WC", "P ", "WP", "C ", "P "}) {
        SCOPED_TRACE("round " + std::to_string(++round) + ", victim " + victim);

        ASSERT_NO_FATAL_FAILURE(ExpectTreeReplacedAfter(SIGKILL, victim));
    }
    StopTrees();
    EXPECT_THAT(Lines(), Not(Contains(HasSubstr(".err "))));
}

}  // namespace kennly::test
