#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <stdexcept>
#include <string>

#include "config/FileTime.h"
#include "job/ResultCode.h"
#include "support/RecordedLog.h"
#include "watch/DogCheckForFileChangeWatch.h"
#include "watch/DogCheckForNoFileChangeWatch.h"

namespace {

std::function<void()> throwIt;
int looks = 0;

}  // namespace

namespace kennly {

bool GetFileTime(const std::string& /*path*/, std::int32_t& /*seconds*/) {
    ++looks;
    throwIt();
    return true;
}

}  // namespace kennly

namespace kennly::test {

using ::testing::IsEmpty;

class ThrowingFileTimeTest : public ::testing::Test {
protected:
    ThrowingFileTimeTest() {
        looks = 0;
        ForgetLog();
    }

    /// Evaluates the check once for each kind of exception.
    static void ExpectSilenceWithoutVerdict(DogWatch& check, const std::list<std::string>& params) {
        check.jobName = "web";
        check.params = params;
        throwIt = [] {
            throw std::runtime_error("unforeseen");
        };
        EXPECT_EQ(check.DoWatch(), ResultNotEvaluated);
        throwIt = [] {
            throw 42;
        };
        EXPECT_EQ(check.DoWatch(), ResultNotEvaluated);

        EXPECT_EQ(looks, 2);
        EXPECT_TRUE(check.firstCall);
        EXPECT_THAT(RecordedLines(), IsEmpty());
    }
};

TEST_F(ThrowingFileTimeTest, LeavesTheFileChangeCheckWithoutAVerdict) {
    DogCheckForFileChangeWatch check;
    ExpectSilenceWithoutVerdict(check, {"watched"});
    EXPECT_EQ(check.lastFileTime, NoFileTime);
}

TEST_F(ThrowingFileTimeTest, LeavesTheNoFileChangeCheckWithoutAVerdict) {
    DogCheckForNoFileChangeWatch check;
    ExpectSilenceWithoutVerdict(check, {"watched", "60"});
    EXPECT_EQ(check.lastFileTime, NoFileTime);
}

}  // namespace kennly::test
