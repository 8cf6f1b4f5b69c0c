#include "lint/AttributeRules.h"

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::SizeIs;

using AttributeRulesTest = LintTest;

std::string JobWith(const std::string& attribute) {
    return RootOf(JobOf(GoodCheck + GoodRemedy, "name='a' " + attribute));
}

TEST_F(AttributeRulesTest, FindsAttributesThatNobodyReads) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    ExpectTraps({
        {"MaxErrors", "unknown-attribute", JobWith("MaxErrors='1'"), JobWith("maxerrors='1'")},
        {"Enabled", "unknown-attribute",
         RootOf("<job name='a' Enabled='true'>" + GoodCheck + GoodRemedy + "</job>"), RootOf(job)},
        {"Name", "unknown-attribute",
         RootOf("<job Name='a' enabled='true'>" + GoodCheck + GoodRemedy + "</job>"), RootOf(job)},
        {"Delay", "unknown-attribute", WithCheck(CheckOf("true", "delay='1' Delay='1'")),
         WithCheck(CheckOf("true"))},
        {"runActionResult", "unknown-attribute",
         WithCheck(CheckOf("true", "delay='1' runActionResult='1'")),
         WithCheck(CheckOf("true", "delay='1' runactionresult='1'"))},
        {"blockAction", "unknown-attribute", WithRemedy(RemedyOf("true", "blockAction='/run/x'")),
         WithRemedy(RemedyOf("true", "blockaction='/run/x'"))},
        {"one of the root", "unknown-attribute", RootOf("", "maxerrors='1'"),
         RootOf("", "maxloaderrors='1'")},
        {"one of a param", "unknown-attribute",
         WithCheck("<check type='CheckCommandResult' delay='1'><param value='true' Value='x'/>"
                   "</check>"),
         WithCheck(GoodCheck)},
    });
}

TEST_F(AttributeRulesTest, FindsNumbersThatAreReadAsOthers) {
    struct Row {
        const char* text;
        const char* code;
        const char* read;
    };
    const std::vector<Row> rows = {
        {"5m", "not-a-number", "5"},
        {"1.5", "not-a-number", "1"},
        {"0x10", "not-a-number", "0"},
        {" 30", "not-a-number", "30"},
        {"30 ", "not-a-number", "30"},
        {"", "not-a-number", "0"},
        {"ten", "not-a-number", "0"},
        {"-", "not-a-number", "0"},
        {"2147483648", "number-too-large", "2147483647"},
        {"-2147483649", "number-too-large", "-2147483648"},
        {"99999999999999999999", "number-too-large", "2147483647"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        for (const char* const attribute : {"delay", "runactionresult"}) {
            const auto found =
                Those(WithCheck("<check type='CheckCommandResult' " + std::string(attribute) +
                                "='" + row.text + "'><param value='true'/></check>"),
                      row.code);
            ASSERT_THAT(found, SizeIs(1));
            EXPECT_THAT(found[0].text, HasSubstr("is read as " + std::string(row.read) + ":"));
        }
        EXPECT_THAT(Those(JobWith("maxerrors='" + std::string(row.text) + "'"), row.code),
                    SizeIs(1));
        EXPECT_THAT(Those(RootOf("", "maxloaderrors='" + std::string(row.text) + "'"), row.code),
                    SizeIs(1));
        EXPECT_THAT(
            Those(WithRemedy(RemedyOf("true", "delay='" + std::string(row.text) + "'")), row.code),
            SizeIs(1));
    }
}

TEST_F(AttributeRulesTest, TakesPlainNumbersAsTheyAre) {
    for (const char* const number : {"0", "00", "007", "-0", "+5", "-5", "2147483647",
                                     "-2147483648", "00000000000000000001"}) {
        SCOPED_TRACE(number);
        const std::string config = JobWith("maxerrors='" + std::string(number) + "'");
        EXPECT_THAT(Those(config, "not-a-number"), SizeIs(0));
        EXPECT_THAT(Those(config, "number-too-large"), SizeIs(0));
    }
}

TEST_F(AttributeRulesTest, OnlyNotesBlanksAroundANumberThatIsReadAsItWasMeant) {
    for (const char* const number : {" 30", "30 ", "\t30"}) {
        SCOPED_TRACE(number);
        const auto found =
            Those(JobWith("maxerrors='" + std::string(number) + "'"), "not-a-number");
        ASSERT_THAT(found, SizeIs(1));
        EXPECT_EQ(found[0].severity, Severity::Note);
    }
    EXPECT_EQ(Those(JobWith("maxerrors='5m'"), "not-a-number").at(0).severity, Severity::Warning);
}

TEST_F(AttributeRulesTest, LeavesWhatIsForOtherProgramsAlone) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    for (const char* const attribute :
         {"xmlns='https://example.org'", "xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'",
          "xsi:noNamespaceSchemaLocation='kennly.xsd'", "xml:lang='en'"}) {
        EXPECT_THAT(Examine(RootOf(job, attribute)).findings, SizeIs(0)) << attribute;
    }
    EXPECT_THAT(Those(RootOf(job, "lang='en'"), "unknown-attribute"), SizeIs(1));
}

TEST_F(AttributeRulesTest, NamesTheAttributesThatThereAre) {
    const auto found =
        Those(WithRemedy(RemedyOf("true", "blockacton='/run/x'")), "unknown-attribute");
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_THAT(found[0].text, HasSubstr("write one of type, delay, blockaction, blockaction2"));
}

TEST_F(AttributeRulesTest, NamesTheLetterCaseThatCounts) {
    const auto found = Those(JobWith("MaxErrors='1'"), "unknown-attribute");
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_THAT(found[0].text, HasSubstr("write maxerrors"));
}

}  // namespace kennly::test
