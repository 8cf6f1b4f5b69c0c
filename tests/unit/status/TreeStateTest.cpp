#include "status/TreeState.h"

#include <chrono>
#include <optional>

#include "support/SandboxPolling.h"
#include "support/WithoutPrivileges.h"
#include "unit/status/OwnDataTest.h"
#include "unit/status/PlainProcess.h"

namespace kennly::test {

using ::testing::HasSubstr;
using Role = DaemonProcess::Role;

inline DaemonProcess Process(pid_t number, Role role, bool isWatcher = false) {
    DaemonProcess process;
    process.number = number;
    process.role = role;
    process.isWatcher = isWatcher;
    process.directory = "/";
    return process;
}

class TreeStateTest : public OwnDataTest {
protected:
    static std::vector<pid_t> Numbers(const std::vector<DaemonProcess>& processes) {
        std::vector<pid_t> numbers;
        for (const DaemonProcess& process : processes) {
            numbers.push_back(process.number);
        }
        return numbers;
    }
    static ConfigState Config() { return LookAtTree(false, {}).config; }
    static std::optional<bool> IsNewer(const PlainProcess& worker) {
        return LookAtTree(false, {Process(worker.Number(), Role::Child)}).config.newerThanLoaded;
    }

    static constexpr std::chrono::seconds Generous{60};
};

TEST_F(TreeStateTest, SortsProcessesByTreeAndWhatTheyDo) {
    DaemonProcess ended = Process(5, Role::Child);
    ended.hasEnded = true;
    const std::vector<DaemonProcess> all = {Process(1, Role::Parent), Process(2, Role::Child),
                                            Process(3, Role::Foreground, true),
                                            Process(4, Role::Parent, true), ended};

    const TreeState main = LookAtTree(false, all);
    EXPECT_STREQ(main.Name(), "main tree");
    EXPECT_EQ(Numbers(main.parents), (std::vector<pid_t>{1}));
    EXPECT_EQ(Numbers(main.workers), (std::vector<pid_t>{2}));
    EXPECT_EQ(Numbers(main.ended), (std::vector<pid_t>{5}));
    EXPECT_TRUE(main.Runs());
    const TreeState watcher = LookAtTree(true, all);
    EXPECT_STREQ(watcher.Name(), "watcher tree");
    EXPECT_EQ(Numbers(watcher.parents), (std::vector<pid_t>{4}));
    EXPECT_EQ(Numbers(watcher.workers), (std::vector<pid_t>{3}));
    EXPECT_FALSE(LookAtTree(false, {ended}).Runs());
}

TEST_F(TreeStateTest, LooksAtTheHeartbeatsOfItsOwnTree) {
    Write(ParentHeartbeatPath, "");
    Write(WatcherChildHeartbeatPath, "");
    Age(WatcherChildHeartbeatPath, 500);

    const TreeState main = LookAtTree(false, {});
    EXPECT_TRUE(main.parentBeat.exists);
    EXPECT_FALSE(main.workerBeat.exists);
    EXPECT_EQ(main.workerBeat.path, ChildHeartbeatPath);
    const TreeState watcher = LookAtTree(true, {});
    EXPECT_FALSE(watcher.parentBeat.exists);
    EXPECT_GE(watcher.workerBeat.age, 500);
}

TEST_F(TreeStateTest, TellsWhatBecomesOfTheConfigurationAsItStands) {
    EXPECT_FALSE(Config().exists);
    EXPECT_FALSE(Config().hidden);
    EXPECT_FALSE(Config().readable);

    Write(MainConfigPath, RootOf(CommandJob("web", "true") + CommandJob("mail", "true")));
    ASSERT_TRUE(Config().loads);
    EXPECT_EQ(Config().jobs.size(), 2U);
    EXPECT_EQ(Config().Threads(), 7);
    EXPECT_NEAR(static_cast<double>(Config().changed), static_cast<double>(std::time(nullptr)), 60);
    EXPECT_FALSE(LookAtTree(true, {}).config.exists);

    Write(MainConfigPath, "<kennly><job></kennly>");
    EXPECT_TRUE(Config().readable);
    EXPECT_FALSE(Config().loads);
    EXPECT_NE(Config().reason, "");

    std::filesystem::remove(MainConfigPath);
    std::filesystem::create_directory(MainConfigPath);
    EXPECT_TRUE(Config().exists);
    EXPECT_FALSE(Config().loads);
}

TEST_F(TreeStateTest, TellsAnotherUserWhatIsHidden) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    Write(MainConfigPath, RootOf(CommandJob("web", "true")));
    Write(ChildHeartbeatPath, "");
    std::filesystem::permissions(MainConfigPath, std::filesystem::perms::owner_all);
    {
        const WithoutPrivileges anybody;
        EXPECT_TRUE(Config().exists);
        EXPECT_FALSE(Config().hidden);
        EXPECT_FALSE(Config().readable);
        EXPECT_TRUE(LookAtTree(false, {}).workerBeat.exists);
    }
    std::filesystem::permissions(ConfigDirectoryPath, std::filesystem::perms::owner_all);
    std::filesystem::permissions(Data() / "heartbeats", std::filesystem::perms::owner_all);
    {
        const WithoutPrivileges anybody;
        EXPECT_FALSE(Config().exists);
        EXPECT_TRUE(Config().hidden);
        EXPECT_TRUE(LookAtTree(false, {}).workerBeat.hidden);
    }
}

TEST_F(TreeStateTest, KnowsTheStartDirectoryWhenAllWhoRunJobsAgree) {
    DaemonProcess first = Process(1, Role::Child);
    DaemonProcess second = Process(2, Role::Foreground);
    DaemonProcess other = Process(3, Role::Child, true);
    DaemonProcess ended = Process(4, Role::Child);
    DaemonProcess parent = Process(5, Role::Parent);
    first.directory = "/srv";
    second.directory = "/srv";
    other.directory = "/other";
    ended.directory = "";
    ended.hasEnded = true;
    parent.directory = "/elsewhere";

    EXPECT_EQ(StartDirectoryOf(false, {first, second, other, ended, parent}), "/srv");
    EXPECT_EQ(StartDirectoryOf(true, {first, second, other, ended, parent}), "/other");
    EXPECT_EQ(StartDirectoryOf(false, {}), std::nullopt);
    EXPECT_EQ(StartDirectoryOf(false, {parent, other}), std::nullopt);
    second.directory = "/tmp";
    EXPECT_EQ(StartDirectoryOf(false, {first, second}), std::nullopt);
    second.directory = "";
    EXPECT_EQ(StartDirectoryOf(false, {first, second}), std::nullopt);
    EXPECT_EQ(StartDirectoryOf(false, {second}), std::nullopt);
    EXPECT_EQ(LookAtTree(false, {first}).startDirectory, "/srv");
}

TEST_F(TreeStateTest, MarksAConfigurationThatIsNewerThanTheJobsThatRun) {
    const StandInProgram program;
    const PlainProcess worker(program.path, program.With({"-Z"}));
    Write(MainConfigPath, RootOf(CommandJob("web", "true")));
    EXPECT_EQ(IsNewer(worker), std::nullopt) << "no job runs";

    worker.Ask({"threads", "3"});
    EXPECT_EQ(IsNewer(worker), false);

    EXPECT_TRUE(WaitUntil(
        [&] {
            Write(MainConfigPath, RootOf(CommandJob("web", "false")));
            Age(MainConfigPath, 1'000'000);  // which deceives nobody
            return IsNewer(worker) == true;
        },
        Generous));

    worker.Ask({"threads", "3"});
    EXPECT_EQ(IsNewer(worker), false);
    EXPECT_EQ(LookAtTree(false, {}).config.newerThanLoaded, std::nullopt) << "no process runs";
    std::filesystem::remove(MainConfigPath);
    EXPECT_EQ(IsNewer(worker), std::nullopt) << "there is no file";
}

TEST_F(TreeStateTest, JudgesByTheOldestJobOfAnyProcess) {
    const StandInProgram program;
    const PlainProcess old(program.path, program.With({"-Z"}));
    const PlainProcess young(program.path, program.With({"-f"}));
    old.Ask({"threads", "1"});
    EXPECT_TRUE(WaitUntil(
        [&] {
            Write(MainConfigPath, RootOf(CommandJob("web", "true")));
            return IsNewer(old) == true;
        },
        Generous));
    old.Ask({"more", "2"});
    EXPECT_EQ(IsNewer(old), true) << "one thread is older";
    young.Ask({"threads", "3"});
    ASSERT_EQ(IsNewer(young), false);

    for (const bool oldFirst : {true, false}) {
        std::vector<DaemonProcess> both = {Process(old.Number(), Role::Child),
                                           Process(young.Number(), Role::Foreground)};
        if (!oldFirst) {
            std::swap(both[0], both[1]);
        }
        EXPECT_EQ(LookAtTree(false, both).config.newerThanLoaded, true);
    }
}

TEST_F(TreeStateTest, MarksALinkThatNowLeadsToAnotherFile) {
    const StandInProgram program;
    const PlainProcess worker(program.path, program.With({"-Z"}));
    const std::string first = Data() / "first.xml";
    const std::string second = Data() / "second.xml";
    Write(first, RootOf(CommandJob("web", "true")));
    Write(second, RootOf(CommandJob("web", "true")));
    std::filesystem::create_symlink(first, MainConfigPath);
    worker.Ask({"threads", "3"});
    ASSERT_EQ(IsNewer(worker), false);

    EXPECT_TRUE(WaitUntil(
        [&] {
            std::filesystem::remove(MainConfigPath);
            std::filesystem::create_symlink(second, MainConfigPath);
            return IsNewer(worker) == true;
        },
        Generous));

    worker.Ask({"threads", "3"});
    ASSERT_EQ(IsNewer(worker), false);
    EXPECT_TRUE(WaitUntil(
        [&] {  // the file that it leads to
            Write(second, RootOf(CommandJob("web", "false")));
            Age(second, 1'000'000);
            return IsNewer(worker) == true;
        },
        Generous));
}

}  // namespace kennly::test
