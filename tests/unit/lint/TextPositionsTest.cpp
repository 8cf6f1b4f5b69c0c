#include "lint/TextPositions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Dice.h"

namespace kennly::test {

constexpr std::size_t OnlyBytes = std::string::npos;

// A text, put together from characters whose places are counted meanwhile.
struct CountedText {
    struct Character {
        std::size_t offset;
        Position place;
        bool isCounted;
    };

    void Append(const std::string& character) {
        const bool isCounted = character != "\xEF\xBB\xBF" && character != "\xEF\xBF\xBE";
        characters.push_back({text.size(), end, isCounted});
        text += character;
        if (character == "\n") {
            ++end.line;
            end.column = 1;
        } else {
            end.column += isCounted ? 1 : 0;
        }
    }

    std::string text;
    std::vector<Character> characters;
    Position end = {1, 1};
};

CountedText RandomText(Dice& dice, const std::vector<std::string>& choices) {
    CountedText counted;
    for (std::size_t left = dice.Below(600); left > 0; --left) {
        counted.Append(dice.Pick(choices));
    }
    return counted;
}

void ExpectPlace(const Position& place, int line, int column) {
    EXPECT_EQ(place.line, line);
    EXPECT_EQ(place.column, column);
}

void ExpectEachAtItsPlace(const CountedText& counted, std::size_t utf8Begin) {
    const TextPositions positions(counted.text, utf8Begin);
    for (const CountedText::Character& character : counted.characters) {
        SCOPED_TRACE(character.offset);
        const Position place = positions.PositionAt(character.offset);
        ExpectPlace(place, character.place.line, character.place.column);
        if (character.isCounted) {
            EXPECT_EQ(positions.OffsetOf(place.line, place.column), character.offset);
        }
    }
    for (const std::size_t beyond : {std::size_t{0}, std::size_t{1}, std::size_t{1000}}) {
        const Position end = positions.PositionAt(counted.text.size() + beyond);
        ExpectPlace(end, counted.end.line, counted.end.column);
    }
}

const std::vector<std::string> Ascii = {"a", "\t", " ", "\n", "\x7F", "<"};
const std::vector<std::string> Utf8 = {"a",
                                       "\t",
                                       "\n",
                                       "\xC3\xA4",
                                       "\xE2\x82\xAC",
                                       "\xEF\xBC\x81",
                                       "\xF0\x9F\x98\x80",
                                       "\xEF\xBB\xBF",
                                       "\xEF\xBF\xBE"};

TEST(TextPositionsTest, FindsEachCharacterOfAnyText) {
    for (unsigned seed = 61001; seed < 61201; ++seed) {
        SCOPED_TRACE(seed);
        Dice dice(seed);
        ExpectEachAtItsPlace(RandomText(dice, Ascii), OnlyBytes);
        ExpectEachAtItsPlace(RandomText(dice, Ascii), 0);
        ExpectEachAtItsPlace(RandomText(dice, Utf8), 0);
        ASSERT_FALSE(HasFailure());
    }
}

TEST(TextPositionsTest, FindsEachCharacterOfALineThatNeverEnds) {
    Dice dice(61201);
    CountedText counted;
    for (int i = 0; i < 20000; ++i) {
        counted.Append(dice.Pick({"a", "\t", "\xC3\xA4", "\xF0\x9F\x98\x80"}));
    }
    ExpectEachAtItsPlace(counted, 0);
}

TEST(TextPositionsTest, CountsBytesForTinyXmlWhereItReadsBytes) {
    const TextPositions positions("\xC3\xA4\xC3\xA4<\n\xEF\xBB\xBF<", OnlyBytes);

    EXPECT_EQ(positions.OffsetOf(1, 5), 4U);
    ExpectPlace(positions.PositionAt(4), 1, 3);
    EXPECT_EQ(positions.OffsetOf(2, 4), 9U);
    ExpectPlace(positions.PositionAt(9), 2, 1);
}

TEST(TextPositionsTest, CountsCharactersForTinyXmlFromWhereItKnowsOfThem) {
    const TextPositions positions("\xC3\xA4<\xC3\xA4<", 2);

    EXPECT_EQ(positions.OffsetOf(1, 3), 2U);
    EXPECT_EQ(positions.OffsetOf(1, 4), 3U);
    EXPECT_EQ(positions.OffsetOf(1, 5), 5U);
}

// Latin-1 that is taken for UTF-8.
TEST(TextPositionsTest, FollowsTinyXmlOverLineEndsThatItSwallows) {
    const std::string text = "caf\xE9\n \n<b\xE4'\n>";
    const TextPositions positions(text, 0);

    EXPECT_EQ(positions.OffsetOf(1, 5), 6U) << "behind the swallowed line end and blank";
    EXPECT_EQ(positions.OffsetOf(2, 1), 7U);
    EXPECT_EQ(positions.OffsetOf(2, 4), text.size() - 1);
    ExpectPlace(positions.PositionAt(7), 3, 1);
    ExpectPlace(positions.PositionAt(text.size() - 1), 4, 1);
    EXPECT_EQ(positions.Next(3), 6U);
    EXPECT_EQ(positions.Next(0), 1U);
    EXPECT_EQ(TextPositions("\xE9", 0).Next(0), 1U) << "not beyond the end";
    EXPECT_EQ(TextPositions(text, OnlyBytes).Next(3), 4U);
}

TEST(TextPositionsTest, CountsEachByteThatIsNoUtf8AsACharacter) {
    const std::string text = "\xE9-\xC3\xC3\xA4\x80|";
    ExpectPlace(TextPositions(text, 0).PositionAt(text.size() - 1), 1, 6);
}

TEST(TextPositionsTest, KnowsNoOffsetOfAPlaceThatIsNotThere) {
    const std::string text = "ab\nc\n\nd";
    const TextPositions positions(text, 0);
    const Position places[] = {{0, 1}, {-1, -1}, {1, 0}, {2, 9}, {3, 2}, {5, 1}, {4, 2}, {9, 9}};
    for (const Position& place : places) {
        SCOPED_TRACE(place.line);
        EXPECT_EQ(positions.OffsetOf(place.line, place.column), text.size());
    }
    EXPECT_EQ(positions.OffsetOf(1, 3), 2U) << "the line end";
    EXPECT_EQ(TextPositions("", 0).OffsetOf(1, 1), 0U);
}

TEST(TextPositionsTest, OrdersPlacesByLineFirst) {
    const std::vector<Position> inOrder = {{0, 0}, {1, 2}, {1, 10}, {2, 1}, {10, 1}};
    for (std::size_t a = 0; a < inOrder.size(); ++a) {
        for (std::size_t b = 0; b < inOrder.size(); ++b) {
            EXPECT_EQ(inOrder[a] < inOrder[b], a < b);
        }
    }
}

}  // namespace kennly::test
