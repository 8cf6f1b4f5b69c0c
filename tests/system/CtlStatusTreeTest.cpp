#include "system/CtlStatusFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;

/// Trees that are not as they should be, of which the daemon itself says nothing.
class CtlStatusTreeTest : public CtlStatusFixture {};

TEST_F(CtlStatusTreeTest, FindsAChildThatHasDiedUnderItsParent) {
    StartMainTree();
    SendTo("C ", SIGKILL);
    EXPECT_TRUE(WaitForProblems({"child-dead"}));

    const Answer answer = Ctl({"status"});

    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out,
                HasSubstr("the parent " + Role("P ").number + " lives without a child"));
}

TEST_F(CtlStatusTreeTest, FindsTheSameInTheWatcherTree) {
    StartBothTrees();
    SendTo("WC", SIGKILL);
    EXPECT_TRUE(WaitForProblems({"child-dead"}));
    EXPECT_THAT(TextOfStatus(), HasSubstr("watcher tree: the parent " + Role("WP").number +
                                          " lives without a child"));
}

TEST_F(CtlStatusTreeTest, FindsAnOrphan) {
    StartMainTree();
    SendTo("C ", SIGSTOP);  // so that it cannot end with its parent
    SendTo("P ", SIGKILL);
    EXPECT_TRUE(WaitForProblem("orphan"));
    EXPECT_THAT(TextOfStatus(),
                HasSubstr("the child " + Role("C ").number + " has lost its parent"));
}

TEST_F(CtlStatusTreeTest, FindsASecondTreeOfEitherKind) {
    StartBothTrees();
    for (const std::vector<std::string>& options : {std::vector<std::string>{"-W"}, {}}) {
        const bool isWatcher = !options.empty();
        SCOPED_TRACE(isWatcher ? "watcher" : "main");
        std::vector<std::string> command = {KENNLY_PROGRAM};
        command.insert(command.end(), options.begin(), options.end());
        const auto second = sandbox->Start(command);
        ASSERT_EQ(second->WaitForEnd(Generous), std::optional<int>(0));
        EXPECT_TRUE(WaitForProblem("second-tree"));
        EXPECT_THAT(TextOfStatus(), HasSubstr(isWatcher ? "watcher tree: runs more than once"
                                                        : "main tree: runs more than once"));
    }
    EXPECT_TRUE(WaitForProblems({"second-tree", "second-tree"}));
}

TEST_F(CtlStatusTreeTest, FindsAForegroundDaemonBesideATree) {
    StartMainTree();
    const auto second = sandbox->Start({KENNLY_PROGRAM, "-f"});
    EXPECT_TRUE(WaitForProblems({"second-tree"}));
}

TEST_F(CtlStatusTreeTest, FindsAParentThatHangs) {
    StartMainTree();
    SendTo("P ", SIGSTOP);
    EXPECT_TRUE(WaitForProblems({"parent-hangs"}));
    SendTo("P ", SIGCONT);
    EXPECT_TRUE(WaitForProblems({}));
}

TEST_F(CtlStatusTreeTest, FindsAProgramThatIsNoLongerThere) {
    const std::string program = PathOf("kennly");
    std::filesystem::copy_file(KENNLY_PROGRAM, sandbox->PathInside(program));
    StartTreesBy({program}, MainTree);
    ASSERT_TRUE(WaitForTraces("web", 2));
    EXPECT_TRUE(WaitForProblems({}));

    // As a package does it: another file takes its place.
    std::filesystem::copy_file(KENNLY_PROGRAM, sandbox->PathInside(program + ".new"));
    std::filesystem::rename(sandbox->PathInside(program + ".new"), sandbox->PathInside(program));

    EXPECT_TRUE(WaitForProblems({"program-replaced", "program-replaced"}));
    EXPECT_EQ(Plugin().status, 1);
    EXPECT_THAT(TextOfStatus(), HasSubstr("still runs the " + program + " that was there"));
}

TEST_F(CtlStatusTreeTest, NotesHeartbeatsThatAreLeftOver) {
    PutFile(ParentHeartbeat, 1'000'000'000, " ");
    PutFile(WatcherChildHeartbeat, 1'000'000'000, " ");
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForTraces("web", 2));
    EXPECT_TRUE(WaitForProblems({}));
    EXPECT_THAT(TextOfStatus(), AllOf(HasSubstr("note: [heartbeat-left-over] watcher tree"),
                                      HasSubstr(WatcherChildHeartbeat + " is left over"),
                                      HasSubstr("note: [heartbeat-left-over] main tree"),
                                      HasSubstr(ParentHeartbeat + " is left over")));
}

TEST_F(CtlStatusTreeTest, FindsThatNoHeartbeatIsWritten) {
    std::filesystem::remove_all(sandbox->PathInside(DataDirectory + "/heartbeats"));
    StartMainTree();
    EXPECT_TRUE(WaitForProblems({"heartbeat-missing", "heartbeat-missing"}));
    EXPECT_THAT(TextOfStatus(), HasSubstr("heartbeat missing"));
}

}  // namespace kennly::test
