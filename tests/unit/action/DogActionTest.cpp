#include "action/DogAction.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "job/ResultCode.h"
#include "support/RecordedLog.h"

namespace kennly::test {

using ::testing::IsEmpty;

// For every class derived from it as well.
static_assert(std::is_nothrow_destructible_v<DogAction>);

TEST(DogActionTest, BeginsEmptyWithADelayOfTenSeconds) {
    const DogAction remedy;

    EXPECT_EQ(remedy.jobName, "");
    EXPECT_EQ(remedy.type, 0);
    EXPECT_EQ(remedy.blockAction, "");
    EXPECT_EQ(remedy.blockAction2, "");
    EXPECT_EQ(remedy.blockAction3, "");
    EXPECT_EQ(remedy.delay, 10);
    EXPECT_THAT(remedy.params, IsEmpty());
}

TEST(DogActionTest, NeverDoesAnything) {
    ForgetLog();
    DogAction remedy;
    remedy.jobName = "web";
    remedy.type = RemedyTypeExecute;
    remedy.params = {"true"};

    EXPECT_EQ(remedy.DoAction(), ResultNotEvaluated);

    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST(DogActionTest, HasCodesForTheTwoKindsAndTheUnknown) {
    EXPECT_EQ(RemedyTypeUnknown, 0);
    EXPECT_EQ(RemedyTypeExecute, 1);
    EXPECT_EQ(RemedyTypeExecuteAlways, 2);
}

}  // namespace kennly::test
