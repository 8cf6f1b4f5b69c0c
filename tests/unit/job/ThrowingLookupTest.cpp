#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <vector>

#include "action/ProcessAction.h"
#include "config/TheConfig.h"
#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "support/RecordedLog.h"
#include "watch/ProcessWatch.h"

namespace {

std::function<void()> throwIt;
std::vector<std::string> lookedUp;

}  // namespace

namespace kennly {

JobHandle FindConfiguredJob(const std::string& name) {
    lookedUp.push_back(name);
    throwIt();
    return nullptr;
}

}  // namespace kennly

namespace kennly::test {

using ::testing::ElementsAre;

class ThrowingLookupTest : public ::testing::Test {
protected:
    ThrowingLookupTest() {
        closingDown = false;
        tidyingThreadPool = false;
        lookedUp.clear();
        ForgetLog();
    }

    /// Lets `process` look the job "web" up once for each kind of exception.
    static void ExpectOneLineEach(std::int32_t (*process)(const std::string&),
                                  const std::string& line) {
        throwIt = [] {
            throw std::bad_alloc();
        };
        EXPECT_EQ(process("web"), ResultNotEvaluated);
        throwIt = [] {
            throw 42;
        };
        EXPECT_EQ(process("web"), ResultNotEvaluated);

        EXPECT_THAT(lookedUp, ElementsAre("web", "web"));
        EXPECT_THAT(RecordedLines(), ElementsAre(Error(line), Error(line)));
    }
};

TEST_F(ThrowingLookupTest, LeavesACheckUnevaluatedWithOneLine) {
    ExpectOneLineEach(ProcessWatch, "Exception while processing check for job: web");
}

TEST_F(ThrowingLookupTest, LeavesARemedyUnstartedWithOneLine) {
    ExpectOneLineEach(ProcessAction, "Exception processing remedy for job web");
}

}  // namespace kennly::test
