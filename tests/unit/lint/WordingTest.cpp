#include "lint/Wording.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace kennly::test {

using std::string_literals::operator""s;

TEST(WordingTest, QuotesAShortTextAsItStands) {
    for (const std::string& text : {""s, "df /"s, "\xC3\xA4"s, std::string(60, 'x')}) {
        EXPECT_EQ(Quoted(text), "\"" + text + "\"");
    }
}

TEST(WordingTest, KeepsTheQuoteOnOneLine) {
    EXPECT_EQ(Quoted("a\nb\tc\x1B[1m\x7F\0z"s), "\"a b c [1m  z\"");
    EXPECT_EQ(Quoted("\r\n"), "\"  \"");
}

TEST(WordingTest, CutsALongTextBehindSixtyBytes) {
    EXPECT_EQ(Quoted(std::string(61, 'x')), "\"" + std::string(60, 'x') + "...\"");
    EXPECT_EQ(Quoted(std::string(100000, 'x')), "\"" + std::string(60, 'x') + "...\"");
}

TEST(WordingTest, CutsBetweenTwoCharacters) {
    for (const char* const character : {"\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        for (std::size_t before = 55; before <= 60; ++before) {
            SCOPED_TRACE(before);
            const std::string text = std::string(before, 'x') + character + std::string(9, 'y');
            const std::size_t end = before + std::string(character).size();
            const std::size_t kept = end <= 60 ? 60 : before;
            EXPECT_EQ(Quoted(text), "\"" + text.substr(0, kept) + "...\"");
        }
    }
}

TEST(WordingTest, ShowsTheBeginOfWhatIsNoText) {
    const std::string bytes(100, '\x80');
    EXPECT_EQ(Quoted(bytes), "\"" + bytes.substr(0, 56) + "...\"");
}

TEST(WordingTest, CountsThings) {
    EXPECT_EQ(Counted(0, "job"), "0 jobs");
    EXPECT_EQ(Counted(1, "job"), "1 job");
    EXPECT_EQ(Counted(2, "thread"), "2 threads");
}

}  // namespace kennly::test
