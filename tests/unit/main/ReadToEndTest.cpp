#include "main/ReadToEnd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "main/Descriptor.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

TEST(ReadToEndTest, AppendsAllThatFollowsHoweverLong) {
    const TemporaryDirectory directory;
    const std::string rest = std::string(100'000, 'a') + '\0' + "end";
    const Descriptor file(open(directory.Write("file", "skipped" + rest).c_str(), O_RDONLY));
    ASSERT_EQ(lseek(file.Number(), 7, SEEK_SET), 7);
    std::string content = "before ";

    EXPECT_TRUE(ReadToEnd(file.Number(), content));
    EXPECT_TRUE(content == "before " + rest);
}

TEST(ReadToEndTest, TellsWhyAFileCannotBeRead) {
    const TemporaryDirectory directory;
    const Descriptor file(open(directory.Path("").c_str(), O_RDONLY));
    std::string content = "before";

    errno = 0;
    EXPECT_FALSE(ReadToEnd(file.Number(), content));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(content, "before");
}

}  // namespace kennly::test
