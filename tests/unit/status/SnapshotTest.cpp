#include "status/Snapshot.h"

#include <optional>

#include "support/WithoutPrivileges.h"
#include "unit/status/OwnDataTest.h"
#include "unit/status/PlainProcess.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Everything at once, of processes that only look like the daemon.
class SnapshotTest : public OwnDataTest {
protected:
    const StandInProgram program;
};

TEST_F(SnapshotTest, ShowsAMachineWithoutTheDaemon) {
    std::filesystem::remove_all(Data() / "config");
    std::filesystem::remove_all(Data() / "heartbeats");
    std::filesystem::create_directory(Data() / "config");  // or others would count as of here
    const Snapshot snapshot = TakeSnapshot();
    EXPECT_EQ(snapshot.Runs(snapshot.main), false);
    EXPECT_EQ(snapshot.Runs(snapshot.watcher), false);
    EXPECT_THAT(snapshot.main.jobs, IsEmpty());
    EXPECT_FALSE(snapshot.recordsHidden);
    EXPECT_THAT(snapshot.orphanRecords, IsEmpty());
    EXPECT_FALSE(snapshot.processesHidden);
    EXPECT_FALSE(snapshot.detailsHidden);
}

TEST_F(SnapshotTest, PutsEachProcessAndCommandInItsTree) {
    Write(MainConfigPath, RootOf(CommandJob("web", "cat -", "cat -u", "blockaction='block'")));
    Write(WatcherConfigPath, RootOf(CommandJob("beats", "cat -")));
    const TemporaryDirectory start;
    start.Write("block", "");
    PlainStart there;
    there.directory = start.Path("");
    const PlainProcess worker(program.path, program.With({"-f"}), there);
    const PlainProcess watcher(program.path, program.With({"-f", "-W"}));
    const pid_t check = worker.Ask({"run", "/bin/cat", "cat", "-"});
    const pid_t stranger = worker.Ask({"run", "/bin/cat", "cat", "-", "-"});

    const Snapshot snapshot = TakeSnapshot();

    ASSERT_THAT(snapshot.main.tree.workers, SizeIs(1));
    EXPECT_EQ(snapshot.main.tree.workers[0].number, worker.Number());
    EXPECT_EQ(snapshot.Tree(true).tree.workers[0].number, watcher.Number());
    ASSERT_THAT(snapshot.main.jobs, SizeIs(1));
    ASSERT_THAT(snapshot.main.jobs[0].checks, SizeIs(1));
    EXPECT_EQ(snapshot.main.jobs[0].checks[0].number, check);
    ASSERT_THAT(snapshot.main.strangers, SizeIs(1));
    EXPECT_EQ(snapshot.main.strangers[0].number, stranger);
    ASSERT_THAT(snapshot.main.jobs[0].blockFiles, SizeIs(1));
    EXPECT_TRUE(
        std::filesystem::equivalent(snapshot.main.jobs[0].blockFiles[0], start.Path("block")));
    ASSERT_THAT(snapshot.watcher.jobs, SizeIs(1));
    EXPECT_THAT(snapshot.watcher.jobs[0].checks, IsEmpty());
}

TEST_F(SnapshotTest, CountsARemedyOnceHoweverManyTreesMayHaveStartedIt) {
    Write(MainConfigPath, RootOf(CommandJob("web", "true", "cat -u")));
    const PlainProcess first(program.path, program.With({"-f"}));
    const PlainProcess second(program.path, program.With({"-f"}));
    PlainStart start;
    start.ignoresHangup = start.writesToNowhere = start.leadsSession = true;
    const PlainProcess remedy("/bin/cat", {"cat", "-u"}, start);

    const Snapshot snapshot = TakeSnapshot();

    ASSERT_THAT(snapshot.main.tree.workers, SizeIs(2));
    ASSERT_THAT(snapshot.main.jobs, SizeIs(1));
    EXPECT_THAT(snapshot.main.jobs[0].remedies, SizeIs(1));
}

TEST_F(SnapshotTest, ListsRecordsOfNoJobThatWouldRun) {
    const std::string records = Data() / "config/filetimes/";
    for (const char* const name : {"main", "watcher", "old", "command", "off"}) {
        Write(records + name, "1234");
    }
    Write(MainConfigPath, RootOf(FileJob("main", "/watched") + CommandJob("command", "true") +
                                 "<job name=\"off\" enabled=\"false\"/>"));
    Write(WatcherConfigPath, RootOf(FileJob("watcher", "/watched")));
    EXPECT_THAT(TakeSnapshot().orphanRecords, ElementsAre("command", "off", "old"));
    EXPECT_FALSE(TakeSnapshot().recordsHidden);

    Write(WatcherConfigPath, "<broken");
    EXPECT_THAT(TakeSnapshot().orphanRecords, IsEmpty());
    EXPECT_TRUE(TakeSnapshot().recordsHidden) << "nobody knows its jobs";

    std::filesystem::remove(WatcherConfigPath);
    EXPECT_THAT(TakeSnapshot().orphanRecords, ElementsAre("command", "off", "old", "watcher"));
}

TEST_F(SnapshotTest, TellsAnotherUserWhatIsHidden) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    Write(MainConfigPath, RootOf(FileJob("file", "/watched")));
    std::filesystem::permissions(Data() / "config/filetimes", std::filesystem::perms::owner_all);
    const PlainProcess worker(program.path, program.With({"-f"}));
    EXPECT_FALSE(TakeSnapshot().detailsHidden);
    EXPECT_FALSE(TakeSnapshot().recordsHidden);

    const WithoutPrivileges anybody;

    const Snapshot snapshot = TakeSnapshot();
    EXPECT_TRUE(snapshot.detailsHidden);
    EXPECT_TRUE(snapshot.recordsHidden);
    EXPECT_FALSE(snapshot.processesHidden);
    EXPECT_EQ(snapshot.Runs(snapshot.main), true);
    EXPECT_EQ(snapshot.main.tree.startDirectory, std::nullopt);
    ASSERT_THAT(snapshot.main.jobs, SizeIs(1));
    EXPECT_FALSE(snapshot.main.jobs[0].remediesKnown);
    EXPECT_FALSE(snapshot.main.jobs[0].recordKnown);
}

TEST_F(SnapshotTest, DoesNotKnowWhatRunsWhereProcessesCannotBeSeen) {
    const PlainProcess worker(program.path, program.With({"-f"}));
    ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
    const Snapshot snapshot = TakeSnapshot();
    ASSERT_EQ(umount("/proc"), 0);
    EXPECT_TRUE(snapshot.processesHidden);
    EXPECT_EQ(snapshot.Runs(snapshot.main), std::nullopt);
    EXPECT_EQ(snapshot.Runs(snapshot.watcher), std::nullopt);
}

}  // namespace kennly::test
