#include "system/CtlFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// Starting the classic way.
class CtlStartTest : public CtlTreesTest {
protected:
    Answer Start(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments = {"start", "--program", KENNLY_PROGRAM};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Ctl(arguments);
    }
    /// What is told of a tree that runs now.
    std::string Numbers(const std::string& parent, const std::string& child) const {
        return "parent " + Role(parent).number + ", child " + Role(child).number + "\n";
    }
};

TEST_F(CtlStartTest, StartsBothTreesTheMainOneFirst) {
    const Answer answer = Start();
    EXPECT_THAT(Heartbeats(), ::testing::SizeIs(4));
    EXPECT_EQ(answer.status, 0) << answer.err;
    ASSERT_TRUE(WaitForTrees(BothTrees));
    EXPECT_EQ(answer.out, "main tree: started, " + Numbers("P ", "C ") + "watcher tree: started, " +
                              Numbers("WP", "WC"));
    EXPECT_EQ(Role("P ").arguments, std::vector<std::string>{KENNLY_PROGRAM});
    EXPECT_EQ(Role("WP").arguments, (std::vector<std::string>{KENNLY_PROGRAM, "-W"}));
    EXPECT_LT(std::stoi(Role("C ").number), std::stoi(Role("WP").number));
    EXPECT_TRUE(WaitForTraces("web", 2));
}

TEST_F(CtlStartTest, StartsOneTreeAlone) {
    const Answer main = Start({"--main"});
    EXPECT_EQ(main.status, 0) << main.err;
    ASSERT_TRUE(WaitForTrees(MainTree));
    EXPECT_EQ(main.out, "main tree: started, " + Numbers("P ", "C "));

    const Answer watcher = Start({"--watcher"});

    EXPECT_EQ(watcher.status, 0) << watcher.err;
    ASSERT_TRUE(WaitForTrees(BothTrees));
    EXPECT_EQ(watcher.out, "watcher tree: started, " + Numbers("WP", "WC"));
    EXPECT_EQ(Start({"--main", "--watcher"}).status, 64);
}

TEST_F(CtlStartTest, StartsNoWatcherTreeWithoutItsConfiguration) {
    ASSERT_TRUE(sandbox->RemoveFile(WatcherConfiguration));
    const Answer answer = Start();
    EXPECT_EQ(answer.status, 0) << answer.err;
    ASSERT_TRUE(WaitForTrees(MainTree));
    EXPECT_EQ(answer.out, "watcher tree: is not started, as " + WatcherConfiguration +
                              " is missing\nmain tree: started, " + Numbers("P ", "C "));
}

TEST_F(CtlStartTest, IsNotContentWithTheHeartbeatsOfEarlierProcesses) {
    PutFile(ParentHeartbeat, std::time(nullptr), " ");
    PutFile(ChildHeartbeat, std::time(nullptr), " ");
    // The new ones cannot beat.
    const std::string directory = DataDirectory + "/heartbeats";
    ASSERT_EQ(InShell("mount --bind " + directory + " " + directory +
                      " && mount -o remount,bind,ro " + directory)
                  .status,
              0);
    const Answer answer = Start({"--main"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.out, "");
    EXPECT_THAT(answer.err, HasSubstr("the main tree does not beat after 15 s"));
}

TEST_F(CtlStartTest, StartsNothingTwice) {
    ASSERT_EQ(Start({"--main"}).status, 0);
    ASSERT_TRUE(WaitForTrees(MainTree));
    const std::string main = "main tree: runs already, " + Numbers("P ", "C ");

    const Answer both = Start();

    EXPECT_EQ(both.status, 0);
    ASSERT_TRUE(WaitForTrees(BothTrees));
    EXPECT_EQ(both.out, main + "watcher tree: started, " + Numbers("WP", "WC"));
    const Answer again = Start();
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, main + "watcher tree: runs already, " + Numbers("WP", "WC"));
}

TEST_F(CtlStartTest, StartsOneTreeHoweverManyWantTo) {
    const Answer answer =
        InShell("for n in 1 2 3 4; do $CTL start --main --program " KENNLY_PROGRAM " & done; wait");
    ASSERT_TRUE(WaitForTrees(MainTree));
    EXPECT_EQ(DaemonProcesses(*sandbox).size(), 2U);
    EXPECT_EQ(answer.err, "");
    const std::string runs = "main tree: runs already, " + Numbers("P ", "C ");
    EXPECT_EQ(answer.out, "main tree: started, " + Numbers("P ", "C ") + runs + runs + runs);
}

TEST_F(CtlStartTest, SaysThatATreeRunsTwice) {
    StartTrees({}, MainTree);
    ASSERT_EQ(InShell(KENNLY_PROGRAM).status, 0);
    ASSERT_TRUE(WaitUntil([&] { return DaemonProcesses(*sandbox).size() == 4; }, Generous));
    const Answer answer = Start({"--main"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.out, "");
    EXPECT_THAT(answer.err,
                AllOf(StartsWith("kennlyctl: the main tree runs more than once, parent "),
                      HasSubstr("kennlyctl stop")));
}

TEST_F(CtlStartTest, GivesTheDaemonNoneOfItsDescriptors) {
    const std::string lock = PathOf("lock");
    ASSERT_EQ(
        InShell("exec 9>" + lock + "; flock 9; $CTL start --main --program " KENNLY_PROGRAM).status,
        0);
    EXPECT_EQ(InShell("flock --nonblock " + lock + " true").status, 0);
}

TEST_F(CtlStartTest, LeavesTheDaemonInTheForegroundAlone) {
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForTraces("web", 2));
    const Answer answer = Start();
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.out,
              "watcher tree: is not started, as the main tree runs in the foreground\n"
              "main tree: runs already, foreground " +
                  number + "\n");
}

TEST_F(CtlStartTest, TakesATreeThatIsJustStartingForAWholeOne) {
    StartOptions slow;
    slow.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {"SLOW_CALL", "execv"}};
    ASSERT_EQ(InShell(KENNLY_PROGRAM, slow).status, 0);
    ASSERT_TRUE(WaitUntil([&] { return !DaemonProcesses(*sandbox).empty(); }, Generous));
    const Answer answer = Start({"--main"});
    EXPECT_EQ(answer.status, 0) << answer.err;
    ASSERT_TRUE(WaitForTrees(MainTree));
    EXPECT_EQ(answer.out, "main tree: runs already, " + Numbers("P ", "C "));
}

TEST_F(CtlStartTest, SaysThatOnlyHalfATreeRuns) {
    ASSERT_EQ(Start({"--main"}).status, 0);
    ASSERT_TRUE(WaitForTrees(MainTree));
    SendTo("C ", SIGKILL);
    ASSERT_TRUE(WaitUntilOnly({"P "}));

    const Answer answer = Start();

    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, Not(HasSubstr("runs already")));
    EXPECT_THAT(answer.err,
                AllOf(HasSubstr("only half of the main tree runs, parent " + Role("P ").number),
                      HasSubstr("kennlyctl stop")));
    EXPECT_TRUE(WaitUntilOnly({"P "}));
}

TEST_F(CtlStartTest, StartsNothingWhereATreeMayRunUnseen) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    StartTrees({}, MainTree);
    const Answer answer = CtlBlindly("start --main --program " KENNLY_PROGRAM);
    EXPECT_EQ(answer.status, 77);
    EXPECT_EQ(answer.out, "");
    EXPECT_EQ(answer.err,
              "kennlyctl: the processes of other users cannot be seen, so the main tree may run "
              "already: it is not started\n");
    EXPECT_TRUE(WaitForTrees(MainTree));
}

TEST_F(CtlStartTest, NeedsAProgramByItsAbsolutePath) {
    ASSERT_TRUE(sandbox->WriteFile(PathOf("text"), "x"));
    for (const std::string& program :
         {std::string("kennly"), std::string(""), PathOf("text"), DataDirectory}) {
        SCOPED_TRACE(program);
        const Answer answer = Ctl({"start", "--program", program});
        EXPECT_EQ(answer.status, 66);
        EXPECT_EQ(answer.err, "kennlyctl: " + program + " is no program by an absolute path\n");
    }
    EXPECT_THAT(sandbox->Processes(), IsEmpty());
}

TEST_F(CtlStartTest, SaysThatTheProgramIsNotThere) {
    const Answer answer = Ctl({"start", "--program", "/none/kennly"});
    EXPECT_EQ(answer.status, 66);
    EXPECT_EQ(answer.err, "kennlyctl: /none/kennly is not there\n");
}

TEST_F(CtlStartTest, StartsNoProgramWhoseProcessesItWouldNotFind) {
    const std::string program = PathOf("kennly-2");
    ASSERT_EQ(InShell("cp " KENNLY_PROGRAM " " + program).status, 0);
    const Answer answer = Ctl({"start", "--main", "--program", program});
    EXPECT_EQ(answer.status, 66);
    EXPECT_EQ(answer.err, "kennlyctl: " + program +
                              " is not called kennly, by which name the daemon's processes are "
                              "found\n");
    EXPECT_THAT(sandbox->Processes(), IsEmpty());
}

TEST_F(CtlStartTest, SaysThatTheProgramFails) {
    const std::string program = PathOf("kennly");
    ASSERT_EQ(InShell("cp /bin/false " + program).status, 0);
    const Answer answer = Ctl({"start", "--program", program});
    EXPECT_EQ(answer.status, 71);
    EXPECT_THAT(answer.err, StartsWith("kennlyctl: cannot start " + program + ": "));
}

TEST_F(CtlStartTest, SaysThatTheConfigurationDoesNotLoad) {
    Configure("<kennly>");
    const Answer answer = Start();
    EXPECT_EQ(answer.status, 0);
    EXPECT_THAT(answer.out, HasSubstr(MainConfiguration + " does not load"));
}

TEST_F(CtlStartTest, SaysThatTheConfigurationIsMissing) {
    ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));
    const Answer answer = Start();
    EXPECT_EQ(answer.status, 0);
    EXPECT_THAT(answer.out, HasSubstr(MainConfiguration + " is missing"));
}

}  // namespace kennly::test
