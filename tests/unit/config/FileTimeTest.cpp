#include "config/FileTime.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <limits>
#include <string>

#include "support/TemporaryDirectory.h"

namespace kennly::test {

class FileTimeTest : public ::testing::Test {
protected:
    // Gives the file a modification time. Returns false when the file system cannot store it.
    static bool SetTime(const std::string& path, long long seconds, long nanoseconds = 0) {
        const timespec time = {static_cast<time_t>(seconds), nanoseconds};
        const timespec times[] = {time, time};
        struct stat status = {};
        return utimensat(AT_FDCWD, path.c_str(), times, 0) == 0 &&
               stat(path.c_str(), &status) == 0 && status.st_mtime == seconds;
    }

    TemporaryDirectory directory;
    const std::string path = directory.Write("file", "content");
};

TEST_F(FileTimeTest, IsTheModificationTimeInWholeSeconds) {
    ASSERT_TRUE(SetTime(path, 1700000000, 999999999));
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
        {2147483647, std::numeric_limits<std::int32_t>::max()},
        {2147483648, std::numeric_limits<std::int32_t>::min()},
        {4294967295, -1},
        {4294967301, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        if (!SetTime(path, row.stored)) {
            GTEST_SKIP() << "the file system cannot store the time " << row.stored;
        }
        std::int32_t seconds = 77;

        EXPECT_TRUE(GetFileTime(path, seconds));

        EXPECT_EQ(seconds, row.expected);
    }
}

TEST_F(FileTimeTest, FollowsSymbolicLinks) {
    ASSERT_TRUE(SetTime(path, 1000000));
    std::filesystem::create_symlink(path, directory.Path("link"));
    std::int32_t seconds = -1;

    EXPECT_TRUE(GetFileTime(directory.Path("link"), seconds));

    EXPECT_EQ(seconds, 1000000);
}

TEST_F(FileTimeTest, ExaminesWhatIsNoRegularFileToo) {
    std::filesystem::create_directory(directory.Path("below"));
    ASSERT_TRUE(SetTime(directory.Path("below"), 2000000));
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

TEST_F(FileTimeTest, MarksAnUnknownTimeWithAMomentIn1933) {
    EXPECT_EQ(NoFileTime, -1160660271);
}

}  // namespace kennly::test
