#include "lint/Utf8.h"

#include <gtest/gtest.h>

namespace kennly::test {

TEST(Utf8Test, KnowsTheSizeOfACharacter) {
    EXPECT_EQ(SizeOfCharacter(""), 0U);
    EXPECT_EQ(SizeOfCharacter("ab"), 1U);
    EXPECT_EQ(SizeOfCharacter("\xC3\xBCx"), 2U);
    EXPECT_EQ(SizeOfCharacter("\xE2\x82\xACx"), 3U);
    EXPECT_EQ(SizeOfCharacter("\xF4\x8F\xBF\xBFx"), 4U);
    EXPECT_EQ(SizeOfCharacter("\xF8\x88\x80\x80\x80"), 0U);
}

TEST(Utf8Test, RefusesWhatIsNoCharacter) {
    for (const std::string_view text :
         {"\x80", "\xBF\x80", "\xC3", "\xC3x", "\xE2\x82", "\xE2\x82x", "\xF0\x9F\x90",
          "\xC1\xBF",          // longer than need be
          "\xE0\x9F\xBF",      // the same
          "\xF0\x8F\xBF\xBF",  // the same
          "\xED\xA0\x80",      // half of a pair in UTF-16
          "\xF4\x90\x80\x80",  // behind the last character
          "\xFF"}) {
        EXPECT_EQ(SizeOfCharacter(text), 0U) << ::testing::PrintToString(text);
    }
}

TEST(Utf8Test, TellsBytesThatBeginNoCharacter) {
    EXPECT_TRUE(IsContinuation('\x80'));
    EXPECT_TRUE(IsContinuation('\xBF'));
    EXPECT_FALSE(IsContinuation('\x7F'));
    EXPECT_FALSE(IsContinuation('\xC0'));
    EXPECT_FALSE(IsContinuation('a'));
}

}  // namespace kennly::test
