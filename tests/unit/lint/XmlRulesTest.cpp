#include "lint/XmlRules.h"

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

using XmlRulesTest = LintTest;

TEST_F(XmlRulesTest, AdvisesByWhatTheAmpersandBegins) {
    EXPECT_THAT(Those(WithRemedy(RemedyOf("true &lt; &lt x")), "bare-ampersand").at(0).text,
                HasSubstr("write a ; behind the entity"));
    EXPECT_THAT(Those(WithRemedy(RemedyOf("true &ltx")), "bare-ampersand").at(0).text,
                HasSubstr("write &amp; for each &"));
}

TEST_F(XmlRulesTest, FindsWhatTheParserDropsOrKeepsUnlikeOthers) {
    ExpectTraps({
        {"two bare ampersands", "bare-ampersand", WithCheck(CheckOf("test -d / && true")),
         WithCheck(CheckOf("test -d / &amp;&amp; true"))},
        {"one at the end", "bare-ampersand", WithRemedy(RemedyOf("true &")),
         WithRemedy(RemedyOf("true &#38;"))},
        {"an unknown entity", "bare-ampersand", WithRemedy(RemedyOf("true ?x=1&y=2")),
         WithRemedy(RemedyOf("true ?x=1&#x26;y=2"))},
        {"an entity without its end", "bare-ampersand", WithRemedy(RemedyOf("true &lt")),
         WithRemedy(RemedyOf("true &lt;&gt;&quot;&apos;"))},
        {"a line end in a value", "line-end-in-value", WithCheck(CheckOf("true\ntrue")),
         WithCheck(CheckOf("true; true"))},
        {"an entity without quotes", "unquoted-entity",
         WithCheck("<check type='CheckCommandResult' delay='1'><param value=a&amp;b></param>"
                   "</check>"),
         WithCheck("<check type='CheckCommandResult' delay='1'><param value='a&amp;b'></param>"
                   "</check>")},
        {"an ampersand in quotes", "bare-ampersand",
         WithCheck("<check type='CheckCommandResult' delay='1'><param value='a&b'></param>"
                   "</check>"),
         WithCheck("<check type='CheckCommandResult' delay='1'><param value=a&b></param>"
                   "</check>")},
        {"a tab in a value", "line-end-in-value", WithCheck(CheckOf("test\t-d /")),
         WithCheck(CheckOf("test -d /"))},
    });
}

TEST_F(XmlRulesTest, FindsJobsThatNobodySees) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    const std::string other = JobOf(GoodCheck + GoodRemedy, "name='b'");
    ExpectTraps({
        {"an end tag too many", "second-root", RootOf(job + "</kennly>" + other),
         RootOf(job + other)},
        {"a second root", "second-root", RootOf(job) + RootOf(other), RootOf(job + other)},
        {"text behind the root", "text-after-root", RootOf(job) + "x" + RootOf(other),
         RootOf(job) + "<!-- x -->"},
        {"a NUL behind the root", "text-after-root",
         RootOf(job) + std::string(1, '\0') + RootOf(other), RootOf(job) + "\n"},
        {"a job of other letters in a comment", "job-in-comment", RootOf("<!-- <JOB/> -->"),
         RootOf("<!-- <jobs/> -->")},
        {"a blank before the name", "unknown-element", RootOf("< job name='a'/>"), RootOf(job)},
        {"a < in the text", "unknown-element", RootOf("a < b <job/>"), RootOf("a &lt; b")},
        {"a tag without a name", "unknown-element", RootOf("<>"), RootOf("<?a ?><!b>")},
        {"a job in a group", "wrapped-job", RootOf("<group>" + job + "</group>"), RootOf(job)},
        {"a job in a job", "wrapped-job", RootOf(JobOf(GoodCheck + GoodRemedy + other)),
         RootOf(job + other)},
        {"a job as the root", "job-as-root", job, RootOf(job)},
        {"a job in a comment", "job-in-comment", RootOf("<!-- " + job + " -->"), RootOf(job)},
        {"a job in a section of text", "job-in-cdata", RootOf("<![CDATA[" + job + "]]>"),
         RootOf(job)},
        {"a prefix", "prefixed-element", RootOf("<k:job name='a'/>"), RootOf(job)},
        {"a prefix in a job", "prefixed-element",
         RootOf(JobOf(GoodCheck + GoodRemedy + "<k:param/>")), RootOf(job)},
        {"a name that means nothing", "unknown-element", RootOf("<jobs/>"), RootOf(job)},
        {"one in a check", "unknown-element",
         WithCheck("<check type='CheckCommandResult'><parm value='x'/></check>"), RootOf(job)},
    });
}

TEST_F(XmlRulesTest, FindsWhatOtherParsersRefuse) {
    ExpectTraps({
        {"no quotes", "not-well-formed", RootOf("", "maxloaderrors=3"),
         RootOf("", "maxloaderrors='3'")},
        {"less than", "not-well-formed", WithCheck(CheckOf("cat </etc/passwd")),
         WithCheck(CheckOf("cat &lt;/etc/passwd"))},
        {"no blank", "not-well-formed", "<kennly maxloaderrors='3'x='y'/>",
         "<kennly maxloaderrors='3' x='y'/>"},
        {"hyphens in a comment", "not-well-formed", RootOf("<!-- a -- b -->"),
         RootOf("<!-- a - b -->")},
        {"hyphens in a comment before the root", "not-well-formed", "<!-- a -- b -->" + RootOf(""),
         "<!-- a - b -->" + RootOf("")},
        {"a byte of Latin-1", "not-well-formed", RootOf("<!-- \xE4 -->"),
         RootOf("<!-- \xC3\xA4 -->")},
        {"a byte of Latin-1 in a file that says so", "not-well-formed", RootOf("<!-- \xE4 -->"),
         "<?xml version='1.0' encoding='ISO-8859-1'?>" + RootOf("<!-- \xE4 -->")},
    });
}

TEST_F(XmlRulesTest, SaysOnlyOnceThatAnElementIsNotRead) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    EXPECT_THAT(Those(RootOf("<group>" + job + "</group>"), "unknown-element"), SizeIs(1));
    EXPECT_THAT(Those(RootOf("<group>" + job + job + "</group>"), "wrapped-job"), SizeIs(2));
}

TEST_F(XmlRulesTest, PointsAtThePlaceWhateverTheFileLooksLike) {
    struct Row {
        const char* name;
        std::string content;
        const char* code;
        int line;
        int column;
    };
    const std::vector<Row> rows = {
        {"line ends of DOS", "<k>\r\n  <job\r\n    Name='a'/>\r\n</k>", "unknown-attribute", 3, 5},
        {"tabs", "<k>\n\t\t<job\tName='a'/></k>", "unknown-attribute", 2, 8},
        {"UTF-8 that is declared",
         "<?xml version='1.0' encoding='UTF-8'?><k>\n<job name='\xC3\xA4\xE2\x82\xAC' "
         "Foo='a'/></k>",
         "unknown-attribute", 2, 16},
        {"UTF-8 that is not", "<k>\n<job name='\xC3\xA4\xE2\x82\xAC' Foo='a'/></k>",
         "unknown-attribute", 2, 16},
        {"a mark at the beginning", "\xEF\xBB\xBF<k Foo='a'/>", "unknown-attribute", 1, 4},
        {"Latin-1", "<k>\n<job name='\xE4' Foo='a'/></k>", "unknown-attribute", 2, 15},
        {"a value without quotes", "<k>\n<job name=a Foo=b /></k>", "unknown-attribute", 2, 13},
        {"blanks around the =", "<k a = 'b &c'/>", "bare-ampersand", 1, 11},
        {"an element in one line with others", "<k><job name='a'/><x/></k>", "unknown-element", 1,
         19},
        {"a line end in a value", "<k a='1\r\n2' Foo='x'/>", "line-end-in-value", 1, 8},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::vector<Finding> found = Those(row.content, row.code);
        ASSERT_FALSE(found.empty());
        EXPECT_EQ(found.back().where.line, row.line);
        EXPECT_EQ(found.back().where.column, row.column);
    }
}

TEST_F(XmlRulesTest, SaysWhereAndWhatIsLeft) {
    const std::string config =
        "<?xml version='1.0' encoding='UTF-8'?>\n"
        "<kennly>\n"
        "\t<job name='\xC3\xA4' enabled='true'><check type='CheckCommandResult' delay='1'>"
        "<param value=\"a && b\"/></check>\n" +
        GoodRemedy + "</job></kennly>";
    const std::vector<Finding> found = Those(config, "bare-ampersand");
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0].where.line, 3);
    EXPECT_EQ(found[0].where.column, 90);
    EXPECT_THAT(found[0].text, HasSubstr("\"a  b\""));
}

TEST_F(XmlRulesTest, CountsTheJobsBehindTheRoot) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    const std::vector<Finding> found =
        Those(RootOf("") + "<x><job/></x>" + job + job, "second-root");
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_THAT(found[0].text, HasSubstr("(3 jobs)"));
}

}  // namespace kennly::test
