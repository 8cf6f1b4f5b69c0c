#include "system/CtlStatusFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// Trees that are well, and none at all.
class CtlStatusTest : public CtlStatusFixture {
protected:
    static std::vector<std::string> RolesIn(const nlohmann::json& tree) {
        std::vector<std::string> found;
        for (const auto& process : tree.at("processes")) {
            found.push_back(process.at("role").get<std::string>() + " " +
                            std::to_string(process.at("pid").get<int>()));
        }
        return found;
    }
};

TEST_F(CtlStatusTest, ShowsBothTreesToPeople) {
    StartBothTrees();

    const Answer answer = Ctl({"status", "-W"});

    EXPECT_EQ(answer.status, 0) << answer.out << answer.err;
    EXPECT_THAT(
        answer.out,
        AllOf(HasSubstr("main tree: runs\n  parent     " + Role("P ").number + ", for"),
              HasSubstr("\n  child      " + Role("C ").number + ", for"), HasSubstr(", 7 threads"),
              HasSubstr("watcher tree: runs\n  parent     " + Role("WP").number + ", for"),
              HasSubstr("\n  child      " + Role("WC").number + ", for"), HasSubstr(", 4 threads"),
              HasSubstr("kennly.xml: 2 jobs"), HasSubstr("dogdog.xml: 1 job,"),
              HasSubstr("job web: CheckCommandResult"), Not(HasSubstr("\033["))));
    EXPECT_EQ(answer.err, "");
}

TEST_F(CtlStatusTest, ShowsBothTreesToPrograms) {
    StartBothTrees();
    ASSERT_TRUE(WaitForBeatsOf(BothTrees));

    const nlohmann::json status = Status({"-W"});

    EXPECT_THAT(ProblemsIn(status), IsEmpty()) << status;
    EXPECT_THAT(RolesIn(status.at("main")),
                ElementsAre("parent " + Role("P ").number, "child " + Role("C ").number));
    EXPECT_THAT(RolesIn(status.at("watcher")),
                ElementsAre("parent " + Role("WP").number, "child " + Role("WC").number));
    for (const char* const tree : {"main", "watcher"}) {
        for (const char* const beat : {"parent_heartbeat", "child_heartbeat"}) {
            SCOPED_TRACE(std::string(tree) + " " + beat);
            EXPECT_LT(status.at(tree).at(beat).at("age"), Allowing(6));
            EXPECT_EQ(status.at(tree).at(beat).at("stale"), false);
        }
    }
    EXPECT_EQ(status.at("main").at("processes").at(1).at("threads"), 7);
    EXPECT_EQ(status.at("main").at("processes").at(1).at("program"), KENNLY_PROGRAM);
    EXPECT_EQ(status.at("main").at("configuration").at("jobs"), 2);
}

TEST_F(CtlStatusTest, MissesAWatcherTreeOnlyWhereOneIsExpected) {
    StartMainTree();
    EXPECT_TRUE(WaitForProblems({}));
    EXPECT_TRUE(WaitForProblems({"not-running"}, {"-W"}));
    EXPECT_EQ(Status().at("watcher").at("runs"), false);
}

TEST_F(CtlStatusTest, ShowsTheDaemonInTheForeground) {
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForTraces("web", 2));

    EXPECT_TRUE(WaitForProblems({}));
    EXPECT_THAT(RolesIn(Status().at("main")), ElementsAre("foreground " + number));
    EXPECT_EQ(Ctl({"status"}).status, 0);
}

TEST_F(CtlStatusTest, ShowsBothDaemonsInTheForeground) {
    StartDaemon({"-f"});
    const auto watcher = sandbox->Start({KENNLY_PROGRAM, "-f", "-W"});
    ASSERT_TRUE(WaitForTraces("web", 2));
    ASSERT_TRUE(WaitForTraces("beats", 2));

    EXPECT_TRUE(WaitForProblems({}, {"-W"}));
    EXPECT_THAT(RolesIn(Status().at("watcher")),
                ElementsAre("foreground " + NumberInside(watcher->Pid())));
}

TEST_F(CtlStatusTest, TellsThatNothingRuns) {
    const Answer answer = Ctl({"status"});
    EXPECT_EQ(answer.status, 69);
    EXPECT_THAT(answer.out,
                AllOf(HasSubstr("main tree: does not run\n"), HasSubstr("[not-running]")));
    EXPECT_EQ(Status().at("main").at("runs"), false);
}

TEST_F(CtlStatusTest, LeavesOutADaemonWithOtherData) {
    // As in a container.
    const auto other = sandbox->Start({"unshare", "--mount", "sh", "-c",
                                       "mount -t tmpfs none /opt && mkdir -p " + DataDirectory +
                                           "/config && cp /dev/null " + MainConfiguration +
                                           " && exec " KENNLY_PROGRAM " -f"});
    ASSERT_TRUE(
        WaitUntil([&] { return ProcessFile(other->Pid(), "comm") == "kennly\n"; }, Generous));

    EXPECT_EQ(Status().at("main").at("runs"), false);
}

}  // namespace kennly::test
