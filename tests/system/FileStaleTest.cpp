#include "system/DaemonFixture.h"

namespace kennly::test {

class FileStaleTest : public DaemonTest {
protected:
    static std::string Watching(const std::string& job, const std::string& limit) {
        return Job(job,
                   CheckOfType("CheckForNoFileChange", {WatchedPath(job), limit}) + Remedy("true"));
    }
    /// Makes the file that the job watches so many seconds old.
    void PutWatched(const std::string& job, std::time_t age) {
        PutFile(WatchedPath(job), std::time(nullptr) - age);
    }

    /// Waits until the job runs its remedy no longer: one may still have been under way.
    bool WaitForLastRemedy(const std::string& job) const {
        return WaitUntil(
            [&] {
                const std::size_t count = RemediesOf(job);
                return WaitForMoreTraces("beside", 3) && RemediesOf(job) == count;
            },
            Generous);
    }
};

TEST_F(FileStaleTest, RunsTheRemedyAgainAndAgainUntilTheFileIsTouched) {
    PutWatched("web", 10000);
    Configure(Configuration(Watching("web", "600") + Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForRemedies("web", 3));

    PutWatched("web", 0);
    EXPECT_TRUE(WaitForLastRemedy("web"));

    const std::size_t count = RemediesOf("web");
    PutWatched("web", 700);
    EXPECT_TRUE(WaitForRemedies("web", count + 2));
    StopDaemon();
    EXPECT_FALSE(sandbox->FileExists(RecordPath("web")));
    EXPECT_THAT(Lines(), ::testing::Each(::testing::AnyOf(RemedyRuns("web", "true"), Exit(0))));
}

TEST_F(FileStaleTest, JudgesTheAgeByTheLimitOfTheJob) {
    struct Row {
        const char* job;
        std::time_t age;
        const char* limit;
        bool fails;
        std::time_t tooOld;  // 0 when there is no such age
    };
    const std::vector<Row> rows = {
        {"usual-young", 10, "", false, 200},
        {"usual-old", 200, "", true, 0},
        {"zero", 30, "0", true, 0},
        {"negative", 30, "-600", true, 0},
        {"letters", 30, "soon", true, 0},
        {"with-unit", 300, "600s", false, 700},
        {"too-large", 10000, "99999999999", false, 0},
        {"future", -1000, "1", false, 30},
    };
    std::string jobs = Beside();
    for (const Row& row : rows) {
        PutWatched(row.job, row.age);
        jobs += Watching(row.job, row.limit);
    }
    Configure(Configuration(jobs));

    StartDaemon();

    for (const Row& row : rows) {
        SCOPED_TRACE(row.job);
        EXPECT_TRUE(WaitForRemedies(row.job, row.fails ? 2 : 0));
    }
    EXPECT_TRUE(WaitForTraces("beside", 4));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.job);
        EXPECT_TRUE(row.fails || RemediesOf(row.job) == 0);
        if (row.tooOld != 0) {  // it was healthy, and not left out
            PutWatched(row.job, row.tooOld);
            EXPECT_TRUE(WaitForRemedies(row.job, 2));
        }
    }
    StopDaemon();
    EXPECT_THAT(Lines(), ::testing::Each(::testing::AnyOf(
                             ::testing::HasSubstr("check failed - running remedy"), Exit(0))));
}

TEST_F(FileStaleTest, TakesAMissingFileForHealthy) {
    Configure(Configuration(Watching("web", "1") + Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("beside", 4));
    EXPECT_EQ(RemediesOf("web"), 0U);

    PutWatched("web", 30);
    EXPECT_TRUE(WaitForRemedies("web", 2));
    ASSERT_TRUE(sandbox->RemoveFile(WatchedPath("web")));
    EXPECT_TRUE(WaitForLastRemedy("web"));

    StopDaemon();
    EXPECT_THAT(Lines(), ::testing::Each(::testing::AnyOf(RemedyRuns("web", "true"), Exit(0))));
}

TEST_F(FileStaleTest, OnlyTakesNoteOfTheTimeAgainAfterAReload) {
    const auto watching = [](const std::string& remedy) {
        return Job("web",
                   CheckOfType("CheckForNoFileChange", {WatchedPath("web"), "60"}, "delay=\"5\"") +
                       Remedy(NoteInShell(remedy)));
    };
    PutWatched("web", 10000);
    Configure(Configuration(watching("old")));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("old", 1));

    // The other job tells when the new ones have begun.
    Configure(Configuration(
        Job("begun", Check(Note("begun") + "; true", "delay=\"600\"") + Remedy("true")) +
        watching("new")));

    ASSERT_TRUE(WaitForTraces("new", 1));
    ASSERT_TRUE(WaitForTraces("begun", 1));
    EXPECT_GE(SecondsBetween(TracesOf("begun")[0], TracesOf("new")[0]), 3);
    StopDaemon();
}

}  // namespace kennly::test
