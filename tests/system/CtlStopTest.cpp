#include "support/Sanitizers.h"
#include "system/CtlFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

/// Ending the classic way: whatever there is of both trees.
class CtlStopTest : public CtlTreesTest {};

TEST_F(CtlStopTest, EndsTheMainTreeAndThenTheWatchersTree) {
    StartTrees({"-w"}, BothTrees);

    const Answer answer = Ctl({"stop"});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_TRUE(WaitUntilOnly({}));
    EXPECT_LT(EndOf("P "), EndOf("WP"));
    EXPECT_EQ(answer.out, "main tree: ending parent " + Role("P ").number +
                              "\nmain tree: has ended\nwatcher tree: ending parent " +
                              Role("WP").number + "\nwatcher tree: has ended\n");
}

TEST_F(CtlStopTest, WaitsForTheEnd) {
    StartTrees({"-w"}, BothTrees);
    EXPECT_EQ(Ctl({"stop"}).status, 0);
    EXPECT_EQ(DaemonProcesses(*sandbox).size(), 0U);
}

TEST_F(CtlStopTest, EndsTheWatcherTreeAloneOnRequest) {
    StartTrees({"-w"}, BothTrees);
    const Answer answer = Ctl({"stop", "-W"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_TRUE(WaitForTrees(MainTree));
    EXPECT_THAT(answer.out, Not(HasSubstr("main tree")));
}

TEST_F(CtlStopTest, EndsTheDaemonInTheForeground) {
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForTraces("web", 2));
    const Answer answer = Ctl({"stop"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_THAT(answer.out, HasSubstr("main tree: ending foreground " + number));
    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
}

TEST_F(CtlStopTest, SaysThatThereIsNothingToEnd) {
    const Answer answer = Ctl({"stop"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.out, "main tree: does not run\nwatcher tree: does not run\n");
    EXPECT_EQ(answer.err, "");
}

TEST_F(CtlStopTest, EndsAWatcherTreeThatTheMainOneHasAdopted) {
    // Adopting is what the first process of a container does with all that lose their parents.
    StartOptions start;
    start.environment = {NoLeakSearch};
    const auto main = sandbox->Start({"unshare", "--pid", "--fork", "--kill-child", "sh", "-c",
                                      KENNLY_PROGRAM " -W & exec " KENNLY_PROGRAM " -f"},
                                     start);
    ASSERT_TRUE(WaitForStatus([](const nlohmann::json& status) {
        return status.at("watcher").at("processes").size() == 2 &&
               status.at("main").at("processes").size() == 1;
    }));
    const Answer answer = Ctl({"stop", "-W"});
    EXPECT_EQ(answer.status, 0);
    EXPECT_THAT(answer.out, HasSubstr("watcher tree: has ended\n"));
    EXPECT_TRUE(WaitForStatus([](const nlohmann::json& status) {
        return !status.at("watcher").at("runs") && status.at("main").at("runs");
    }));
}

TEST_F(CtlStopTest, EndsEveryTreeThatThereIs) {
    StartTrees({"-w"}, BothTrees);
    for (const char* const option : {"-W", "-w"}) {
        const auto another = sandbox->Start({KENNLY_PROGRAM, option});
        EXPECT_EQ(another->WaitForEnd(Generous), std::optional<int>(0));
    }
    ASSERT_TRUE(WaitUntil([&] { return DaemonProcesses(*sandbox).size() == 10; }, Generous));

    EXPECT_EQ(Ctl({"stop"}).status, 0);

    EXPECT_TRUE(WaitUntilOnly({}));
}

TEST_F(CtlStopTest, EndsHalfATree) {
    StartTrees({"-w"}, BothTrees);
    SendTo("C ", SIGKILL);
    ASSERT_TRUE(WaitUntilOnly({"P ", "WP", "WC"}));
    EXPECT_EQ(Ctl({"stop"}).status, 0);
    EXPECT_TRUE(WaitUntilOnly({}));
}

TEST_F(CtlStopTest, EndsAChildThatHasLostItsParent) {
    StartTrees({}, MainTree);
    SendTo("C ", SIGSTOP);
    SendTo("P ", SIGKILL);
    ASSERT_TRUE(WaitUntil([&] { return DaemonProcesses(*sandbox).size() == 1; }, Generous));
    const auto stopping = StartCtl({"stop"});
    ASSERT_TRUE(WaitUntil(
        [&] {
            return stopping->OutputText() == "main tree: ending child " + Role("C ").number + "\n";
        },
        Generous));
    SendTo("C ", SIGCONT);
    EXPECT_EQ(AnswerOf(*stopping).status, 0);
}

TEST_F(CtlStopTest, WaitsForAChildThatDoesNotObey) {
    StartTrees({}, MainTree);
    SendTo("C ", SIGSTOP);
    const Answer answer = Ctl({"stop"});  // its parent kills it after ten seconds
    EXPECT_EQ(answer.status, 0);
    EXPECT_THAT(answer.out, HasSubstr("main tree: has ended\n"));
    EXPECT_TRUE(WaitUntilOnly({}));
}

TEST_F(CtlStopTest, SaysThatAParentDoesNotObey) {
    StartTrees({}, MainTree);
    SendTo("P ", SIGSTOP);
    const Answer answer = Ctl({"stop"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.err, HasSubstr("the main tree has not ended within 20 s"));
    EXPECT_THAT(answer.out, Not(HasSubstr("main tree: has ended")));
}

TEST_F(CtlStopTest, LeavesACheckThatRunsAlone) {
    Configure(Configuration(Slow("slow", 1000)));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForTraces("slow", 1));
    EXPECT_EQ(Ctl({"stop"}).status, 0);
    EXPECT_FALSE(sandbox->Processes().empty());
}

TEST_F(CtlStopTest, TakesNothingForEndedThatItCannotReach) {
    StartTrees({}, MainTree);
    StartOptions start;
    start.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {"FAILING_PIDFD", "1"}};
    const Answer answer = Ctl({"stop"}, start);
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, Not(HasSubstr("main tree: ")));
    EXPECT_EQ(answer.err,
              "kennlyctl: cannot end process " + Role("P ").number + ": Too many open files\n");
    EXPECT_TRUE(WaitForTrees(MainTree));
}

TEST_F(CtlStopTest, NeedsPermission) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    StartTrees({"-w"}, BothTrees);
    const Answer answer = CtlAsNobody("stop");
    EXPECT_EQ(answer.status, 77);
    EXPECT_EQ(answer.out, "");
    EXPECT_THAT(answer.err,
                HasSubstr("cannot end process " + Role("P ").number + ": Operation not permitted"));
    EXPECT_TRUE(WaitForTrees(BothTrees));
}

TEST_F(CtlStopTest, DoesNotKnowWhatRunsUnseen) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    StartTrees({}, MainTree);
    const Answer answer = CtlBlindly("stop");
    EXPECT_EQ(answer.status, 77);
    EXPECT_EQ(answer.out,
              "main tree: unknown whether it runs\nwatcher tree: unknown whether it runs\n");
    EXPECT_EQ(answer.err,
              "kennlyctl: the processes of other users cannot be seen, so some of the daemon may "
              "run on\n");
    EXPECT_TRUE(WaitForTrees(MainTree));
}

TEST_F(CtlStopTest, EndsARestartThatIsUnderWay) {
    // It gets no further than to the program that it starts.
    const std::string program = PathOf("program");
    ASSERT_TRUE(sandbox->WriteFile(program, "#!/bin/sh\necho >" + PathOf("begun") + "\nsleep 9\n"));
    std::filesystem::permissions(sandbox->PathInside(program), std::filesystem::perms(0755));
    StartTrees({"-W"}, WatcherTree);
    const auto restart = sandbox->Start({KENNLY_SAMPLES "/restart-tree", "main", program});
    const std::string numberOfIt = NumberInside(restart->Pid());
    ASSERT_TRUE(WaitUntil([&] { return sandbox->FileExists(PathOf("begun")); }, Generous));

    const Answer answer = Ctl({"stop"});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_THAT(answer.out,
                HasSubstr("main tree: ending its restart, process " + numberOfIt + "\n"));
    const std::optional<int> end = restart->WaitForEnd(Generous);
    ASSERT_TRUE(end);
    EXPECT_TRUE(WIFSIGNALED(*end) && WTERMSIG(*end) == SIGTERM) << *end;
}

TEST_F(CtlStopTest, EndsAMainTreeThatHasBeenStartedAnewMeanwhile) {
    // As the watcher tree may have done it before its end.
    StartTrees({"-w"}, BothTrees);
    SendTo("WC", SIGSTOP);  // which makes its end take ten seconds
    const auto stopping = StartCtl({"stop"});
    ASSERT_TRUE(WaitUntil(
        [&] { return stopping->OutputText().find("watcher tree: ending") != std::string::npos; },
        Generous));
    const auto another = sandbox->Start({KENNLY_PROGRAM});

    EXPECT_EQ(AnswerOf(*stopping).status, 0);

    EXPECT_TRUE(WaitUntil([&] { return sandbox->Processes().empty(); }, Generous));
}

}  // namespace kennly::test
