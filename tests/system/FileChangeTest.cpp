#include "config/FileTime.h"
#include "support/FileTimeRecord.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

class FileChangeTest : public DaemonTest {
protected:
    static constexpr std::int32_t Noon = 1700000000;

    static std::string Watching(const std::string& job) {
        return Job(job, CheckOfType("CheckForFileChange", {WatchedPath(job)}) + Remedy("true"));
    }
    void PutWatched(const std::string& job, std::int32_t time = Noon) {
        PutFile(WatchedPath(job), time);
    }
    bool Touch(const std::string& job, std::int32_t time) const {
        return sandbox->SetFileTime(WatchedPath(job), time);
    }

    /// Gives the remedies time for another run and expects that there have been `count`.
    void ExpectRemedies(const std::string& job, std::size_t count) const {
        EXPECT_TRUE(WaitForMoreTraces("beside", 3));
        EXPECT_EQ(RemediesOf(job), count) << job;
    }

    std::optional<std::string> Record(const std::string& job) const {
        return sandbox->ReadFile(RecordPath(job));
    }
};

TEST_F(FileChangeTest, RunsTheRemedyAtFirstSightAndOncePerChange) {
    PutWatched("web");
    Configure(Configuration(Watching("web") + Beside()));

    StartDaemon();

    EXPECT_TRUE(WaitForRemedies("web", 1));
    ExpectRemedies("web", 1);
    std::size_t count = 1;
    for (const std::int32_t time : {Noon + 1, Noon - 1000}) {
        SCOPED_TRACE(time);
        ASSERT_TRUE(Touch("web", time));
        ++count;
        EXPECT_TRUE(WaitForRemedies("web", count));
        ExpectRemedies("web", count);
    }
    EXPECT_FALSE(sandbox->FileExists(RecordPath("web")));
    StopDaemon();
    EXPECT_EQ(Record("web"), RecordOf(Noon - 1000));
    EXPECT_THAT(Lines(), ::testing::Each(::testing::AnyOf(RemedyRuns("web", "true"), Exit(0))));
}

TEST_F(FileChangeTest, TakesAMissingFileForUnchanged) {
    Configure(Configuration(Watching("web") + Watching("never") + Beside()));
    StartDaemon();
    ExpectRemedies("web", 0);

    PutWatched("web");
    EXPECT_TRUE(WaitForRemedies("web", 1));
    ASSERT_TRUE(sandbox->RemoveFile(WatchedPath("web")));
    ExpectRemedies("web", 1);
    PutWatched("web");
    ExpectRemedies("web", 1);
    PutWatched("web", Noon + 1);
    EXPECT_TRUE(WaitForRemedies("web", 2));

    ExpectRemedies("never", 0);
    StopDaemon();
    EXPECT_EQ(Record("web"), RecordOf(Noon + 1));
    EXPECT_FALSE(sandbox->FileExists(RecordPath("never")));
}

TEST_F(FileChangeTest, ActsAfterAReloadOnlyOnAChangeMadeMeanwhile) {
    const std::string hold = DataDirectory + "/hold";
    const std::string holding = DataDirectory + "/holding";
    const std::string jobs =
        Watching("same") + Watching("changed") + Beside() +
        Job("holder", Check("while [ -e " + hold + " ]; do touch " + holding + "; sleep 0.1; done",
                            "delay=\"1\"") +
                          Remedy("true"));
    PutWatched("same");
    PutWatched("changed");
    Configure(Configuration(jobs));
    StartDaemon();
    ASSERT_TRUE(WaitForRemedies("same", 1));
    ASSERT_TRUE(WaitForRemedies("changed", 1));

    // The new configuration is loaded, but its jobs wait for a check of the old one to end.
    ASSERT_TRUE(sandbox->WriteFile(hold, ""));
    ASSERT_TRUE(WaitUntil([&] { return sandbox->FileExists(holding); }, Generous));
    Configure(Configuration(jobs + Marker("new")));
    ASSERT_TRUE(WaitForLine(Loaded("new")));
    for (const std::string job : {"same", "changed"}) {
        EXPECT_TRUE(WaitUntil([&] { return Record(job) == RecordOf(Noon); }, Generous)) << job;
    }
    ASSERT_TRUE(Touch("changed", Noon + 1));
    ASSERT_TRUE(sandbox->RemoveFile(hold));

    EXPECT_TRUE(WaitForRemedies("changed", 2));
    ExpectRemedies("changed", 2);
    EXPECT_EQ(RemediesOf("same"), 1U);
    StopDaemon();
    EXPECT_EQ(Record("changed"), RecordOf(Noon + 1));
    EXPECT_EQ(Record("same"), RecordOf(Noon));
}

TEST_F(FileChangeTest, ActsAfterARestartOnlyOnAChangeMadeMeanwhile) {
    PutWatched("same");
    PutWatched("changed");
    Configure(Configuration(Watching("same") + Watching("changed") + Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForRemedies("same", 1));
    ASSERT_TRUE(WaitForRemedies("changed", 1));
    ASSERT_TRUE(WaitUntilNoCommandRuns());
    StopDaemon();
    ASSERT_TRUE(Touch("changed", Noon - 1));

    StartDaemon();

    EXPECT_TRUE(WaitForRemedies("changed", 1));
    ExpectRemedies("changed", 1);
    EXPECT_EQ(RemediesOf("same"), 0U);
    StopDaemon();
}

TEST_F(FileChangeTest, ActsOnTheSameChangeOnceMoreAfterAKill) {
    PutWatched("web");
    ASSERT_TRUE(sandbox->WriteFile(RecordPath("web"), RecordOf(Noon - 1)));
    Configure(Configuration(Watching("web") + Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForRemedies("web", 1));
    ExpectRemedies("web", 1);
    ASSERT_TRUE(daemon->Signal(SIGKILL));
    ASSERT_TRUE(EndOfDaemon());
    ASSERT_EQ(Record("web"), RecordOf(Noon - 1));

    StartDaemon();

    EXPECT_TRUE(WaitForRemedies("web", 1));
    ExpectRemedies("web", 1);
    StopDaemon();
    EXPECT_EQ(Record("web"), RecordOf(Noon));
}

TEST_F(FileChangeTest, ComparesAnotherFileOfTheJobWithTheRecordOfTheFirst) {
    PutWatched("same");
    PutWatched("other");
    Configure(Configuration(Watching("same") + Watching("other") + Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForRemedies("same", 1));
    ASSERT_TRUE(WaitForRemedies("other", 1));

    PutWatched("next-same");
    PutWatched("next-other", Noon + 1);
    const auto watchingNext = [](const std::string& job) {
        return Job(
            job, CheckOfType("CheckForFileChange", {WatchedPath("next-" + job)}) + Remedy("true"));
    };
    Configure(Configuration(watchingNext("same") + watchingNext("other") + Beside()));

    EXPECT_TRUE(WaitForRemedies("other", 2));
    ExpectRemedies("other", 2);
    EXPECT_EQ(RemediesOf("same"), 1U);
    ASSERT_TRUE(Touch("next-same", Noon + 2));  // it is the one that is watched
    EXPECT_TRUE(WaitForRemedies("same", 2));
    StopDaemon();
    EXPECT_EQ(Record("same"), RecordOf(Noon + 2));
    EXPECT_EQ(Record("other"), RecordOf(Noon + 1));
}

TEST_F(FileChangeTest, SavesTheRecordAtAShutdownAlthoughItsRemedyStillRuns) {
    PutWatched("web");
    Configure(Configuration(
        Job("web", CheckOfType("CheckForFileChange", {WatchedPath("web")}) +
                       Remedy("touch " + DataDirectory + "/running; sleep 1000; true"))));
    StartDaemon();
    ASSERT_TRUE(
        WaitUntil([&] { return sandbox->FileExists(DataDirectory + "/running"); }, Generous));

    StopDaemon();

    EXPECT_EQ(Record("web"), RecordOf(Noon));
}

TEST_F(FileChangeTest, DeletesAShortRecordAndTakesTheFirstFourBytesOfALongOne) {
    struct Row {
        const char* job;
        std::string record;
        std::size_t remedies;
        bool kept;
    };
    const std::vector<Row> rows = {
        {"empty", "", 1, false},
        {"short", RecordOf(Noon).substr(0, 3), 1, false},
        {"no-time", RecordOf(NoFileTime), 1, false},
        {"other", RecordOf(Noon - 1), 1, true},
        {"current", RecordOf(Noon), 0, true},
        {"long", RecordOf(Noon) + "\n", 0, true},
    };
    std::string jobs = Beside();
    for (const Row& row : rows) {
        PutWatched(row.job);
        ASSERT_TRUE(sandbox->WriteFile(RecordPath(row.job), row.record));
        jobs += Watching(row.job);
    }
    Configure(Configuration(jobs));

    StartDaemon();

    for (const Row& row : rows) {
        SCOPED_TRACE(row.job);
        EXPECT_TRUE(WaitForRemedies(row.job, row.remedies));
    }
    EXPECT_TRUE(WaitForMoreTraces("beside", 3));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.job);
        EXPECT_EQ(RemediesOf(row.job), row.remedies);
        EXPECT_EQ(Record(row.job),
                  row.kept ? std::optional<std::string>(row.record) : std::nullopt);
    }
    StopDaemon();
    for (const Row& row : rows) {
        EXPECT_EQ(Record(row.job), RecordOf(Noon)) << row.job;
    }
}

TEST_F(FileChangeTest, SeesFilesOfMoreThan2GiB) {
    constexpr std::uintmax_t size = 5'000'000'000;  // of which nothing is stored
    PutWatched("web");
    PutWatched("blocked");
    for (const char* const job : {"web", "blocked"}) {
        std::filesystem::resize_file(sandbox->PathInside(WatchedPath(job)), size);
        ASSERT_TRUE(Touch(job, Noon));
    }
    const std::string blocked = "blockaction=\"" + WatchedPath("blocked") + "\"";
    Configure(Configuration(
        Watching("web") +
        Job("blocked", Check("false", "delay=\"1\"") + Remedy("touch " + PathOf("no"), blocked)) +
        Beside()));

    StartDaemon();

    EXPECT_TRUE(WaitForRemedies("web", 1));
    ASSERT_TRUE(Touch("web", Noon + 1));
    EXPECT_TRUE(WaitForRemedies("web", 2));
    EXPECT_TRUE(WaitForMoreTraces("beside", 3));
    EXPECT_FALSE(sandbox->FileExists(PathOf("no")));
    StopDaemon();
    EXPECT_EQ(Record("web"), RecordOf(Noon + 1));
    EXPECT_EQ(std::filesystem::file_size(sandbox->PathInside(WatchedPath("web"))), size);
}

}  // namespace kennly::test
