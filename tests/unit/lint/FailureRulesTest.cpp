#include "lint/FailureRules.h"

#include <sys/stat.h>

#include "unit/lint/LintTest.h"

namespace kennly::test {

using namespace std::string_literals;

using ::testing::HasSubstr;
using ::testing::SizeIs;

class FailureRulesTest : public LintTest {
protected:
    void ExpectOnly(const LintReport& report, const char* code, int line, int column,
                    const std::string& text) {
        ASSERT_THAT(report.findings, SizeIs(1));
        const Finding& finding = report.findings.front();
        EXPECT_EQ(finding.severity, Severity::Error);
        EXPECT_EQ(finding.code, code);
        EXPECT_EQ(finding.where.line, line);
        EXPECT_EQ(finding.where.column, column);
        EXPECT_THAT(finding.text, HasSubstr(text));
    }
};

TEST_F(FailureRulesTest, SaysWhereAndWhyAFileDoesNotLoad) {
    struct Row {
        const char* name;
        std::string content;
        int line;
        int column;
        const char* reason;
        const char* advice;
    };
    const std::vector<Row> rows = {
        {"empty", "", 1, 1, "Error document empty.", "the file is empty"},
        {"blank", " \n", 1, 1, "Error document empty.", "the file is empty"},
        {"text first", "\n  x<kennly/>", 2, 3, "Error document empty.", "text stands before"},
        {"UTF-16", "\xFF\xFE<\0k\0/\0>\0"s, 1, 1, "Error document empty.", "UTF-16"},
        {"UTF-16, the other", "\xFE\xFF\0<\0k\0/\0>"s, 1, 1, "Error document empty.", "UTF-16"},
        {"NUL", "\0<kennly/>"s, 1, 1, "Error document empty.", "NUL"},
        {"DOCTYPE", "<!DOCTYPE k [<!ENTITY a \"b\">]>\n<kennly/>", 1, 1,
         "no element in the document", "DOCTYPE"},
        {"comment", "\n<!-- <kennly/>", 2, 1, "no element in the document", "no end"},
        {"lone", "<", 1, 1, "no element in the document", "root element"},
        {"blank name", " < r></r>", 1, 2, "no element in the document", "begins with a blank"},
        {"comment only", "<!-- -->", 1, 1, "no element in the document", "root element"},
        {"twice", "<kennly a='1'\n a='2'/>", 2, 2, "Error parsing Element.", "stands twice"},
        {"no value", "<kennly a/>", 1, 10, "Error reading Attributes.", "has no value"},
        {"another end", "<kennly>\n <job>\n </jab>", 3, 2, "Error reading end tag.", "not closed"},
        {"no end of a comment", "<kennly>\n <job/>\n <!-- <job/>\n</kennly>", 3, 2,
         "Error reading Element value.", "write -->"},
        {"no end of a section", "<kennly>\n <![CDATA[\n</kennly>", 2, 2,
         "Error reading Element value.", "write ]]>"},
        {"no end of quotes", "<kennly>\n <job name='a>\n</kennly>", 2, 7, "Error parsing Element.",
         "the quotes of a value"},
        {"a bare path", "<kennly>\n <param value=/etc/x></kennly>", 2, 16, "Error: empty tag.",
         "write the value in quotes"},
        {"no such number", "<kennly>\n <param value='a &#38 b'/></kennly>", 2, 18,
         "Error parsing Element.", "as in &#38;"},
        {"no number", "<kennly>\n <param value='&#xg;'/></kennly>", 2, 16, "Error parsing Element.",
         "as in &#38;"},
        {"a number elsewhere", "<kennly a='1' a='2'>\n <b c='&#38'/></kennly>", 1, 15,
         "Error parsing Element.", "stands twice"},
        {"a NUL inside", "<kennly>\n <job \0/></kennly>"s, 2, 7, "Error reading Attributes.",
         "NUL byte"},
        {"no end of the declaration", "\n<?xml version='1.0'\n<kennly/>", 2, 1,
         "no element in the document", "write ?>"},
        {"an end tag first", "<!-- a -->\n</kennly>", 2, 1, "no element in the document",
         "remove it"},
        {"text behind a comment", "<!-- <!DOCTYPE [ -->\n x <kennly/>", 2, 2,
         "no element in the document", "text stands before"},
        {"cut", "<kennly>\n <job>", 2, 2, "Error reading Element value.", "not closed"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const LintReport report = Examine(row.content);
        ExpectOnly(report, "load-fails", row.line, row.column, row.advice);
        EXPECT_EQ(report.verdict.reason, row.reason);
        EXPECT_THAT(report.findings.front().text,
                    HasSubstr("config file failed to load, error: " + std::string(row.reason)));
    }
}

TEST_F(FailureRulesTest, SaysNothingOnceThatIsMended) {
    const std::vector<std::string> twins = {
        "\n  <kennly/>",
        "\xEF\xBB\xBF<kennly/>",
        "<!DOCTYPE k SYSTEM 'k.dtd'>\n<kennly/>",
        "\n<!-- --><kennly/>",
        " <r></r>",
        "<kennly maxloaderrors='1'/>",
        "<kennly>\n <!-- a -->\n</kennly>",
        "<kennly>\n <![CDATA[]]>\n</kennly>",
        "<kennly xml:lang='/etc/x'></kennly>",
        "<kennly xml:lang='a &#38; &#x26; b'/>",
        "\n<?xml version='1.0'?>\n<kennly/>",
        "<!-- <!DOCTYPE [ -->\n <kennly/>",
    };
    for (const std::string& twin : twins) {
        const LintReport report = Examine(twin);
        EXPECT_EQ(report.verdict.outcome, DaemonVerdict::Outcome::Loads) << twin;
        EXPECT_THAT(report.findings, SizeIs(0)) << twin;
    }
}

TEST_F(FailureRulesTest, SaysWhatTheParserIsNotGiven) {
    std::string deep;
    for (int i = 0; i < 600; ++i) {
        deep += "<a>";
    }
    ExpectOnly(Examine(deep), "load-fails", 0, 0, "elements nested too deep");
    ExpectOnly(Examine("<?xml version='1.0' encoding='UTF-8'?><k a='\xC3"), "load-fails", 0, 0,
               "cut short");

    ExpectOnly(Lint(directory.Path("config"), false, machine), "load-fails", 0, 0,
               "not a directory");
    ASSERT_EQ(mkfifo(directory.Path("fifo").c_str(), 0600), 0);
    ExpectOnly(Lint(directory.Path("fifo"), false, machine), "load-fails", 0, 0, "not a directory");
}

TEST_F(FailureRulesTest, SaysWhatTheDaemonSaysNothingOf) {
    const LintReport missing = Lint(directory.Path("none"), false, machine);
    ExpectOnly(missing, "cannot-examine", 0, 0, "missing");
    EXPECT_THAT(missing.verdict.lines, SizeIs(0));

    directory.Write("draft.xml", WithCheck(GoodCheck));
    const std::string path = directory.Path("draft.xml");
    const timespec times[] = {{0, 0}, {-1160660271, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const LintReport neverRead = Lint(path, false, machine);
    ExpectOnly(neverRead, "never-read", 0, 0, "touch the file");
    EXPECT_THAT(neverRead.verdict.lines, SizeIs(0));
    ASSERT_TRUE(directory.SetTime("draft.xml", 1'700'000'000));
    EXPECT_THAT(ExamineFile(path).findings, SizeIs(0)) << "touched, and there";
}

}  // namespace kennly::test
