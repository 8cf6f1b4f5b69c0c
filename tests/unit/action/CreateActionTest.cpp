#include "action/CreateAction.h"

#include <gtest/gtest.h>

#include <limits>
#include <typeinfo>

#include "action/DogExecuteAction.h"
#include "job/ResultCode.h"

namespace kennly::test {

TEST(CreateActionTest, MakesACommandRemedyForBothCodes) {
    for (const std::int32_t type : {1, 2}) {
        SCOPED_TRACE(type);
        const auto remedy = CreateAction(type);

        EXPECT_NE(dynamic_cast<const DogExecuteAction*>(remedy.get()), nullptr);
    }
}

TEST(CreateActionTest, MakesAPlainRemedyForEveryOtherCode) {
    for (const std::int32_t type : {0, -1, 3, 1000, std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::int32_t>::max()}) {
        SCOPED_TRACE(type);
        const auto remedy = CreateAction(type);

        DogAction& made = *remedy;
        EXPECT_EQ(typeid(made), typeid(DogAction));
        EXPECT_EQ(made.DoAction(), ResultNotEvaluated);
    }
}

TEST(CreateActionTest, LeavesTheFieldsAtTheirDefaults) {
    for (std::int32_t type = 0; type <= 3; ++type) {
        SCOPED_TRACE(type);
        const auto remedy = CreateAction(type);

        EXPECT_EQ(remedy->jobName, "");
        EXPECT_EQ(remedy->type, 0);
        EXPECT_EQ(remedy->delay, 10);
        EXPECT_TRUE(remedy->blockAction.empty());
        EXPECT_TRUE(remedy->params.empty());
    }
}

}  // namespace kennly::test
