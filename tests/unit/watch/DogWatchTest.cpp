#include "watch/DogWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "job/ResultCode.h"
#include "support/RecordedLog.h"

namespace kennly::test {

using ::testing::IsEmpty;

// For every class derived from it as well.
static_assert(std::is_nothrow_destructible_v<DogWatch>);

TEST(DogWatchTest, BeginsEmptyAndBeforeItsFirstCall) {
    const DogWatch check;

    EXPECT_EQ(check.jobName, "");
    EXPECT_EQ(check.type, 0);
    EXPECT_EQ(check.delay, 0);
    EXPECT_THAT(check.params, IsEmpty());
    EXPECT_TRUE(check.firstCall);
}

TEST(DogWatchTest, NeverReachesAVerdict) {
    ForgetLog();
    DogWatch check;
    check.jobName = "web";
    check.params = {"true"};

    EXPECT_EQ(check.DoWatch(), ResultNotEvaluated);
    EXPECT_EQ(check.DoWatch(), ResultNotEvaluated);

    EXPECT_TRUE(check.firstCall);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST(DogWatchTest, HasCodesForTheFiveKindsAndTheUnknown) {
    EXPECT_EQ(CheckTypeUnknown, 0);
    EXPECT_EQ(CheckTypeCommandResult, 1);
    EXPECT_EQ(CheckTypeFileChange, 2);
    EXPECT_EQ(CheckTypeNoFileChange, 3);
    EXPECT_EQ(CheckTypeSocketListening, 4);
    EXPECT_EQ(CheckTypeListeningSocketResponse, 5);
}

TEST(DogWatchTest, HasNumbersForTheThreeResults) {
    EXPECT_EQ(ResultHealthy, 1);
    EXPECT_EQ(ResultFailed, 0);
    EXPECT_EQ(ResultNotEvaluated, -1);
}

}  // namespace kennly::test
