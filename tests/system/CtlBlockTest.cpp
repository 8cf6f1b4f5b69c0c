#include "system/CtlFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Maintenance through the block files of jobs.
class CtlBlockTest : public CtlTest {
protected:
    void SetUp() override {
        CtlTest::SetUp();
        ASSERT_TRUE(sandbox);
        Configure(Configuration(
            Job("web", Check("false", "delay=\"1\"") + Remedy(NoteInShell("web"), BlockedBy())) +
            Job("mail", Check("true", "delay=\"1\"") + Remedy("true", BlockedBy())) +
            Job("free", Check("true", "delay=\"1\"") + Remedy("true"))));
    }
    static std::string BlockedBy() { return "blockaction2=\"" + PathOf("block") + "\""; }
};

TEST_F(CtlBlockTest, KeepsTheRemedyFromRunningUntilItIsUnblocked) {
    Configure(Configuration(Job("web", Check(Note("check") + "; false", "delay=\"1\"") +
                                           Remedy(NoteInShell("web"), BlockedBy()))));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForTraces("web", 1));

    const Answer block = Ctl({"block", "web"});

    EXPECT_EQ(block.status, 0) << block.err;
    ASSERT_TRUE(WaitForMoreTraces("check", 3));  // one remedy may have been about to start
    const std::size_t count = TracesOf("web").size();
    ASSERT_TRUE(WaitForMoreTraces("check", 3));
    EXPECT_EQ(TracesOf("web").size(), count);

    EXPECT_EQ(Ctl({"unblock", "web"}).status, 0);
    EXPECT_TRUE(WaitForTraces("web", count + 1));
}

TEST_F(CtlBlockTest, TellsOfWhatIsBlockedAndWhy) {
    EXPECT_EQ(Ctl({"blocks"}).out, "");
    const Answer block = Ctl({"block", "--reason", "new disks", "web"});
    EXPECT_THAT(block.out, AllOf(StartsWith("blocked by " + PathOf("block")),
                                 HasSubstr("it blocks job mail as well\n")));
    const Answer blocks = Ctl({"blocks"});
    EXPECT_EQ(blocks.status, 0);
    EXPECT_THAT(blocks.out, AllOf(HasSubstr("web: " + PathOf("block") + ", blocked by kennlyctl, "),
                                  HasSubstr(": new disks\n"), HasSubstr("mail: ")));
    const Answer again = Ctl({"block", "mail"});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "blocked already, by " + PathOf("block") + "\n");
}

TEST_F(CtlBlockTest, TellsThatNothingIsBlocked) {
    const Answer answer = Ctl({"unblock", "web"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.out, "nothing blocks it\n");
}

TEST_F(CtlBlockTest, LeavesWhatOthersHaveMade) {
    PutFile(PathOf("block"), 1, "lock of another program");
    EXPECT_THAT(Ctl({"blocks"}).out, HasSubstr(", made by somebody else\n"));

    const Answer answer = Ctl({"unblock", "web"});

    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.err, HasSubstr(PathOf("block") + " has been made by somebody else"));
    EXPECT_TRUE(sandbox->FileExists(PathOf("block")));
    EXPECT_EQ(Ctl({"unblock", "--force", "web"}).status, 0);
    EXPECT_FALSE(sandbox->FileExists(PathOf("block")));
}

TEST_F(CtlBlockTest, TellsOfJobsThatCannotBeBlocked) {
    const Answer free = Ctl({"block", "free"});
    EXPECT_EQ(free.status, 1);
    EXPECT_THAT(free.err, HasSubstr("the remedy of job free has no block file"));
    for (const char* const verb : {"block", "unblock"}) {
        SCOPED_TRACE(verb);
        EXPECT_EQ(Ctl({verb, "none"}).status, 66);
    }
}

TEST_F(CtlBlockTest, TellsOfAFileThatCannotBeMade) {
    Configure(Configuration(
        Job("web", Check("true", "delay=\"1\"") +
                       Remedy("true", "blockaction=\"" + PathOf("none/block") + "\""))));
    const Answer answer = Ctl({"block", "web"});
    EXPECT_EQ(answer.status, 73);
    EXPECT_EQ(answer.err,
              "kennlyctl: cannot create " + PathOf("none/block") + ": No such file or directory\n");
}

TEST_F(CtlBlockTest, NeedsPermission) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    const Answer block = CtlAsNobody("block web");
    EXPECT_EQ(block.status, 73);
    EXPECT_THAT(block.err, HasSubstr("Permission denied"));
    ASSERT_EQ(Ctl({"block", "web"}).status, 0);
    EXPECT_EQ(CtlAsNobody("unblock web").status, 1);
    EXPECT_TRUE(sandbox->FileExists(PathOf("block")));
}

TEST_F(CtlBlockTest, DoesNotKnowWhoHasMadeAFileThatItMayNotRead) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(Ctl({"block", "web"}).status, 0);
    std::filesystem::permissions(sandbox->PathInside(PathOf("block")),
                                 std::filesystem::perms(0600));
    EXPECT_THAT(CtlAsNobody("blocks").out,
                HasSubstr("web: " + PathOf("block") + ", unknown by whom, as this user cannot"));

    const Answer answer = CtlAsNobody("unblock web");

    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.err, "kennlyctl: who has made " + PathOf("block") +
                              " is not known, as this user cannot read it\n");
}

TEST_F(CtlBlockTest, KnowsTheJobsOfTheWatcherTree) {
    Configure(Configuration(Job("beats", Check("true") + Remedy("true", BlockedBy()))),
              WatcherConfiguration);
    EXPECT_EQ(Ctl({"block", "-W", "web"}).status, 66);
    EXPECT_EQ(Ctl({"block", "-W", "beats"}).status, 0);
    EXPECT_TRUE(sandbox->FileExists(PathOf("block")));
    EXPECT_THAT(Ctl({"blocks"}).out, HasSubstr("beats (watcher tree): " + PathOf("block")));
}

}  // namespace kennly::test
