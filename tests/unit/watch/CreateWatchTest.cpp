#include "watch/CreateWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

#include "job/ResultCode.h"
#include "watch/DogCheckCommandWatch.h"
#include "watch/DogCheckForFileChangeWatch.h"
#include "watch/DogCheckForNoFileChangeWatch.h"
#include "watch/DogCheckListeningSocketResponseWatch.h"
#include "watch/DogCheckSocketListeningWatch.h"

namespace kennly::test {

std::type_index ClassOf(const DogWatch& check) {
    return typeid(check);
}

TEST(CreateWatchTest, MakesTheClassOfEachCode) {
    const std::vector<std::pair<std::int32_t, std::type_index>> rows = {
        {1, typeid(DogCheckCommandWatch)},
        {2, typeid(DogCheckForFileChangeWatch)},
        {3, typeid(DogCheckForNoFileChangeWatch)},
        {4, typeid(DogCheckSocketListeningWatch)},
        {5, typeid(DogCheckListeningSocketResponseWatch)},
    };
    for (const auto& [type, expected] : rows) {
        SCOPED_TRACE(type);
        EXPECT_EQ(ClassOf(*CreateWatch(type)), expected);
    }
}

TEST(CreateWatchTest, MakesAPlainCheckForCodesThatStandForNoKind) {
    for (const std::int32_t type : {0, -1, 6, 1000, std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::int32_t>::max()}) {
        SCOPED_TRACE(type);
        const auto check = CreateWatch(type);

        EXPECT_EQ(ClassOf(*check), typeid(DogWatch));
        EXPECT_EQ(check->DoWatch(), ResultNotEvaluated);
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

TEST(CreateWatchTest, LeavesTheFieldsOfEachKindAtTheirDefaults) {
    const auto command = CreateWatch(CheckTypeCommandResult);
    const auto change = CreateWatch(CheckTypeFileChange);
    const auto noChange = CreateWatch(CheckTypeNoFileChange);

    EXPECT_TRUE(dynamic_cast<const DogCheckCommandWatch&>(*command).anyNonZeroFails);
    EXPECT_EQ(dynamic_cast<const DogCheckForFileChangeWatch&>(*change).lastFileTime, NoFileTime);
    EXPECT_EQ(dynamic_cast<const DogCheckForNoFileChangeWatch&>(*noChange).lastFileTime,
              NoFileTime);
}

}  // namespace kennly::test
