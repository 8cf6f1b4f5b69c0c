#include "config/FileTime.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <limits>
#include <string>

#include "support/FileTimeRecord.h"
#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace kennly::test {

constexpr std::int32_t Lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t Highest = std::numeric_limits<std::int32_t>::max();

class FileTimeTest : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    const std::string path = directory.Write("file", "content");
};

TEST_F(FileTimeTest, IsTheModificationTimeInWholeSeconds) {
    ASSERT_TRUE(directory.SetTime("file", 1700000000, 999999999));
    std::int32_t seconds = -1;

    EXPECT_TRUE(GetFileTime(path, seconds));

    EXPECT_EQ(seconds, 1700000000);
}

TEST_F(FileTimeTest, KeepsTheLow32BitsOfEveryTime) {
    const struct {
        long long stored;
        std::int32_t expected;
    } rows[] = {
        {0, 0},
        {1, 1},
        {-1, -1},
        {-1160660271, NoFileTime},
        {2147483647, Highest},
        {2147483648, Lowest},
        {4294967295, -1},
        {4294967301, 5},
    };
    std::string notStored;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        if (!directory.SetTime("file", static_cast<std::time_t>(row.stored))) {
            notStored += " " + std::to_string(row.stored);
            // Every file system can store a time that is in 31 bits.
            EXPECT_TRUE(row.stored < 0 || row.stored > Highest);
            continue;
        }
        std::int32_t seconds = 77;

        EXPECT_TRUE(GetFileTime(path, seconds));

        EXPECT_EQ(seconds, row.expected);
    }
    if (!notStored.empty()) {
        GTEST_SKIP() << "the file system cannot store:" << notStored;
    }
}

TEST_F(FileTimeTest, IsKnownOfAFileOfMoreThan2GiB) {
    constexpr std::uintmax_t size = 5'000'000'000;  // of which nothing is stored
    std::filesystem::resize_file(path, size);
    ASSERT_EQ(std::filesystem::file_size(path), size);
    ASSERT_TRUE(directory.SetTime("file", 3000000));
    std::int32_t seconds = -1;

    EXPECT_TRUE(GetFileTime(path, seconds));

    EXPECT_EQ(seconds, 3000000);
}

TEST_F(FileTimeTest, FollowsSymbolicLinks) {
    ASSERT_TRUE(directory.SetTime("file", 1000000));
    std::filesystem::create_symlink(path, directory.Path("link"));
    std::int32_t seconds = -1;

    EXPECT_TRUE(GetFileTime(directory.Path("link"), seconds));

    EXPECT_EQ(seconds, 1000000);
}

TEST_F(FileTimeTest, ExaminesWhatIsNoRegularFileToo) {
    std::filesystem::create_directory(directory.Path("below"));
    ASSERT_TRUE(directory.SetTime("below", 2000000));
    std::int32_t seconds = -1;

    EXPECT_TRUE(GetFileTime(directory.Path("below"), seconds));

    EXPECT_EQ(seconds, 2000000);
}

TEST_F(FileTimeTest, IsZeroWhenTheFileCannotBeExamined) {
    std::filesystem::create_symlink(directory.Path("nowhere"), directory.Path("dangling"));
    for (const std::string& name :
         {directory.Path("missing"), directory.Path("dangling"), path + "/below", std::string()}) {
        SCOPED_TRACE(name);
        std::int32_t seconds = 77;

        EXPECT_FALSE(GetFileTime(name, seconds));

        EXPECT_EQ(seconds, 0);
    }
}

TEST_F(FileTimeTest, IsZeroWhenADirectoryOnThePathMayNotBeEntered) {
    std::filesystem::create_directory(directory.Path("closed"));
    const std::string inside = directory.Write("closed/file", "content");
    std::int32_t seconds = 0;
    ASSERT_TRUE(GetFileTime(inside, seconds));
    ASSERT_NE(seconds, 0);
    std::filesystem::permissions(directory.Path("closed"), std::filesystem::perms::none);
    std::filesystem::permissions(directory.Path(""), std::filesystem::perms::all);
    {
        const WithoutPrivileges anybody;

        EXPECT_FALSE(GetFileTime(inside, seconds));
    }

    EXPECT_EQ(seconds, 0);
    std::filesystem::permissions(directory.Path("closed"), std::filesystem::perms::owner_all);
}

TEST_F(FileTimeTest, TellsAgesBeforeAfterAndAcrossTheEndOf32BitTimes) {
    const struct {
        std::int32_t fileTime;
        std::time_t now;
        std::int32_t age;
    } rows[] = {
        {0, 0, 0},
        {1700000000, 1700000000, 0},
        {1700000000, 1700000061, 61},
        {1700000000, 1699999999, -1},
        {-100, 100, 200},
        {Highest, TwoTo31 - 1, 0},
        {Highest, TwoTo31, 1},
        {Highest - 59, TwoTo31 + 60, 120},
        {Lowest, TwoTo31, 0},
        {Lowest, TwoTo31 + 60, 60},
        {Lowest, TwoTo31 - 1, -1},
        {Lowest + 60, TwoTo31 - 60, -120},
        {-1, TwoTo32 - 1, 0},
        {-1, TwoTo32 + 59, 60},
        {0, TwoTo32, 0},
        {0, TwoTo31 - 1, Highest},
        {0, TwoTo31, Lowest},  // more than 68 years
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.fileTime) + " at " + std::to_string(row.now));
        EXPECT_EQ(AgeInSeconds(row.fileTime, row.now), row.age);
    }
}

TEST_F(FileTimeTest, MarksAnUnknownTimeWithAMomentIn1933) {
    EXPECT_EQ(NoFileTime, -1160660271);
}

}  // namespace kennly::test
