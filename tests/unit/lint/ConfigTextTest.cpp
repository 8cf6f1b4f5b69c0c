#include "lint/ConfigText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Dice.h"

namespace kennly::test {

using std::string_literals::operator""s;

void ExpectPlace(const Position& place, const Position& expected) {
    EXPECT_EQ(place.line, expected.line);
    EXPECT_EQ(place.column, expected.column);
}

// A file, put together at random, with the places of what is in it in the order of the file.
class PlacedFile {
public:
    struct Value {
        Position name;
        Position begin;
        std::string written;
    };

    explicit PlacedFile(Dice& dice)
        : dice_(dice), lineEnd_(dice.Pick({"\n", "\r\n", "\r"})), hasLines_(!dice.OneIn(4)) {
        const std::string start = dice_.Pick({"", "\xEF\xBB\xBF", "<?xml version='1.0'?>",
                                              "<?xml version='1.0' encoding='utf-8'?>",
                                              "<?xml version='1.0' encoding='ISO-8859-1'?>",
                                              "<!-- \xC3\xA4 --><?xml version='1.0'?>"});
        Write(start);
        Filler();
        Element(0);
        Filler();
    }

    std::string content;
    std::vector<Position> elements;
    std::vector<Value> values;

private:
    void Write(const std::string& text) {
        for (const char c : text) {
            if (c == '\n') {
                content += lineEnd_;
                ++place_.line;
                place_.column = 1;
                continue;
            }
            content += c;
            const bool isInside = (static_cast<unsigned char>(c) & 0xC0) == 0x80;
            place_.column += isInside ? 0 : 1;
        }
        if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            --place_.column;  // it is not counted
        }
    }

    std::string Blank() { return dice_.Pick({" ", "\t", "  ", hasLines_ ? "\n" : "\t "}); }
    std::string Text() {
        std::string text;
        for (std::size_t left = dice_.Below(6); left > 0; --left) {
            text += dice_.Pick({"a", "&amp;", "&#65;", "\t", " ", "\xC3\xA4", "\xE2\x82\xAC",
                                "\xF0\x9F\x98\x80", "=", "/", hasLines_ ? "\n" : "b"});
        }
        return text;
    }

    void Filler() {
        for (std::size_t left = dice_.Below(3); left > 0; --left) {
            Write(Blank());
            if (dice_.OneIn(2)) {
                Write("<!--" + Text() + "-->");
            }
        }
    }

    void Attribute(const std::string& name) {
        Write(Blank());
        Value value;
        value.name = place_;
        Write(name + dice_.Pick({"=", " = ", "=\t", "\t="}));
        if (dice_.OneIn(6)) {
            value.begin = place_;
            value.written = "bare" + std::to_string(dice_.Below(100));
            Write(value.written + " ");
        } else {
            const std::string quote = dice_.Pick({"'", "\""});
            Write(quote);
            value.begin = place_;
            value.written = Text() + (quote == "'" ? "\"" : "'");
            Write(value.written + quote);
        }
        values.push_back(value);
    }

    void Element(int depth) {
        elements.push_back(place_);
        const std::string name = dice_.Pick({"job", "check", "\xC3\xA4"});
        Write("<" + name);
        for (const char* const attribute : {"name", "delay", "x"}) {
            if (dice_.OneIn(2)) {
                Attribute(attribute);
            }
        }
        Write(dice_.Pick({"", " ", "\n"}) + ">");
        const std::string text = dice_.OneIn(3) ? "text" : "";
        Write(text);
        for (std::size_t left = depth < 4 ? dice_.Below(4) : 0; left > 0; --left) {
            Filler();
            Element(depth + 1);
        }
        Write("</" + name + ">");
    }

    Dice& dice_;
    const std::string lineEnd_;
    const bool hasLines_;
    Position place_ = {1, 1};
};

struct Found {
    std::vector<const TiXmlElement*> elements;
    std::vector<const TiXmlAttribute*> attributes;
};

void Collect(const TiXmlElement& element, Found& found) {
    found.elements.push_back(&element);
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        found.attributes.push_back(attribute);
    }
    for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        Collect(*child, found);
    }
}

std::string WithNewlines(const std::string& content) {
    std::string text;
    for (std::size_t i = 0; i < content.size(); ++i) {
        if (content.compare(i, 2, "\r\n") != 0) {
            text += content[i] == '\r' ? '\n' : content[i];
        }
    }
    return text;
}

void ExpectAllAtTheirPlaces(const PlacedFile& file) {
    const ConfigText text(file.content);
    ASSERT_TRUE(text.HasRoot()) << text.Document().ErrorDesc();
    EXPECT_EQ(text.Text(), WithNewlines(file.content));
    Found found;
    Collect(text.Root(), found);
    ASSERT_EQ(found.elements.size(), file.elements.size());
    for (std::size_t i = 0; i < found.elements.size(); ++i) {
        SCOPED_TRACE("element " + std::to_string(i));
        ExpectPlace(text.PositionOf(*found.elements[i]), file.elements[i]);
        EXPECT_EQ(text.Text()[text.OffsetOf(*found.elements[i])], '<');
    }
    ASSERT_EQ(found.attributes.size(), file.values.size());
    for (std::size_t i = 0; i < found.attributes.size(); ++i) {
        SCOPED_TRACE("attribute " + std::to_string(i));
        const RawValue raw = text.RawValueOf(*found.attributes[i]);
        ExpectPlace(text.PositionOf(*found.attributes[i]), file.values[i].name);
        ExpectPlace(text.PositionAt(raw.offset), file.values[i].begin);
        EXPECT_EQ(raw.text, file.values[i].written);
    }
}

TEST(ConfigTextTest, FindsAllElementsAndAttributesWhereTheyStand) {
    std::size_t values = 0;
    for (unsigned seed = 62001; seed < 62501; ++seed) {
        Dice dice(seed);
        const PlacedFile file(dice);
        values += file.values.size();
        SCOPED_TRACE(std::to_string(seed) + ":\n" + file.content);
        ExpectAllAtTheirPlaces(file);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(values, 1000U);
}

// The one attribute of the one child of the root.
const TiXmlAttribute& OnlyAttribute(const ConfigText& text) {
    return *text.Root().FirstChildElement()->FirstAttribute();
}

struct ValueRow {
    const char* what;
    std::string content;
    Position name;
    std::string written;
};

TEST(ConfigTextTest, FindsValuesInOddPlaces) {
    const ValueRow rows[] = {
        {"a declaration behind bytes", "<!--\xC3\xA4--><?xml?><a><b c='d'/></a>", {1, 22}, "d"},
        {"a mark before the name",
         "<?xml?><a><b \xEF\xBB\xBF"
         "c='d'/></a>",
         {1, 14},
         "d"},
        {"Latin-1 that takes a line end with it",
         "<?xml?>\n<!-- caf\xE9\n-->\n<a>\n<b c='d'/></a>",
         {5, 4},
         "d"},
        {"Latin-1 that is read as such", "<!-- caf\xE9\n-->\n<a>\n<b c='d'/></a>", {4, 4}, "d"},
        {"Latin-1 before a declaration",
         "<!-- caf\xE9\n--><?xml?>\n<a>\n<b c='d'/></a>",
         {4, 4},
         "d"},
        {"Latin-1 that takes the quote with it",
         "<?xml?><a><b c='caf\xE9' x'/></a>",
         {1, 14},
         "caf\xE9' x"},
        {"Latin-1 that does not", "<a><b c='caf\xE9' /></a>", {1, 7}, "caf\xE9"},
        {"no value", "<a><b c=''/></a>", {1, 7}, ""},
        {"a bare value before the end", "<a><b c=d></b></a>", {1, 7}, "d"},
        {"no bare value", "<a><b c=/></a>", {1, 7}, ""},
    };
    for (const ValueRow& row : rows) {
        SCOPED_TRACE(row.what);
        const ConfigText text(row.content);
        ASSERT_TRUE(text.HasRoot());
        ExpectPlace(text.PositionOf(OnlyAttribute(text)), row.name);
        EXPECT_EQ(text.RawValueOf(OnlyAttribute(text)).text, row.written);
    }
}

TEST(ConfigTextTest, EndsAtTheFirstNul) {
    const ConfigText text("<a/>\r\n\0<b/>"s);
    ASSERT_TRUE(text.HasRoot());
    EXPECT_EQ(text.Text(), "<a/>\n");
    EXPECT_EQ(text.Root().NextSiblingElement(), nullptr);
}

TEST(ConfigTextTest, HasNoRootWithoutAnElement) {
    for (const std::string& content :
         {""s, " "s, "\0<a/>"s, "text<a/>"s, "<!-- <a/> -->"s, "<?xml?>"s, "<a"s, "<a b></a>"s}) {
        SCOPED_TRACE(content);
        EXPECT_FALSE(ConfigText(content).HasRoot());
    }
}

TEST(ConfigTextTest, TellsWhereTinyXmlGaveUp) {
    const struct {
        std::string content;
        Position place;
    } rows[] = {
        {"<a>\n <b c='1' c='2'/>\n</a>", {2, 11}},
        {"<a>\r\n\xC3\xA4 <b c></b>\r\n</a>", {2, 7}},
        {"<a>\n <b></c>\n</a>", {2, 5}},
        {"<?xml?>\n<!-- caf\xE9\n-->\n<a b></a>", {4, 5}},
        {"<a>\n <b>\n  <c>", {3, 3}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content);
        const ConfigText text(row.content);
        EXPECT_FALSE(text.HasRoot());
        ExpectPlace(text.PlaceOfError(), row.place);
    }
    EXPECT_EQ(ConfigText("").PlaceOfError().line, 0);
}

TEST(ConfigTextTest, FindsAttributesByTheirExactNames) {
    const ConfigText text("<a b='1' B='2'/>");
    ASSERT_TRUE(text.HasRoot());
    ASSERT_NE(FindAttribute(text.Root(), "B"), nullptr);
    EXPECT_STREQ(FindAttribute(text.Root(), "B")->Value(), "2");
    for (const char* const name : {"", "bb", "c", "b "}) {
        EXPECT_EQ(FindAttribute(text.Root(), name), nullptr);
    }
}

}  // namespace kennly::test
