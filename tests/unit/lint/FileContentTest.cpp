#include "lint/FileContent.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace kennly::test {

using std::string_literals::operator""s;

class FileContentTest : public ::testing::Test {
protected:
    void ExpectNone(const std::string& path, int reason) {
        SCOPED_TRACE(path);
        errno = 0;
        const auto content = ReadFile(path);
        const int told = errno;
        EXPECT_FALSE(content.has_value());
        EXPECT_EQ(told, reason);
        EXPECT_EQ(ContentOf(path), "");
    }

    const TemporaryDirectory directory;
};

TEST_F(FileContentTest, ReadsTheBytesAsTheyStand) {
    for (const std::string& content :
         {""s, "\n"s, "a\r\nb"s, "a\0b\0"s, "\xFF\xFE"s, std::string(65536, 'x'),
          std::string(65537, 'x'), std::string(1000000, '\0')}) {
        SCOPED_TRACE(content.size());
        const std::string path = directory.Write("file", content);
        EXPECT_TRUE(ReadFile(path) == content);
        EXPECT_TRUE(ContentOf(path) == content);
    }
}

TEST_F(FileContentTest, ReadsWhatHasNoSize) {
    EXPECT_NE(ContentOf("/proc/self/status").find("Name:"), std::string::npos);
}

TEST_F(FileContentTest, FollowsSymbolicLinks) {
    directory.Write("file", "content");
    std::filesystem::create_symlink("file", directory.Path("link"));
    EXPECT_EQ(ContentOf(directory.Path("link")), "content");
}

TEST_F(FileContentTest, TellsWhyThereIsNothing) {
    ExpectNone(directory.Path("missing"), ENOENT);
    ExpectNone(directory.Path(""), EISDIR);
    ExpectNone(directory.Write("file", "") + "/below", ENOTDIR);
    ExpectNone("", ENOENT);
    ExpectNone("/dev/zero", EINVAL);
}

TEST_F(FileContentTest, DoesNotWaitForWhoWritesIntoAFifo) {
    ASSERT_EQ(mkfifo(directory.Path("fifo").c_str(), 0600), 0);
    ExpectNone(directory.Path("fifo"), EINVAL);
}

TEST_F(FileContentTest, HasNoneOfAFileThatMayNotBeRead) {
    const std::string path = directory.Write("file", "secret");
    std::filesystem::permissions(directory.Path(""), std::filesystem::perms::all);
    std::filesystem::permissions(path, std::filesystem::perms::none);
    const WithoutPrivileges user;
    ExpectNone(path, EACCES);
}

}  // namespace kennly::test
