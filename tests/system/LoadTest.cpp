#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

class LoadTest : public DaemonTest {
protected:
    /// Starts the daemon and expects that it refuses the file, but lives on and ends when told.
    void ExpectRefusal(const std::string& description) {
        StartDaemon();

        EXPECT_TRUE(WaitForLine(Error("Configuration file parse error")));
        StopDaemon();
        const std::vector<std::string> lines = Lines();
        ASSERT_GE(lines.size(), 3U);
        EXPECT_EQ(lines[0], Error("config file failed to load, error: " + description));
        EXPECT_EQ(lines[1], Error("Configuration file parse error"));
        EXPECT_EQ(lines.back(), Exit(0));
    }

    std::string InsidePath() const { return sandbox->PathInside(MainConfiguration); }
};

TEST_F(LoadTest, LogsEachFaultyItemAndRunsTheRest) {
    const std::string remedy = Remedy("true");
    const std::string check = Check("exit 1", "delay=\"1\"");
    const std::string noValue =
        "<check type=\"CheckCommandResult\" delay=\"1\"><param/>" + Param("exit 1") + "</check>";
    const std::string noRemedyValue =
        "<remedy type=\"Execute\"><param name=\"x\"/>" + Param("true") + "</remedy>";
    Configure(
        "<?xml version=\"1.0\"?>\n<!-- jobs -->\n" +
        Configuration(
            Job("first", check + remedy) + "<job enabled=\"true\">" + check + remedy + "</job>" +
            Job("first", check + Remedy("false")) + "<job name=\"off\" enabled=\"yes\">" + check +
            remedy + "</job>" + "<job name=\"unset\">" + check + remedy + "</job>" +
            Job("typeless", "<check>" + Param("x") + "</check>" + remedy) +
            Job("unknown", "<check type=\"Foo\"/>" + remedy) +
            Job("remedy-typeless", check + "<remedy/>") +
            Job("remedy-unknown", check + "<remedy type=\"Bar\"/>") + Job("bare", "") +
            Job("checkless", remedy) + Job("twice", check + check + remedy + Remedy("false")) +
            Job("second-chance", "<check type=\"Foo\"/>" + check + remedy) +
            Job("valueless", noValue + noRemedyValue) + "<other/>stray text" +
            "<JOB name=\"last\" enabled=\"TRUE\"><REMEDY type=\"execute\"><PARAM value=\"true\"/>"
            "</REMEDY>" +
            check + "</JOB>"));

    StartDaemon();

    for (const char* const name : {"first", "twice", "second-chance", "valueless", "last"}) {
        EXPECT_TRUE(WaitForLine(RemedyRuns(name, "true"))) << name;
    }
    StopDaemon();
    std::vector<std::string> lines = Lines();
    ASSERT_GE(lines.size(), 18U);
    lines.resize(18);
    EXPECT_THAT(
        lines,
        ElementsAre(
            Error("job name missing"), Error("job name already exists - ignoring job: first"),
            Debug("job not enabled - ignoring job: off"),
            Debug("job not enabled - ignoring job: unset"),
            Error("check type missing in job typeless"), Error("no check defined in job: typeless"),
            Error("check type Foo invalid in job unknown"),
            Error("no check defined in job: unknown"),
            Error("remedy type missing in job remedy-typeless"),
            Error("no remedy defined in job: remedy-typeless"),
            Error("remedy type Bar not valid in job remedy-unknown"),
            Error("no remedy defined in job: remedy-unknown"),
            Error("no remedy defined in job: bare"), Error("no check defined in job: checkless"),
            Error("extra check ignored in job: twice"), Error("extra remedy ignored in job: twice"),
            Error("check type Foo invalid in job second-chance"),
            Error("check param missing its value in job valueless")));
    EXPECT_TRUE(WaitForLine(Error("remedy param missing its value in job valueless")));
}

TEST_F(LoadTest, RefusesAFileThatCannotBeParsedAndGoesOn) {
    std::string deep;
    for (int level = 0; level < 100000; ++level) {
        deep += "<a>";
    }
    std::string wide = "<kennly";
    for (int attribute = 0; attribute < 100000; ++attribute) {
        wide += " a" + std::to_string(attribute) + "=\"\"";
    }
    struct Row {
        std::string content;
        const char* description;
    };
    const std::vector<Row> rows = {
        {deep, "elements nested too deep"},
        {wide + "/>", "too many attributes in one element"},
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?><kennly><job name=\"\xc3",
         "file ends inside a character"},
        {"<!-- nothing -->\n", "no element in the document"},
        {"<?xml version=\"1.0\"?>\n", "no element in the document"},
        {"", "Error document empty."},
        {"<kennly a", "Error reading Attributes."},
        {"<kennly", "Failed to read Element name"},
        {"<kennly><job></kennly>", "Error reading end tag."},
        {"<kennly a=\"1\" a=\"2\"/>", "Error parsing Element."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.description);
        SetUp();
        Configure(row.content);

        ExpectRefusal(row.description);
    }
}

TEST_F(LoadTest, RefusesAFifoAndADirectoryAndGoesOn) {
    ASSERT_EQ(mkfifo(InsidePath().c_str(), 0644), 0);
    ExpectRefusal("not a regular file");

    SetUp();
    std::filesystem::create_directory(InsidePath());
    ExpectRefusal("not a regular file");
}

TEST_F(LoadTest, TakesAFileUpOnceItIsRepaired) {
    Configure("<kennly><job");
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error"), 2));

    Configure(Configuration(Job("web", Check("exit 1") + Remedy("true"))));

    EXPECT_TRUE(WaitForLine(RemedyRuns("web", "true")));
    StopDaemon();
}

TEST_F(LoadTest, FollowsASymbolicLinkAndTakesAnyRootElement) {
    const std::string target = DataDirectory + "/elsewhere.xml";
    ASSERT_TRUE(sandbox->WriteFile(
        target, "<anything>" + Job("web", Check("exit 1") + Remedy("true")) + "</anything>"));
    std::filesystem::create_symlink("../elsewhere.xml", InsidePath());

    StartDaemon();

    EXPECT_TRUE(WaitForLine(RemedyRuns("web", "true")));
    StopDaemon();
}

}  // namespace kennly::test
