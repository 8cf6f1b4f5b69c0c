#include "main/Descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <type_traits>

namespace kennly::test {

static_assert(!std::is_copy_constructible_v<Descriptor> && !std::is_copy_assignable_v<Descriptor>,
              "two owners would close it twice");

bool IsOpenFile(int number) {
    return fcntl(number, F_GETFD) != -1;
}

TEST(DescriptorTest, ClosesItsFileWhenTheScopeEnds) {
    const int number = dup(STDERR_FILENO);
    ASSERT_GE(number, 0);
    {
        const Descriptor file(number);
        EXPECT_TRUE(file.IsOpen());
        EXPECT_EQ(file.Number(), number);
        EXPECT_TRUE(IsOpenFile(number));
    }
    EXPECT_FALSE(IsOpenFile(number));
}

TEST(DescriptorTest, TakesTheNumberZeroForAFileLikeAnyOther) {
    const Descriptor input(dup(STDERR_FILENO));
    ASSERT_EQ(dup2(input.Number(), 0), 0);
    {
        const Descriptor file(0);
        EXPECT_TRUE(file.IsOpen());
    }
    EXPECT_FALSE(IsOpenFile(0));
}

TEST(DescriptorTest, CarriesAFileThatCouldNotBeOpenedWithoutHarm) {
    errno = 0;
    {
        const Descriptor file(-1);
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(file.Number(), -1);
    }
    EXPECT_EQ(errno, 0);  // nobody has tried to close it
}

}  // namespace kennly::test
