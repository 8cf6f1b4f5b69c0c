#include "ctl/FindJob.h"

#include <sstream>

#include "support/WithoutPrivileges.h"
#include "unit/status/OwnDataTest.h"
#include "unit/status/PlainProcess.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

class FindJobTest : public OwnDataTest {
protected:
    FoundJob Find(const std::string& name, bool watcherOnly = false) {
        err.str("");
        return FindJobOrTell(name, watcherOnly, {out, err, false});
    }

    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(FindJobTest, FindsJobsOfBothConfigurationsTheMainOneFirst) {
    Write(MainConfigPath, RootOf(CommandJob("web", "main") + CommandJob("mail", "true")));
    Write(WatcherConfigPath, RootOf(CommandJob("web", "watcher") + CommandJob("beats", "true")));

    EXPECT_THAT(FindLiveJobs(false).jobs, SizeIs(4));
    EXPECT_THAT(FindLiveJobs(true).jobs, SizeIs(2));
    EXPECT_EQ(Find("web").job->check->params.front(), "main");
    EXPECT_FALSE(Find("web").isWatcher);
    EXPECT_EQ(Find("web", true).job->check->params.front(), "watcher");
    EXPECT_TRUE(Find("web", true).isWatcher);
    EXPECT_TRUE(Find("beats").isWatcher);
    EXPECT_EQ(Find("mail", true).job, nullptr);
    EXPECT_EQ(err.str(), std::string("kennlyctl: no job mail would run from ") + WatcherConfigPath +
                             ": kennlyctl check tells why\n");
    EXPECT_EQ(out.str(), "");
}

TEST_F(FindJobTest, TellsInOneSentenceThatThereIsNoSuchJob) {
    EXPECT_EQ(Find("a\nb").job, nullptr);
    EXPECT_EQ(err.str(), std::string("kennlyctl: no job a\\x0Ab would run from ") + MainConfigPath +
                             " or " + WatcherConfigPath + ": kennlyctl check tells why\n");
    EXPECT_THAT(FindLiveJobs(false).unknown, IsEmpty());
    EXPECT_EQ(FindLiveJobs(false).status, ExitClean);
}

TEST_F(FindJobTest, DoesNotKnowTheJobsOfAConfigurationThatFails) {
    Write(MainConfigPath, RootOf(CommandJob("web", "true")));
    Write(WatcherConfigPath, "<broken");
    EXPECT_EQ(FindLiveJobs(false).status, ExitLoadFails);
    EXPECT_THAT(FindLiveJobs(false).jobs, SizeIs(1));
    EXPECT_NE(Find("web").job, nullptr);
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(Find("beats").job, nullptr);
    EXPECT_EQ(err.str(), std::string("kennlyctl: whether there is a job beats is not known: ") +
                             WatcherConfigPath + " does not load: kennlyctl check tells why\n");
}

TEST_F(FindJobTest, DoesNotKnowTheJobsOfAConfigurationThatItMayNotRead) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    Write(MainConfigPath, RootOf(CommandJob("web", "true")));
    Write(WatcherConfigPath, "<broken");
    std::filesystem::permissions(MainConfigPath, std::filesystem::perms::owner_all);
    const WithoutPrivileges anybody;
    EXPECT_EQ(FindLiveJobs(false).status, ExitNoInput);
    EXPECT_EQ(Find("web").job, nullptr);
    EXPECT_THAT(err.str(), AllOf(StartsWith("kennlyctl: whether there is a job web is not known: "),
                                 HasSubstr("Permission denied\n")));
}

TEST_F(FindJobTest, KnowsWhereRelativePathsCountFromWhileTheDaemonRuns) {
    Write(MainConfigPath, RootOf(CommandJob("web", "true")));
    Write(WatcherConfigPath, RootOf(CommandJob("beats", "true")));
    EXPECT_EQ(Find("web").startDirectory, std::nullopt);
    const StandInProgram program;
    PlainStart start;
    start.directory = "/usr";
    const PlainProcess worker(program.path, program.With({"-f"}), start);
    EXPECT_EQ(Find("web").startDirectory, "/usr");
    EXPECT_EQ(Find("beats").startDirectory, std::nullopt);
}

}  // namespace kennly::test
