#include "watch/DogCheckForNoFileChangeWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <limits>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "support/FileTimeRecord.h"
#include "support/ObservedOpening.h"
#include "support/RecordedLog.h"
#include "support/TemporaryDirectory.h"

namespace {

// What time() says.
struct Calendar {
    long long now = 0;
    int readings = 0;
} calendar;

}  // namespace

extern "C" {

std::time_t __wrap_time(std::time_t* copy);

std::time_t __wrap_time(std::time_t* copy) {
    ++calendar.readings;
    const auto now = static_cast<std::time_t>(calendar.now);
    if (copy != nullptr) {
        *copy = now;
    }
    return now;
}
}

namespace kennly::test {

using ::testing::IsEmpty;

constexpr long long Noon = 1700000000;
constexpr std::int32_t Highest = std::numeric_limits<std::int32_t>::max();

class DogCheckForNoFileChangeWatchTest : public ::testing::Test {
protected:
    DogCheckForNoFileChangeWatchTest() {
        calendar = {};
        opening = {};
        ForgetLog();
        check.jobName = "web";
        AllowAge("120");
        TouchAt(Noon);
    }

    ~DogCheckForNoFileChangeWatchTest() override {
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happens
    }

    void AllowAge(const std::string& limit) { check.params = {directory.Path("watched"), limit}; }

    /// Gives the watched file a modification time. False when the file system cannot store it.
    bool TouchAt(long long seconds) const {
        directory.Write("watched", "");
        return directory.SetTime("watched", static_cast<std::time_t>(seconds));
    }

    std::int32_t LookAt(long long now) {
        calendar.now = now;
        return check.DoWatch();
    }

    /// Lets the check take note of the file's time, `time`, and expects that it then allows an age
    /// of `limit` seconds and not one more.
    void ExpectLimit(long long time, long long limit) {
        check.lastFileTime = NoFileTime;
        EXPECT_EQ(LookAt(time), ResultHealthy);
        calendar.readings = 0;
        EXPECT_EQ(LookAt(time + limit), ResultHealthy);
        EXPECT_EQ(LookAt(time + limit + 1), ResultFailed);
        EXPECT_EQ(calendar.readings, 2);
    }

    const TemporaryDirectory directory;
    DogCheckForNoFileChangeWatch check;
};

TEST_F(DogCheckForNoFileChangeWatchTest, BeginsWithoutATime) {
    EXPECT_EQ(check.lastFileTime, NoFileTime);
    EXPECT_TRUE(check.firstCall);
    EXPECT_EQ(check.type, 0);
    EXPECT_EQ(check.delay, 0);
}

TEST_F(DogCheckForNoFileChangeWatchTest, OnlyTakesNoteAtTheFirstLook) {
    EXPECT_EQ(LookAt(Noon + 100000), ResultHealthy);

    EXPECT_EQ(check.lastFileTime, Noon);
    EXPECT_EQ(LookAt(Noon + 100000), ResultFailed);
}

TEST_F(DogCheckForNoFileChangeWatchTest, FailsOnceTheAgeIsGreaterThanTheLimit) {
    for (const long long age : {60, 60, 61, 119, 120}) {
        SCOPED_TRACE(age);
        EXPECT_EQ(LookAt(Noon + age), ResultHealthy);
    }

    EXPECT_EQ(LookAt(Noon + 121), ResultFailed);
}

TEST_F(DogCheckForNoFileChangeWatchTest, KeepsFailingUntilTheFileIsTouched) {
    LookAt(Noon);
    for (const long long age : {121, 121, 122, 1000, 1000000}) {
        SCOPED_TRACE(age);
        EXPECT_EQ(LookAt(Noon + age), ResultFailed);
    }

    TouchAt(Noon + 1000000);

    EXPECT_EQ(LookAt(Noon + 1000001), ResultHealthy);
    EXPECT_EQ(LookAt(Noon + 1000120), ResultHealthy);
    EXPECT_EQ(LookAt(Noon + 1000121), ResultFailed);
}

TEST_F(DogCheckForNoFileChangeWatchTest, PassesOnceForAnyOtherTimeAndGoesByThatFromThenOn) {
    LookAt(Noon);
    for (const long long time : {Noon + 1, Noon - 1000, 0LL, -1LL}) {
        SCOPED_TRACE(time);
        TouchAt(time);

        EXPECT_EQ(LookAt(Noon + 1000), ResultHealthy);

        EXPECT_EQ(check.lastFileTime, time);
        EXPECT_EQ(LookAt(Noon + 1000), ResultFailed);
    }
}

TEST_F(DogCheckForNoFileChangeWatchTest, IsHealthyForATimeInTheFuture) {
    AllowAge("1");
    LookAt(Noon - 1);
    for (const long long ahead : {1LL, 2LL, 3600LL, Noon}) {
        SCOPED_TRACE(ahead);
        EXPECT_EQ(LookAt(Noon - ahead), ResultHealthy);
    }
}

TEST_F(DogCheckForNoFileChangeWatchTest, ReadsTheLimitAsANumberOfAtLeastOne) {
    const std::vector<std::pair<std::string, long long>> rows = {
        {"", 120},
        {"0", 1},
        {"1", 1},
        {"2", 2},
        {"-1", 1},
        {"-86400", 1},
        {"soon", 1},
        {" ", 1},
        {"m5", 1},
        {"5m", 5},
        {" 60", 60},
        {"+60", 60},
        {"007", 7},
        {"0x10", 1},
        {"1e3", 1},
        {"10.9", 10},
        {"60 70", 60},
        {"86400", 86400},
        {"-99999999999999999999", 1},
    };
    for (const auto& [text, limit] : rows) {
        SCOPED_TRACE("\"" + text + "\"");
        AllowAge(text);

        ExpectLimit(Noon, limit);
    }
}

TEST_F(DogCheckForNoFileChangeWatchTest, TakesALimitThatIsTooLargeForTheLargest) {
    ASSERT_TRUE(TouchAt(0));
    for (const char* const text : {"2147483647", "2147483648", "4294967297", "9223372036854775808",
                                   "99999999999999999999"}) {
        SCOPED_TRACE(text);
        AllowAge(text);
        check.lastFileTime = 0;

        EXPECT_EQ(LookAt(Highest), ResultHealthy);
    }
    AllowAge("2147483646");
    EXPECT_EQ(LookAt(Highest), ResultFailed);
    EXPECT_GT(calendar.readings, 0);
}

TEST_F(DogCheckForNoFileChangeWatchTest, MeasuresAgesAcrossTheEndsOf32BitTimes) {
    for (const long long time : {TwoTo31 - 100000, TwoTo31 - 60, TwoTo31 - 1, TwoTo31, TwoTo31 + 5,
                                 TwoTo32 - 60, TwoTo32 - 1, TwoTo32, TwoTo32 + 5}) {
        SCOPED_TRACE(time);
        if (!TouchAt(time)) {
            GTEST_SKIP() << "the file system cannot store the time " << time;
        }
        AllowAge("60");
        ExpectLimit(time, 60);
        AllowAge("100000");
        ExpectLimit(time, 100000);
    }
}

TEST_F(DogCheckForNoFileChangeWatchTest, TakesAnAgeOf68YearsForTheFuture) {
    ASSERT_TRUE(TouchAt(0));
    LookAt(0);

    EXPECT_EQ(LookAt(TwoTo31 - 1), ResultFailed);
    EXPECT_EQ(LookAt(TwoTo31), ResultHealthy);
    EXPECT_EQ(LookAt(TwoTo32 + 120), ResultHealthy);
    EXPECT_EQ(LookAt(TwoTo32 + 121), ResultFailed);
}

TEST_F(DogCheckForNoFileChangeWatchTest, TakesExactlyTwoParametersAndAPath) {
    const std::string path = directory.Path("watched");
    LookAt(Noon);
    const std::vector<std::list<std::string>> rows = {
        {}, {path}, {path, "1", "1"}, {path, "", ""}, {"", "1"}, {"", ""}};
    for (const std::list<std::string>& params : rows) {
        SCOPED_TRACE(::testing::PrintToString(params));
        check.params = params;

        EXPECT_EQ(LookAt(Noon + 1000), ResultNotEvaluated);

        EXPECT_EQ(check.lastFileTime, Noon);
    }
}

TEST_F(DogCheckForNoFileChangeWatchTest, IsHealthyAndUnmovedWhileTheFileCannotBeExamined) {
    std::filesystem::create_symlink("nowhere", directory.Path("dangling"));
    LookAt(Noon);
    for (const char* const name : {"missing", "dangling", "watched/below"}) {
        SCOPED_TRACE(name);
        check.params.front() = directory.Path(name);

        EXPECT_EQ(LookAt(Noon + 1000), ResultHealthy);
        EXPECT_EQ(LookAt(Noon + 1000), ResultHealthy);

        EXPECT_EQ(check.lastFileTime, Noon);
    }
}

TEST_F(DogCheckForNoFileChangeWatchTest, RemembersAFileThatHasGone) {
    LookAt(Noon);
    std::filesystem::remove(directory.Path("watched"));
    EXPECT_EQ(LookAt(Noon + 1000), ResultHealthy);

    TouchAt(Noon);

    EXPECT_EQ(LookAt(Noon + 1000), ResultFailed);
}

TEST_F(DogCheckForNoFileChangeWatchTest, WatchesWhatIsNoRegularFileToo) {
    std::filesystem::create_directory(directory.Path("below"));
    ASSERT_EQ(mkfifo(directory.Path("fifo").c_str(), 0666), 0);
    for (const char* const name : {"below", "fifo"}) {  // a FIFO that is opened would block
        SCOPED_TRACE(name);
        check.params.front() = directory.Path(name);
        ASSERT_TRUE(directory.SetTime(name, Noon));

        ExpectLimit(Noon, 120);
    }
}

TEST_F(DogCheckForNoFileChangeWatchTest, KeepsNoRecord) {
    std::filesystem::create_directory(directory.Path("filetimes"));
    directory.Write("filetimes/web", "no");
    std::snprintf(configDir, sizeof(configDir), "%s", directory.Path("").c_str());
    opening.observed = true;
    {
        DogCheckForNoFileChangeWatch another;
        another.jobName = "web";
        another.params = check.params;
        another.DoWatch();
        EXPECT_EQ(another.lastFileTime, Noon);
        EXPECT_TRUE(another.firstCall);
    }
    opening.observed = false;
    configDir[0] = '\0';

    EXPECT_THAT(opening.files, IsEmpty());
    EXPECT_EQ(directory.Read("filetimes/web"), "no");
}

}  // namespace kennly::test
