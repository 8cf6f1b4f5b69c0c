#include "config/XmlOutline.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "config/FileInspection.h"
#include "support/GuardedText.h"
#include "support/ParsedOutline.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

using std::string_literals::operator""s;

constexpr std::size_t NoLimit = std::numeric_limits<std::size_t>::max();

std::size_t Depth(const std::string& text) {
    return OutlineXml(text, NoLimit).depth;
}

std::string Repeated(const std::string& part, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += part;
    }
    return text;
}

std::string Printable(const std::string& text) {
    std::string printable;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escape[5];
        std::snprintf(escape, sizeof(escape), "\\x%02X", byte);
        printable += byte >= ' ' && byte < 0x7F ? std::string(1, c) : escape;
    }
    return printable;
}

struct OutlineRow {
    const char* what;
    std::string text;
    std::size_t depth;
};

// Each of these is accepted by TinyXML.
std::vector<OutlineRow> AcceptedTexts() {
    const std::string utf8 = "<?xml version='1.0'?>";
    const std::string latin = "<?xml version='1.0' encoding='ISO-8859-1'?>";
    return {
        {"one element", "<a/>", 1},
        {"an end tag", "<a></a>", 1},
        {"children", "<a><b/><b><c/></b></a>", 3},
        {"siblings do not add up", "<a>" + Repeated("<b></b>", 20) + "</a>", 2},
        {"a second root", "<a/><b><c/></b>", 2},
        {"text behind the root", "<a/>text<b><c/></b>", 1},
        {"an end tag outside every element", "</a><b/>", 1},
        {"blanks everywhere", "\n <a \n b = \t 'c' >\v\f<b ></b ></a\n>", 2},
        {"tags in a comment", "<a><!-- <b><c> --><d/></a>", 2},
        {"a comment that seems to end at once", "<!--><a><b/></a>--><c/>", 1},
        {"a comment without an end", "<!-- <a><b/></a>", 0},
        {"tags in CDATA", "<a><![CDATA[<b><c>]]></a>", 1},
        {"CDATA with brackets", "<a><![CDATA[]]]><b/></a>", 2},
        {"a document type", "<!DOCTYPE a><a/>", 1},
        {"an instruction", "<?other <a?><b/>", 1},
        {"a name reserved for nobody", "<!a><b/>", 1},
        {"tags in a value", "<a b='<c><d>'><e/></a>", 2},
        {"a slash in a value", "<a b='/>'><c/></a>", 2},
        {"an end in a value", "<a b='</a>'><c/></a>", 2},
        {"the other quote in a value", "<a b='\"' c=\"'\"><d/></a>", 2},
        {"a comment in a value", "<a b='<!--'><c/></a>", 2},
        {"a value without quotes", "<a b=c><d e=f/></a>", 2},
        {"an empty value", "<a b=><c/></a>", 2},
        {"quotes in a text", "<a>it's \"<b/>'</a>", 2},
        {"an end of an empty tag in a text", "<a>/><b/></a>", 2},
        {"a declaration inside an element", "<a><?xml encoding='<b>'?><c/></a>", 2},
        {"names that begin oddly", "<_a-b.c:d1><\xC3\xA4/></_a-b.c:d1>", 2},
        {"a lead byte before a quote in UTF-8", utf8 + "<a b='\xC3''><c/></a>", 2},
        {"a lead byte before '<' in UTF-8", utf8 + "<a>\xF0<b><c/></a>", 2},
        {"a lead byte before a quote in Latin-1", latin + "<a b='\xC3'><c/></a>", 2},
        {"a lead byte before '<' in Latin-1", latin + "<a>\xF0<b><c/></b></a>", 3},
        {"a lead byte without a declaration", "<a>\xF0<b><c/></b></a>", 3},
        {"a byte order mark", "\xEF\xBB\xBF<a><b/></a>", 2},
        {"byte order marks as blanks",
         "\xEF\xBB\xBF<a \xEF\xBB\xBF b\xEF\xBF\xBE=\xEF\xBF\xBF'c'>"
         "\xEF\xBB\xBF<b/></a>",
         2},
        {"entities", "<a b='&quot;&amp;&lt;&none;&'>&gt;<c/></a>", 2},
        {"a NUL", "<a/>\0<b><c/></b>"s, 1},
        {"a NUL in a comment", "<a/><!-- \0 --><b><c/></b>"s, 1},
        {"nothing but a declaration", "<?xml version='1.0'?>", 0},
        {"a declaration that ends late", "<?xml version='1.0' <a><b/></a>", 1},
    };
}

struct Verdict {
    bool accepted = false;
    std::size_t depth = 0;
    std::size_t attributes = 0;
};

bool operator==(const Verdict& a, const Verdict& b) {
    return a.accepted == b.accepted && a.depth == b.depth && a.attributes == b.attributes;
}

std::ostream& operator<<(std::ostream& out, const Verdict& verdict) {
    return out << (verdict.accepted ? "accepted" : "refused") << " with depth " << verdict.depth
               << " and " << verdict.attributes << " attributes";
}

Verdict VerdictOf(const TiXmlDocument& document, bool accepted) {
    const XmlOutline outline = OutlineOf(document);
    return {accepted, outline.depth, outline.attributes};
}

Verdict VerdictOnMemory(const std::string& text) {
    const GuardedText guarded(text);
    TiXmlDocument document;
    document.Parse(guarded.Begin());
    return VerdictOf(document, !document.Error());
}

Verdict VerdictOnFile(const std::string& path) {
    TiXmlDocument document(path.c_str());
    const bool accepted = document.LoadFile();
    return VerdictOf(document, accepted);
}

// How much of a text TinyXML reads. It says so where it leaves something unread; else it has come
// to the end, or given up.
std::size_t EndByTinyXml(const std::string& text) {
    const GuardedText guarded(text);
    TiXmlDocument document;
    const char* const end = document.Parse(guarded.Begin());
    return end != nullptr ? static_cast<std::size_t>(end - guarded.Begin())
                          : std::strlen(guarded.Begin());
}

void ExpectDepthOfAccepted(const std::vector<OutlineRow>& rows) {
    for (const OutlineRow& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Depth(row.text), row.depth);
        const std::size_t attributes = OutlineXml(row.text, NoLimit).attributes;
        EXPECT_EQ(VerdictOnMemory(AsRead(row.text)), (Verdict{true, row.depth, attributes}));
    }
}

TEST(XmlOutlineTest, FindsTheDepthOfATextThatTinyXmlAccepts) {
    ExpectDepthOfAccepted(AcceptedTexts());
}

TEST(XmlOutlineTest, CountsAllThatTinyXmlReachesOfATextThatItRefuses) {
    const OutlineRow rows[] = {
        {"text before the root", "text<a><b/></a>", 0},
        {"no end tag", "<a><b><c>", 3},
        {"an end tag of another element", "<a><b></a>", 2},
        {"cut in a name", "<a><b", 2},
        {"cut in a value", "<a><b c='d", 2},
        {"cut behind '='", "<a><b c=", 2},
        {"cut in an end tag", "<a><b></b", 2},
        {"cut behind a slash", "<a><b/", 2},
        {"a slash that is no end", "<a><b/ ></a>", 2},
        {"an attribute without a value", "<a><b c></b></a>", 2},
        {"an attribute that begins with a digit", "<a><b 1='2'></b></a>", 2},
    };
    for (const OutlineRow& row : rows) {
        SCOPED_TRACE(row.what);

        EXPECT_EQ(Depth(row.text), row.depth);
        const Verdict verdict = VerdictOnMemory(AsRead(row.text));
        EXPECT_FALSE(verdict.accepted);
        EXPECT_LE(verdict.depth, row.depth);
        EXPECT_LE(verdict.attributes, OutlineXml(row.text, NoLimit).attributes);
    }
}

TEST(XmlOutlineTest, FindsWhereTinyXmlStopsReading) {
    const struct {
        std::string text;
        std::size_t end;
    } rows[] = {
        {"<a/>", 4},
        {"<a/>\n \n", 7},
        {"<a/>text<b/>", 4},
        {"<a/> \n text<b/>", 7},
        {"<a></a>&<b/>", 7},
        {"<a>text</a><!-- c --><b/>]", 25},
        {"<?xml?><a/>\xC3\xA4", 11},
        {"\xEF\xBB\xBF<a/>\xEF\xBB\xBF \xC3\xA4", 11},
        {"<a/></b>text", 8},
        {"<a/>\n\0text"s, 5},
        {"<!-- <a/>", 9},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Printable(row.text));
        EXPECT_EQ(OutlineXml(row.text, NoLimit).end, row.end);
        EXPECT_EQ(EndByTinyXml(row.text), row.end);
    }
    for (const OutlineRow& row : AcceptedTexts()) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(OutlineXml(row.text, NoLimit).end, EndByTinyXml(row.text));
    }
}

TEST(XmlOutlineTest, EndsWithTheTextWhenTinyXmlGivesUp) {
    for (const std::string& text : {"<a b></a> "s, "<a><b 1='2'></b></a>"s, "<a b='&#'/>"s,
                                    "<?xml version='&#x'?><a/>"s, "<a b"s}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(OutlineXml(text, NoLimit).end, text.size());
    }
}

TEST(XmlOutlineTest, StopsWhenEnoughLevelsAreFound) {
    const std::string text = Repeated("<a>", 1000);

    EXPECT_EQ(OutlineXml(text, 10).depth, 10U);
    EXPECT_EQ(OutlineXml(text, 1000).depth, 1000U);
    EXPECT_EQ(OutlineXml(text, 2000).depth, 1000U);
}

TEST(XmlOutlineTest, FindsTheMostAttributesOfOneElement) {
    const struct {
        std::string text;
        std::size_t attributes;
    } rows[] = {
        {"<?xml version='1.0' encoding='UTF-8'?>", 0},
        {"<a/>", 0},
        {"<a></a>", 0},
        {"<a b='c'/>", 1},
        {"<a b='c' d='e' ></a>", 2},
        {"<a b='c' d='e' f='g'><h i='j'/></a>", 3},
        {"<a b='c'><d e='f' g='h'/><i j='k'/></a>", 2},
        {"<a b=c d=e f=g/>", 3},
        {"<a b='c d=\"e\" f=\"g\"'/>", 1},
        {"<a><!-- <b c='d'/> --></a c='d'>", 0},
        {"<a" + Repeated(" b='c'", 100000) + "/>", 100000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 100));
        EXPECT_EQ(OutlineXml(row.text, NoLimit).attributes, row.attributes);
    }
}

TEST(XmlOutlineTest, CopesWithAMillionLevels) {
    EXPECT_EQ(Depth(Repeated("<a>", 1000000)), 1000000U);
}

TEST(XmlOutlineTest, IsEmptyForAnEmptyText) {
    for (const std::string& text : {""s, " \n"s, "\0<a/>"s}) {
        SCOPED_TRACE(Printable(text));
        EXPECT_EQ(Depth(text), 0U);
        EXPECT_FALSE(OutlineXml(text, NoLimit).isUtf8);
    }
}

struct EncodingRow {
    std::string text;
    bool isUtf8;
};

void ExpectEncodings(const std::vector<EncodingRow>& rows) {
    for (const EncodingRow& row : rows) {
        SCOPED_TRACE(Printable(row.text));

        EXPECT_EQ(OutlineXml(row.text, NoLimit).isUtf8, row.isUtf8);

        // In UTF-8, and only there, the lead byte takes the quote with it.
        TiXmlDocument document;
        document.Parse((row.text + "<a b='\xC3' c'/>").c_str());
        const TiXmlElement* const element = document.FirstChildElement("a");
        const bool isTakenForUtf8 = element != nullptr && element->Attribute("b") != nullptr &&
                                    element->Attribute("b") == "\xC3' c"s;
        EXPECT_EQ(isTakenForUtf8, row.isUtf8);
    }
}

TEST(XmlOutlineTest, TakesATextForUtf8AsTinyXmlDoes) {
    ExpectEncodings({
        {"", false},
        {"<!-- encoding='UTF-8' -->", false},
        {"<x/>", false},
        {"\xEF\xBB\xBF", true},
        {"<?xml?>", true},
        {"<?xml version='1.0'?>", true},
        {"<?XML version='1.0'?>", true},
        {"<?xml version='1.0' encoding=''?>", true},
        {"<?xml version='1.0' encoding=\"UTF-8\"?>", true},
        {"<?xml encoding = 'utf-8' standalone='yes'?>", true},
        {"<?xml encoding='utf8'?>", true},
        {"<?xml ENCODING='Utf-8'?>", true},
        {"<?xml encoding=UTF-8?>", true},
        {"<?xml encoding='UTF-8-like'?>", true},
        {"<?xml junk encoding='UTF-8'?>", true},
        {"<?xml encoding='UTF'?>", false},
        {"<?xml encoding='UTF-'?>", false},
        {"<?xml encoding='UTF-16'?>", false},
        {"<?xml encoding=' UTF-8'?>", false},
        {"<?xml encoding='ISO-8859-1'?>", false},
        {"<?xml encoding=latin1?>", false},
    });
}

TEST(XmlOutlineTest, LetsTheFirstDeclarationOutsideEveryElementSettleTheEncoding) {
    ExpectEncodings({
        {"<?xml encoding='latin1'?><?xml encoding='UTF-8'?>", false},
        {"<?xml encoding='UTF-8'?><?xml encoding='latin1'?>", true},
        {"<?xml encoding='latin1' encoding='UTF-8'?>", true},
        {"<?xml encoding='UTF-8' encoding='latin1'?>", false},
        {"<x><?xml encoding='UTF-8'?></x>", false},
        {"<x/><?xml encoding='UTF-8'?>", true},
        {"\xEF\xBB\xBF<?xml encoding='latin1'?>", true},
        {" \xEF\xBB\xBF<?xml encoding='latin1'?>", false},
    });
}

// A number between "&#" and ';' is read backwards, up to the mark before it; what stands before the
// mark is swallowed. TinyXML accepts each of these.
TEST(XmlOutlineTest, FollowsTinyXmlOverNumberedCharacters) {
    ExpectDepthOfAccepted({
        {"decimal", "<a b='&#65;'>&#66;<c/></a>", 2},
        {"hexadecimal", "<a b='&#x41;'>&#xfF;<c/></a>", 2},
        {"without digits", "<a b='&#;&#x;'><c/></a>", 2},
        {"a swallowed quote", "<a b=\"&#x\" c='x;\"><d><e/></d></a>", 3},
        {"a quote swallowed by a decimal number", "<a b='&#'><c>#1;'/>", 1},
        {"swallowed elements", "<a>&#x<b><c><d>x41;<e/></a>", 2},
        {"a lone ampersand", "<a b='&'><c/></a>", 2},
    });
}

TEST(XmlOutlineTest, EndsWhereANumberedCharacterMakesTinyXmlGiveUp) {
    for (const char* const number : {"&#", "&#x", "&#1", "&#12a;", "&#X41;", "&#xg;", "&#<b>;"}) {
        SCOPED_TRACE(number);
        // Given up in a declaration, a text counts as read, without any element.
        EXPECT_EQ(Depth("<?xml version='"s + number + "'?><a><b/></a>"), 0U);
        EXPECT_EQ(VerdictOnMemory("<?xml version='"s + number + "'?><a><b/></a>"),
                  (Verdict{true, 0, 0}));
    }
}

TEST(XmlOutlineTest, EndsWhereAQuoteInABareValueMakesTinyXmlGiveUp) {
    for (const char* const value : {"1'", "1\"2\""}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(Depth("<?xml version="s + value + "?><a><b/></a>"), 0U);
        EXPECT_EQ(VerdictOnMemory("<?xml version="s + value + "?><a><b/></a>"),
                  (Verdict{true, 0, 0}));
    }
}

// A byte order mark may begin a name, but right behind '<' it is a blank.
TEST(XmlOutlineTest, FollowsTinyXmlOverUtf8BlanksBeforeAName) {
    const std::string mark = "\xEF\xBB\xBF";
    ExpectDepthOfAccepted({
        {"marks", mark + "<" + mark + "a><" + mark + mark + "b/></a>", 2},
        {"a mark and a blank", "<?xml?><" + mark + " a><" + mark + "\n b c='d'/></a>", 2},
        {"the other two", "<?xml?><\xEF\xBF\xBE a><\xEF\xBF\xBF b/></a>", 2},
        {"no UTF-8", "<" + mark + "a><b/></" + mark + "a>", 2},
    });
    EXPECT_EQ(Depth(mark + "<a><" + mark), 2U);
    EXPECT_EQ(Depth(mark + "<a><" + mark + " 1><b>"), 2U);
}

TEST(XmlOutlineTest, DecodesTheNameOfTheEncoding) {
    ExpectEncodings({
        {"<?xml encoding='&#85;TF-8'?>", true},
        {"<?xml encoding='&#x55;TF-&#56;'?>", true},
        {"<?xml encoding='&#341;TF&#000000568;'?>", true},
        {"<?xml encoding='&UTF-8'?>", true},
        {"<?xml encoding='UTF&-8'?>", true},
        {"<?xml encoding='&'?>", true},
        {"<?xml encoding='&#0;latin1'?>", true},
        {"<?xml encoding='UTF8&#0;'?>", true},
        {"<?xml encoding='&amp;UTF-8'?>", false},
        {"<?xml encoding='&#86;TF-8'?>", false},
        {"<?xml encoding='U&#0;TF-8'?>", false},
        {"<?xml encoding=&UTF-8?>", false},
    });
}

TEST(XmlOutlineTest, ReadsNoFurtherThanTheTextItIsGiven) {
    const std::string text = "<?xml encoding='UTF-8'?>";

    EXPECT_FALSE(OutlineXml(std::string_view(text).substr(0, 17), NoLimit).isUtf8);
}

TEST(XmlOutlineTest, KnowsWhetherATextEndsInsideACharacter) {
    const struct {
        std::string text;
        bool inside;
    } rows[] = {
        {"", false},
        {"a", false},
        {"\xC3", true},
        {"\xC3\xA4", false},
        {"\xE2", true},
        {"\xE2\x82", true},
        {"\xE2\x82\xAC", false},
        {"\xF0", true},
        {"\xF0\x9F", true},
        {"\xF0\x9F\x98", true},
        {"\xF0\x9F\x98\x80", false},
        {"text\xF0\x9F\x98", true},
        {"\xF0"
         "abc",
         false},
        {"\xF0"
         "ab",
         true},
        {"\xC1", false},
        {"\xC2", true},
        {"\xDF", true},
        {"\xE0", true},
        {"\xEF", true},
        {"\xF4", true},
        {"\xF5", false},
        {"\x80", false},
        {"a\0\xC3"s, false},
        {"\xC3\0\xA4"s, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Printable(row.text));
        EXPECT_EQ(EndsInsideCharacter(row.text), row.inside);
    }
}

// Texts that are nearly a configuration, and texts that are not, from one fixed seed.
class RandomTexts {
public:
    explicit RandomTexts(unsigned seed) : random_(seed) {}

    std::string Next() {
        std::vector<std::string> parts;
        isOdd_ = Below(2) == 0;
        if (Below(4) != 0) {
            AppendProlog(parts);
            AppendElement(parts, 0);
            AppendContent(parts, 4);
            for (std::size_t damage = Below(3); damage > 0; --damage) {
                Damage(parts);
            }
        } else {
            for (std::size_t left = 1 + Below(25); left > 0; --left) {
                parts.push_back(Token());
            }
        }
        std::string text;
        for (const std::string& part : parts) {
            text += part;
        }
        return text;
    }

private:
    std::size_t Below(std::size_t limit) { return random_() % limit; }

    template <std::size_t n>
    std::string Pick(const std::string (&choices)[n]) {
        return choices[Below(n)];
    }

    // Every other text is an odd one, made of ordinary and odd parts.
    template <std::size_t n, std::size_t m>
    std::string Pick(const std::string (&ordinary)[n], const std::string (&odd)[m]) {
        return isOdd_ && Below(3) == 0 ? Pick(odd) : Pick(ordinary);
    }

    void AppendProlog(std::vector<std::string>& parts) {
        static const std::string ordinary[] = {
            "",
            "\xEF\xBB\xBF",
            "<?xml version='1.0'?>",
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=yes ?>\n",
            "<?xml encoding='ISO-8859-1'?>",
            "<?xml encoding=utf8?>",
        };
        static const std::string odd[] = {
            "<!-- <?xml?> --><?xml encoding=''?>",
            "<?xml encoding='&#85;TF-8'?>",
            "<?xml encoding='&'?>",
            "<?xml version=1.0'?>",
            "<?xml version='&#1'?>",
            "<?xml encoding='&#x;UTF-8'?>",
        };
        parts.push_back(Pick(ordinary, odd));
    }

    void AppendElement(std::vector<std::string>& parts, std::size_t level) {
        static const std::string begins[] = {"<"};
        static const std::string oddBegins[] = {"<\xEF\xBB\xBF", "<\xEF\xBF\xBE\n"};
        static const std::string names[] = {"a", "job", "_x", "\xC3\xA4"};
        const std::string name = Pick(names);
        parts.push_back(Pick(begins, oddBegins) + name);
        AppendAttributes(parts);
        if (level > 6 || Below(4) == 0) {
            parts.emplace_back("/>");
            return;
        }
        parts.emplace_back(">");
        for (std::size_t left = Below(4); left > 0; --left) {
            if (Below(2) == 0) {
                AppendElement(parts, level + 1);
            } else {
                AppendContent(parts, 3);
            }
        }
        parts.push_back("</" + name + ">");
    }

    void AppendAttributes(std::vector<std::string>& parts) {
        static const std::string names[] = {" b", "\nname ", " \xEF\xBB\xBFtype"};
        static const std::string values[] = {"=bare",       "='<c>'",    "=\"it's />\"",
                                             "='\xC3\xA4'", "= '&amp;'", "='&#65;'"};
        static const std::string odd[] = {"='&#x'",  "=\"x41;\"",   "='&#<c>'",      "=\"#6;'\"",
                                          "='\xC3'", "='\xE2\r\n'", "=\"\xF0\r\n\"", "=a'"};
        for (const std::string& name : names) {
            if (Below(4) == 0) {
                parts.push_back(name);
                parts.push_back(Pick(values, odd));
            }
        }
    }

    void AppendContent(std::vector<std::string>& parts, std::size_t limit) {
        static const std::string contents[] = {
            "text",         " ",    "\n", "<!-- <c> -->", "<![CDATA[<c>]]>", "<?other?>",
            "\xE2\x82\xAC", "<!c>",
        };
        static const std::string odd[] = {
            "&#x", "x41;", "\xF0\r\n", "\xC3", "<?xml version='&#'?>", "\r\n", "\xEF\xBF\xBF",
        };
        for (std::size_t left = Below(limit); left > 0; --left) {
            parts.push_back(Pick(contents, odd));
        }
    }

    void Damage(std::vector<std::string>& parts) {
        const std::size_t place = Below(parts.size());
        switch (Below(4)) {
            case 0:
                parts[place] = Token();
                break;
            case 1:
                parts[place].resize(Below(parts[place].size() + 1));
                break;
            default:
                parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(place), Token());
                break;
        }
    }

    std::string Token() {
        static const std::string tokens[] = {
            "<a>",
            "</a>",
            "<b c='d'>",
            "</b>",
            "<c/>",
            "<a ",
            "<",
            ">",
            "/",
            "/>",
            "=",
            "'",
            "\"",
            " b=",
            " b='",
            " b=\"",
            "<!--",
            "-->",
            "<!",
            "<![CDATA[",
            "]]>",
            "<?xml",
            "?>",
            "?",
            "<?xml encoding='latin1'?>",
            "<?xml version='1.0'?>",
            " encoding=",
            "'UTF-8'",
            "''",
            "\"utf8\"",
            "'ISO-8859-1'",
            "text",
            "x",
            "1",
            ";",
            " ",
            "\n",
            "\t",
            "\r",
            "\r\n",
            "&",
            "&amp;",
            "&#",
            "&#x",
            "&#65;",
            "&#x41;",
            "&#x;",
            "#1;",
            "x1;",
            "&#0;",
            "\xC3",
            "\xE4",
            "\xF0",
            "\xEF",
            "\xEF\xBB\xBF",
            "\xEF\xBF\xBE",
            "\xEF\xBF\xBF",
            "\xA4",
            "<\xEF\xBB\xBF",
            "\x7F",
            "\0"s,
            "' encoding='&#85;TF-8",
        };
        return Pick(tokens);
    }

    std::mt19937 random_;
    bool isOdd_ = false;
};

struct Tally {
    int accepted = 0;
    int acceptedNested = 0;
    int refused = 0;
    int cut = 0;
};

void CompareWithTinyXml(const TemporaryDirectory& directory, const std::string& text,
                        Tally& tally) {
    const std::string read = AsRead(text);
    const XmlOutline outline = OutlineXml(read, NoLimit);
    std::filesystem::remove(
        directory.Path("file"));  // a new file is written faster than an old one
    const std::string path = directory.Write("file", text);
    const std::string problem = InspectConfigFile(path.c_str());
    ASSERT_EQ(problem,
              outline.isUtf8 && EndsInsideCharacter(read) ? "file ends inside a character" : "");
    if (!problem.empty()) {
        ++tally.cut;
        return;  // TinyXML would step over the end
    }
    const Verdict verdict = VerdictOnFile(path);
    ASSERT_GE(outline.depth, verdict.depth);
    ASSERT_GE(outline.attributes, verdict.attributes);
    if (verdict.accepted) {
        ASSERT_EQ(outline.depth, verdict.depth);
        ASSERT_EQ(outline.attributes, verdict.attributes);
        ASSERT_EQ(outline.end, EndByTinyXml(read));
    }
    if (read[0] != '\0') {
        ASSERT_EQ(VerdictOnMemory(read), verdict) << "TinyXML reads what is behind the text";
    }
    ++(verdict.accepted ? tally.accepted : tally.refused);
    tally.acceptedNested += verdict.accepted && verdict.depth > 1 ? 1 : 0;
}

TEST(XmlOutlineTest, MirrorsTinyXmlForRandomTexts) {
    constexpr unsigned seed = 20011;
    constexpr int count = 4000;
    std::cout << "seed " << seed << ", " << count << " texts\n";
    const TemporaryDirectory directory;
    RandomTexts texts(seed);
    Tally tally;
    for (int i = 0; i < count && !HasFatalFailure(); ++i) {
        const std::string text = texts.Next();
        SCOPED_TRACE("text " + std::to_string(i) + ": " + Printable(text));
        CompareWithTinyXml(directory, text, tally);
    }
    std::cout << tally.accepted << " accepted, " << tally.acceptedNested << " of them nested, "
              << tally.refused << " refused, " << tally.cut << " cut inside a character\n";
    EXPECT_GT(tally.acceptedNested, count / 10);
    EXPECT_GT(tally.refused, count / 10);
    EXPECT_GT(tally.cut, count / 500);
}

}  // namespace kennly::test
