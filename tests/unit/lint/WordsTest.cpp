#include "lint/Words.h"

#include <gtest/gtest.h>

namespace kennly::test {

TEST(WordsTest, FindsAWordAmongOthers) {
    EXPECT_TRUE(IsAmong("b", {"a", "b", "c"}));
    EXPECT_FALSE(IsAmong("B", {"a", "b", "c"}));
    EXPECT_FALSE(IsAmong("", {"a"}));
    EXPECT_FALSE(IsAmong("a", {}));
}

TEST(WordsTest, KnowsWhatIsBlank) {
    for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) {
        EXPECT_TRUE(IsBlank(c)) << static_cast<int>(c);
    }
    for (const char c : {'a', '\0', '\b', '\xA0', '\x85', '_'}) {
        EXPECT_FALSE(IsBlank(c)) << static_cast<int>(c);
    }
}

}  // namespace kennly::test
