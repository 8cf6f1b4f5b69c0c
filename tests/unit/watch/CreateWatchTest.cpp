#include "watch/CreateWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <typeinfo>

#include "job/ResultCode.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly::test {

TEST(CreateWatchTest, MakesACommandCheckForItsCode) {
    const auto check = CreateWatch(1);

    const auto* const command = dynamic_cast<const DogCheckCommandWatch*>(check.get());
    ASSERT_NE(command, nullptr);
    EXPECT_TRUE(command->anyNonZeroFails);
}

TEST(CreateWatchTest, MakesAPlainCheckForCodesThatStandForNoKind) {
    for (const std::int32_t type : {0, -1, 6, 1000, std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::int32_t>::max()}) {
        SCOPED_TRACE(type);
        const auto check = CreateWatch(type);

        DogWatch& made = *check;
        EXPECT_EQ(typeid(made), typeid(DogWatch));
        EXPECT_EQ(made.DoWatch(), ResultNotEvaluated);
    }
}

TEST(CreateWatchTest, MakesChecksThatReachNoVerdictForSockets) {
    for (const std::int32_t type : {CheckTypeSocketListening, CheckTypeListeningSocketResponse}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(CreateWatch(type)->DoWatch(), ResultNotEvaluated);
    }
}

TEST(CreateWatchTest, LeavesTheFieldsAtTheirDefaults) {
    for (std::int32_t type = 0; type <= 6; ++type) {
        SCOPED_TRACE(type);
        const auto check = CreateWatch(type);

        EXPECT_EQ(check->jobName, "");
        EXPECT_EQ(check->type, 0);
        EXPECT_EQ(check->delay, 0);
        EXPECT_TRUE(check->params.empty());
        EXPECT_TRUE(check->firstCall);
    }
}

}  // namespace kennly::test
