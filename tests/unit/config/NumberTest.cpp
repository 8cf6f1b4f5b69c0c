#include "config/Number.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace kennly::test {

constexpr std::int32_t Lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t Highest = std::numeric_limits<std::int32_t>::max();

struct NumberRow {
    const char* text;
    std::int32_t expected;
};

template <std::size_t n>
void ExpectNumbers(const NumberRow (&rows)[n]) {
    for (const NumberRow& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(NumberFromText(row.text), row.expected);
    }
}

TEST(NumberTest, ReadsBlanksASignAndDecimalDigits) {
    ExpectNumbers({
        {"0", 0},
        {"7", 7},
        {"300", 300},
        {"-5", -5},
        {"+5", 5},
        {" \t\n\v\f\r12", 12},
        {"  -12", -12},
        {"  +12", 12},
        {"-0", 0},
        {"007", 7},
        {"0000000000000000000000000000000000000012", 12},
    });
}

TEST(NumberTest, StopsAtTheFirstCharacterThatIsNoDigit) {
    ExpectNumbers({
        {"12abc", 12},
        {"12 34", 12},
        {"3.9", 3},
        {"1e3", 1},
        {"5-3", 5},
        {"0x10", 0},
        {"1,000", 1},
    });
}

TEST(NumberTest, IsZeroWithoutDigits) {
    ExpectNumbers({
        {"", 0},
        {" ", 0},
        {"abc", 0},
        {"-", 0},
        {"+", 0},
        {"--5", 0},
        {"+-5", 0},
        {"- 5", 0},
        {"\xC2\xA0"
         "5",
         0},
    });
}

TEST(NumberTest, BecomesTheNearestLimitOf32Bits) {
    ExpectNumbers({
        {"2147483646", Highest - 1},
        {"2147483647", Highest},
        {"2147483648", Highest},
        {"4294967295", Highest},
        {"4294967296", Highest},
        {"-2147483647", Lowest + 1},
        {"-2147483648", Lowest},
        {"-2147483649", Lowest},
        {"-4294967296", Lowest},
    });
}

TEST(NumberTest, BecomesTheSameLimitsBeyond64Bits) {
    ExpectNumbers({
        {"9223372036854775806", Highest},
        {"9223372036854775807", Highest},
        {"9223372036854775808", Highest},
        {"18446744073709551615", Highest},
        {"18446744073709551617", Highest},
        {"-9223372036854775808", Lowest},
        {"-9223372036854775809", Lowest},
        {"-18446744073709551617", Lowest},
    });
    EXPECT_EQ(NumberFromText(std::string(10000, '9').c_str()), Highest);
    EXPECT_EQ(NumberFromText(("-" + std::string(10000, '9')).c_str()), Lowest);
}

}  // namespace kennly::test
