#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "job/ResultCode.h"
#include "support/RecordedLog.h"
#include "watch/DogCheckListeningSocketResponseWatch.h"
#include "watch/DogCheckSocketListeningWatch.h"

namespace kennly::test {

using ::testing::IsEmpty;

template <class Watch>
class SocketWatchesTest : public ::testing::Test {};

using Watches =
    ::testing::Types<DogCheckSocketListeningWatch, DogCheckListeningSocketResponseWatch>;
TYPED_TEST_SUITE(SocketWatchesTest, Watches, );

TYPED_TEST(SocketWatchesTest, NeverReachAVerdictWhateverTheParameters) {
    ForgetLog();
    TypeParam check;
    check.jobName = "web";
    const std::list<std::list<std::string>> rows = {
        {}, {""}, {"80"}, {"localhost", "80"}, {"localhost", "80", "GET /", "200"}};
    for (const std::list<std::string>& params : rows) {
        SCOPED_TRACE(params.size());
        check.params = params;

        EXPECT_EQ(check.DoWatch(), ResultNotEvaluated);
        EXPECT_EQ(check.DoWatch(), ResultNotEvaluated);

        EXPECT_EQ(check.params, params);
    }
    EXPECT_TRUE(check.firstCall);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

}  // namespace kennly::test
