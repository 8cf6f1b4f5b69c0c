#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

using RemedyTest = DaemonTest;

TEST_F(RemedyTest, IsHeldBackWhileABlockFileExists) {
    const std::string block = DataDirectory + "/block";
    Configure(Configuration(
        Job("web", Check(Note("check") + "; exit 1") +
                       Remedy("true", "blockaction=\"" + block + "1\" blockaction2=\"" + block +
                                          "2\" blockaction3=\"" + block + "3\""))));
    StartDaemon();
    ASSERT_TRUE(WaitForLine(RemedyRuns("web", "true")));

    for (const std::string& path : {block + "1", block + "2", block + "3"}) {
        SCOPED_TRACE(path);
        ASSERT_TRUE(sandbox->WriteFile(path, ""));
        ASSERT_TRUE(WaitForMoreTraces("check", 1));  // a remedy may have been under way
        const std::size_t count = ArrivalsOf(RemedyRuns("web", "true")).size();
        ASSERT_TRUE(WaitForMoreTraces("check", 2));
        EXPECT_THAT(ArrivalsOf(RemedyRuns("web", "true")), SizeIs(count));

        ASSERT_TRUE(sandbox->RemoveFile(path));
        EXPECT_TRUE(WaitForLine(RemedyRuns("web", "true"), count + 1));
    }
    StopDaemon();
}

TEST_F(RemedyTest, AnnouncesExecuteAndNotExecuteAlwaysAndRunsBothAfterFailuresOnly) {
    const auto job = [](const std::string& name, const std::string& check,
                        const std::string& type) {
        return Job(name, Check(Note(name + "-check") + "; " + check, "delay=\"1\"") +
                             Remedy(NoteInShell(name), "", type));
    };
    Configure(Configuration(
        job("announced", "exit 1", "execute") + job("silent", "exit 1", "EXECUTEALWAYS") +
        job("good", "exit 0", "Execute") + job("always-good", "exit 0", "ExecuteAlways")));

    StartDaemon();

    for (const char* const name : {"announced", "silent", "good-check", "always-good-check"}) {
        EXPECT_TRUE(WaitForTraces(name, 2)) << name;
    }
    StopDaemon();
    EXPECT_FALSE(sandbox->FileExists(TracePath("good")));
    EXPECT_FALSE(sandbox->FileExists(TracePath("always-good")));
    EXPECT_THAT(Lines(),
                Each(::testing::AnyOf(RemedyRuns("announced", NoteInShell("announced")), Exit(0))));
}

TEST_F(RemedyTest, KeepsSilentAboutRemediesThatCannotBeStarted) {
    const auto job = [](const std::string& name, const std::string& params) {
        return Job(name, Check(Note(name) + "; exit 1", "delay=\"1\"") +
                             "<remedy type=\"Execute\">" + params + "</remedy>");
    };
    const std::string run = Param(NoteInShell("remedy"));
    Configure(Configuration(job("none", "") + job("two", run + run) + job("empty", Param(""))));

    StartDaemon();

    for (const char* const name : {"none", "two", "empty"}) {
        EXPECT_TRUE(WaitForTraces(name, 3)) << name;
    }
    StopDaemon();
    EXPECT_FALSE(sandbox->FileExists(TracePath("remedy")));
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

}  // namespace kennly::test
