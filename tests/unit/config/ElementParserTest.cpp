#include "config/ElementParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <limits>
#include <string>

#include "action/DogExecuteAction.h"
#include "support/RecordedLog.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ElementParserTest : public ::testing::Test {
protected:
    ElementParserTest() { ForgetLog(); }

    // The first element of `text`, valid until the next call.
    const TiXmlElement& Element(const std::string& text) {
        document.Clear();
        document.Parse(text.c_str());
        EXPECT_FALSE(document.Error()) << document.ErrorDesc() << ": " << text;
        return *document.FirstChildElement();
    }

    std::unique_ptr<DogWatch> Check(const std::string& text) {
        return ParseCheck("web", Element(text));
    }
    std::unique_ptr<DogAction> Remedy(const std::string& text) {
        return ParseRemedy("web", Element(text));
    }
    std::unique_ptr<DogCheckCommandWatch> CommandCheck(const std::string& text) {
        std::unique_ptr<DogWatch> check = Check(text);
        auto* const command = dynamic_cast<DogCheckCommandWatch*>(check.get());
        if (command == nullptr) {
            throw std::runtime_error("no command check: " + text);
        }
        check.release();
        return std::unique_ptr<DogCheckCommandWatch>(command);
    }

private:
    TiXmlDocument document;
};

TEST_F(ElementParserTest, ComparesElementNamesInAnyCase) {
    for (const char* const text : {"<job/>", "<JOB/>", "<Job/>", "<jOb/>"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(IsNamed(Element(text), "job"));
    }
    for (const char* const text : {"<jobs/>", "<jo/>", "<x:job/>"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(IsNamed(Element(text), "job"));
    }
}

TEST_F(ElementParserTest, ReadsANumberOrWhatStandsForAnAbsentOne) {
    const TiXmlElement& element =
        Element("<a n='12abc' empty='' none='abc' N='7' high='4294967296' low='-2147483649'/>");
    EXPECT_EQ(NumberAttribute(element, "n", 5), 12);
    EXPECT_EQ(NumberAttribute(element, "N", 5), 7);
    EXPECT_EQ(NumberAttribute(element, "empty", 5), 0);
    EXPECT_EQ(NumberAttribute(element, "none", 5), 0);
    EXPECT_EQ(NumberAttribute(element, "absent", 5), 5);
    EXPECT_EQ(NumberAttribute(element, "High", -1), -1);
    EXPECT_EQ(NumberAttribute(element, "high", 5), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(NumberAttribute(element, "low", 5), std::numeric_limits<std::int32_t>::min());
}

TEST_F(ElementParserTest, KnowsTheCheckTypesInAnyCase) {
    EXPECT_EQ(CheckTypeFromName("CheckCommandResult"), 1);
    EXPECT_EQ(CheckTypeFromName("CheckForFileChange"), 2);
    EXPECT_EQ(CheckTypeFromName("CheckForNoFileChange"), 3);
    EXPECT_EQ(CheckTypeFromName("CheckSocketListening"), 4);
    EXPECT_EQ(CheckTypeFromName("CheckListeningSocketResponse"), 5);
    EXPECT_EQ(CheckTypeFromName("checkcommandresult"), 1);
    EXPECT_EQ(CheckTypeFromName("CHECKLISTENINGSOCKETRESPONSE"), 5);
    for (const char* const name :
         {"", "Check", "CheckCommandResults", " CheckCommandResult", "Execute", "1"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(CheckTypeFromName(name), 0);
    }
}

TEST_F(ElementParserTest, KnowsTheRemedyTypesInAnyCase) {
    EXPECT_EQ(RemedyTypeFromName("Execute"), 1);
    EXPECT_EQ(RemedyTypeFromName("ExecuteAlways"), 2);
    EXPECT_EQ(RemedyTypeFromName("eXECUTE"), 1);
    EXPECT_EQ(RemedyTypeFromName("executealways"), 2);
    for (const char* const name :
         {"", "Exec", "Execute ", "ExecuteAlwaysNow", "CheckCommandResult"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(RemedyTypeFromName(name), 0);
    }
}

TEST_F(ElementParserTest, MakesTheCheckThatTheTypeStandsFor) {
    const struct {
        const char* name;
        std::int32_t type;
    } rows[] = {
        {"CheckCommandResult", 1},           {"CheckForFileChange", 2},
        {"CheckForNoFileChange", 3},         {"CheckSocketListening", 4},
        {"CHECKlisteningSOCKETresponse", 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto check = Check("<check type='" + std::string(row.name) + "' delay='30'/>");
        ASSERT_NE(check, nullptr);
        EXPECT_EQ(check->type, row.type);
        EXPECT_EQ(check->jobName, "web");
        EXPECT_EQ(check->delay, 30);
        EXPECT_TRUE(check->firstCall);
        EXPECT_EQ(dynamic_cast<DogCheckCommandWatch*>(check.get()) != nullptr, row.type == 1);
    }
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ElementParserTest, MakesTheRemedyThatTheTypeStandsFor) {
    const struct {
        const char* name;
        std::int32_t type;
    } rows[] = {{"Execute", 1}, {"EXECUTEALWAYS", 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto remedy = Remedy("<remedy type='" + std::string(row.name) +
                                   "' delay='5' blockaction='/a' blockaction2='/b c'"
                                   " blockaction3='/d'/>");
        ASSERT_NE(dynamic_cast<DogExecuteAction*>(remedy.get()), nullptr);
        EXPECT_EQ(remedy->type, row.type);
        EXPECT_EQ(remedy->jobName, "web");
        EXPECT_EQ(remedy->delay, 5);
        EXPECT_EQ(remedy->blockAction, "/a");
        EXPECT_EQ(remedy->blockAction2, "/b c");
        EXPECT_EQ(remedy->blockAction3, "/d");
    }
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ElementParserTest, UsesDefaultsForAbsentAttributes) {
    const auto check = CommandCheck("<check type='CheckCommandResult'/>");
    EXPECT_EQ(check->delay, 0);
    EXPECT_TRUE(check->anyNonZeroFails);
    EXPECT_THAT(check->params, IsEmpty());

    const auto remedy = Remedy("<remedy type='Execute'/>");
    ASSERT_NE(remedy, nullptr);
    EXPECT_EQ(remedy->delay, 0);
    EXPECT_EQ(remedy->blockAction, "");
    EXPECT_EQ(remedy->blockAction2, "");
    EXPECT_EQ(remedy->blockAction3, "");
    EXPECT_THAT(remedy->params, IsEmpty());
}

TEST_F(ElementParserTest, ComparesAttributeNamesExactly) {
    const auto check =
        CommandCheck("<check type='CheckCommandResult' Delay='3' RunActionResult='4'/>");
    EXPECT_EQ(check->delay, 0);
    EXPECT_TRUE(check->anyNonZeroFails);

    const auto remedy = Remedy(
        "<remedy type='Execute' DELAY='3' blockAction='/a' Blockaction2='/b'"
        " BLOCKACTION3='/c'><param Value='x'/></remedy>");
    ASSERT_NE(remedy, nullptr);
    EXPECT_EQ(remedy->delay, 0);
    EXPECT_EQ(remedy->blockAction + remedy->blockAction2 + remedy->blockAction3, "");
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("remedy param missing its value in job web")));
}

TEST_F(ElementParserTest, ReadsTheStatusThatFailsForACommandCheckOnly) {
    const struct {
        const char* text;
        std::int32_t status;
    } rows[] = {{"2", 2}, {"0", 0}, {"", 0}, {"-1", -1}, {"3x", 3}, {"none", 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto check = CommandCheck("<check type='CheckCommandResult' runactionresult='" +
                                        std::string(row.text) + "'/>");
        EXPECT_FALSE(check->anyNonZeroFails);
        EXPECT_EQ(check->runActionResult, row.status);
    }
    EXPECT_NE(Check("<check type='CheckForFileChange' runactionresult='2'/>"), nullptr);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ElementParserTest, KeepsParamsByteForByteInTheirOrder) {
    const std::string params =
        "<param value='first'/>text<!-- c --><other value='x'/><PARAM value=''/>"
        "<Param name='n' value='  a  &lt;b&gt; \"c\"\td\n'/><param value='first'><param "
        "value='in'/>"
        "</param>";
    const auto expected = ElementsAre("first", "", "  a  <b> \"c\"\td\n", "first");

    EXPECT_THAT(Check("<check type='CheckForFileChange'>" + params + "</check>")->params, expected);
    EXPECT_THAT(Remedy("<remedy type='Execute'>" + params + "</remedy>")->params, expected);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ElementParserTest, LogsAndLeavesOutEachParamWithoutAValue) {
    const std::string params = "<param value='a'/><param/><param name='x'/><param value='b'/>";

    EXPECT_THAT(Check("<check type='CheckCommandResult'>" + params + "</check>")->params,
                ElementsAre("a", "b"));
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("check param missing its value in job web"),
                                             Error("check param missing its value in job web")));
    ForgetLog();

    EXPECT_THAT(Remedy("<remedy type='Execute'>" + params + "</remedy>")->params,
                ElementsAre("a", "b"));
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("remedy param missing its value in job web"),
                                             Error("remedy param missing its value in job web")));
}

TEST_F(ElementParserTest, RefusesACheckOrRemedyWithoutAType) {
    EXPECT_EQ(Check("<check Type='CheckCommandResult'><param/></check>"), nullptr);
    EXPECT_EQ(Remedy("<remedy Type='Execute'><param/></remedy>"), nullptr);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("check type missing in job web"),
                                             Error("remedy type missing in job web")));
}

TEST_F(ElementParserTest, RefusesACheckOrRemedyOfAnUnknownType) {
    EXPECT_EQ(Check("<check type='Foo'><param/></check>"), nullptr);
    EXPECT_EQ(Check("<check type='Execute'/>"), nullptr);
    EXPECT_EQ(Check("<check type=''/>"), nullptr);
    EXPECT_EQ(Remedy("<remedy type='100%s Foo'><param/></remedy>"), nullptr);
    EXPECT_EQ(Remedy("<remedy type='CheckCommandResult'/>"), nullptr);

    EXPECT_THAT(RecordedLines(),
                ElementsAre(Error("check type Foo invalid in job web"),
                            Error("check type Execute invalid in job web"),
                            Error("check type  invalid in job web"),
                            Error("remedy type 100%s Foo not valid in job web"),
                            Error("remedy type CheckCommandResult not valid in job web")));
}

}  // namespace kennly::test
