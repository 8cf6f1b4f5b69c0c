#include "lint/DaemonVerdict.h"

#include "config/FileTime.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::IsEmpty;
using ::testing::SizeIs;

class DaemonVerdictTest : public LintTest {
protected:
    DaemonVerdict Ask(const std::string& content) {
        return AskDaemon(directory.Write("draft.xml", content));
    }

    static std::vector<std::string> TextsOf(const DaemonVerdict& verdict) {
        std::vector<std::string> texts;
        for (const DaemonLine& line : verdict.lines) {
            texts.push_back((line.isError ? "error " : "debug ") + line.text);
        }
        return texts;
    }

    const std::string job = JobOf(GoodCheck + GoodRemedy);
};

using Outcome = DaemonVerdict::Outcome;

TEST_F(DaemonVerdictTest, HasTheJobsThatWouldRun) {
    const DaemonVerdict verdict =
        Ask(RootOf(JobOf(GoodCheck + GoodRemedy, "name='z'") + JobOf(GoodCheck, "name='y'") +
                   JobOf(GoodCheck + GoodRemedy, "name='a' maxerrors='3'")));

    EXPECT_EQ(verdict.outcome, Outcome::Loads);
    EXPECT_EQ(verdict.reason, "");
    EXPECT_FALSE(verdict.endsDaemon);
    ASSERT_THAT(verdict.jobs, SizeIs(2));
    EXPECT_EQ(verdict.jobs[0]->name, "z");
    EXPECT_EQ(verdict.jobs[1]->name, "a");
    EXPECT_EQ(verdict.jobs[1]->maxErrors, 3);
    ASSERT_NE(verdict.jobs[1]->check, nullptr);
    EXPECT_EQ(verdict.jobs[1]->check->params.front(), "test -d /");
    EXPECT_THAT(verdict.lines, SizeIs(1)) << "of the one that is left out";
}

TEST_F(DaemonVerdictTest, GivesTheReasonOfAFailure) {
    const DaemonVerdict verdict = Ask("<a><b></a>");

    EXPECT_EQ(verdict.outcome, Outcome::Fails);
    EXPECT_EQ(verdict.reason, "Error reading end tag.");
    EXPECT_THAT(TextsOf(verdict), ::testing::ElementsAre("error config file failed to load, error: "
                                                         "Error reading end tag.",
                                                         "error Configuration file parse error"));
    EXPECT_THAT(verdict.jobs, IsEmpty());
    EXPECT_FALSE(verdict.endsDaemon) << "ten failures are tolerated at the start";
}

TEST_F(DaemonVerdictTest, GivesAReasonWithoutOneOfTheParser) {
    EXPECT_EQ(Ask("<!-- nothing -->").outcome, Outcome::Fails);
    EXPECT_EQ(AskDaemon(directory.Path("")).outcome, Outcome::Fails) << "a directory";
    EXPECT_NE(AskDaemon(directory.Path("")).reason, "");
}

TEST_F(DaemonVerdictTest, TellsAFileThatCannotBeExamined) {
    for (const std::string& path : {directory.Path("missing"), directory.Path("missing/draft"),
                                    std::string(), std::string(LongestConfigPath, 'x')}) {
        const DaemonVerdict verdict = AskDaemon(path);
        EXPECT_EQ(verdict.outcome, Outcome::CannotExamine);
        EXPECT_THAT(verdict.lines, IsEmpty());
        EXPECT_EQ(verdict.reason, "");
    }
}

TEST_F(DaemonVerdictTest, TellsAFileThatIsNeverRead) {
    directory.Write("draft.xml", RootOf(job));
    if (!directory.SetTime("draft.xml", NoFileTime)) {
        GTEST_SKIP() << "this file system has no such time";
    }
    const DaemonVerdict verdict = AskDaemon(directory.Path("draft.xml"));
    EXPECT_EQ(verdict.outcome, Outcome::NeverRead);
    EXPECT_THAT(verdict.lines, IsEmpty());
    EXPECT_THAT(verdict.jobs, IsEmpty());
}

TEST_F(DaemonVerdictTest, TellsWhetherTheDaemonEndsAfterwards) {
    const DaemonVerdict negative = Ask(RootOf(job, "maxloaderrors='-1'"));
    EXPECT_TRUE(negative.endsDaemon);
    EXPECT_EQ(negative.outcome, Outcome::Loads);
    EXPECT_EQ(TextsOf(negative).back(),
              "error watchdog closing down as there have been too many load config errors");
    for (const char* const limit : {"0", "1", "many"}) {
        EXPECT_FALSE(Ask(RootOf(job, std::string("maxloaderrors='") + limit + "'")).endsDaemon);
    }
}

TEST_F(DaemonVerdictTest, KnowsNothingOfWhatItWasAskedBefore) {
    Ask(RootOf(job, "maxloaderrors='-1'"));
    LogError("of somebody else");

    const DaemonVerdict verdict = Ask(RootOf(JobOf(GoodCheck + GoodRemedy, "name='b'")));
    EXPECT_FALSE(verdict.endsDaemon);
    EXPECT_THAT(verdict.lines, IsEmpty());
    ASSERT_THAT(verdict.jobs, SizeIs(1));
    EXPECT_EQ(verdict.jobs[0]->name, "b");

    EXPECT_EQ(Ask(RootOf(job)).outcome, Outcome::Loads) << "within one second";
}

TEST_F(DaemonVerdictTest, TakesThePathAsItStandsUpToTheLongest) {
    std::string path = directory.Path("");
    while (path.size() + 102 < LongestConfigPath) {
        path += std::string(100, 'x') + "/";
        std::filesystem::create_directory(path);
    }
    path += std::string(LongestConfigPath - path.size(), '%');
    ASSERT_EQ(path.size(), LongestConfigPath);
    std::filesystem::copy_file(directory.Write("draft.xml", RootOf(job)), path);

    EXPECT_EQ(AskDaemon(path).outcome, Outcome::Loads);
}

TEST_F(DaemonVerdictTest, ChangesNothing) {
    const std::string watched = directory.Write("watched", "");
    std::snprintf(configDir, sizeof(configDir), "%s", machine.configDirectory.c_str());
    directory.Write("config/filetimes/a", "odd");
    const std::string content = RootOf(JobOf(FileCheckOf(watched) + GoodRemedy) +
                                       JobOf(FileCheckOf(watched) + GoodRemedy, "name='b'"));
    EXPECT_THAT(Ask(content).jobs, SizeIs(2));

    EXPECT_EQ(directory.Read("config/filetimes/a"), "odd");
    EXPECT_FALSE(std::filesystem::exists(directory.Path("config/filetimes/b")));
    EXPECT_EQ(directory.Read("draft.xml"), content);
    configDir[0] = '\0';
}

}  // namespace kennly::test
