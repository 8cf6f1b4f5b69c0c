#include "ctl/Json.h"

namespace kennly::test {

TEST(JsonTest, KeepsTheOrderOfMembersAndIndents) {
    const Json json = {{"b", 1}, {"a", Json::array({true, Json()})}};
    EXPECT_EQ(TextOf(json), "{\n  \"b\": 1,\n  \"a\": [\n    true,\n    null\n  ]\n}");
}

TEST(JsonTest, TakesBytesThatAreNoText) {
    const std::string text = TextOf(Json("Gr\xFC\xC3\xBC\n\""));
    EXPECT_EQ(text, "\"Gr\xEF\xBF\xBD\xC3\xBC\\n\\\"\"");
    EXPECT_EQ(Json::parse(text).get<std::string>(), "Gr\xEF\xBF\xBD\xC3\xBC\n\"");
}

}  // namespace kennly::test
