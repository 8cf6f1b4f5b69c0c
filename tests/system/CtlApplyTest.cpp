#include <fstream>

#include "support/AccessTimes.h"
#include "system/CtlApplyFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;

/// Files that are put in force.
class CtlApplyTest : public CtlApplyFixture {
protected:
    /// Hides the machine's log files.
    void HideLogFiles() const { ASSERT_EQ(InShell("mount -t tmpfs none /var/log").status, 0); }
    /// From now on the lines of the log go to a file too, as rsyslog would write them.
    void CollectLog() {
        HideLogFiles();
        const std::string path = sandbox->PathInside(LogFile);
        sandbox->OnLine([path](const LogLine& line) {
            std::ofstream(path, std::ios::app)
                << "Nov 22 08:00:00 host " << line.identity << ": " << line.text;
        });
    }
    /// Its check keeps the daemon from taking up anything else.
    void StartWithSlowCheck() {
        Configure(Configuration(Slow("slow", 1000)));
        StartTrees({}, MainTree);
        ASSERT_TRUE(WaitForTraces("slow", 1));
    }

    const std::string LogFile = "/var/log/kennly.log";
};

TEST_F(CtlApplyTest, PutsAConfigurationInForceAndTellsSo) {
    StartWithFirst();

    const Answer answer = Ctl({"apply", Draft(WithJob("second"))});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_THAT(
        answer.out,
        AllOf(
            HasSubstr(MainConfiguration + " is replaced\n"),
            MatchesRegex(
                "(.*\n)?the daemon has taken it up: 1 job, 4 threads, heartbeat [0-9.]+ s ago\n")));
    EXPECT_FALSE(ArrivalsOf(LoadedOf("C ", "second-loaded")).empty()) << "told before it was true";
    EXPECT_TRUE(WaitForTraces("second", 2));
    EXPECT_EQ(sandbox->ReadFile(MainConfiguration), WithJob("second"));
    EXPECT_EQ(sandbox->ReadFile(PathOf("draft.xml")), WithJob("second"));
    ExpectNothingBesideTheLiveFile();
}

TEST_F(CtlApplyTest, KeepsOwnerAndModeOfTheLiveFile) {
    const std::string live = sandbox->PathInside(MainConfiguration);
    ASSERT_EQ(chown(live.c_str(), 12, 34), 0) << std::strerror(errno);
    std::filesystem::permissions(live, std::filesystem::perms(0640));
    EXPECT_EQ(Ctl({"apply", Draft(WithJob("second"))}).status, 0);
    struct stat status = {};
    ASSERT_EQ(stat(live.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 12U);
    EXPECT_EQ(status.st_gid, 34U);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(CtlApplyTest, IsNoticedTwiceInOneSecond) {
    StartWithFirst();
    EXPECT_EQ(Ctl({"apply", "--wait", "0", Draft(WithJob("second"))}).status, 1);
    const std::int64_t time = SecondOf(MainConfiguration);

    const Answer answer = Ctl({"apply", Draft(WithJob("third"))});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_GT(SecondOf(MainConfiguration), time);
    EXPECT_FALSE(ArrivalsOf(LoadedOf("C ", "third-loaded")).empty());
    EXPECT_TRUE(WaitForTraces("third", 2));
}

TEST_F(CtlApplyTest, GivesAnotherSecondToAFileOfTheFuture) {
    constexpr std::int64_t future = 2'000'000'000;
    ConfigureAt(future, WithJob("first"));
    StartWithFirst();
    EXPECT_EQ(Ctl({"apply", Draft(WithJob("second"))}).status, 0);
    EXPECT_EQ(SecondOf(MainConfiguration), future + 1);
}

TEST_F(CtlApplyTest, HasTheLiveFileLoadedAgain) {
    StartWithFirst();
    EXPECT_EQ(Ctl({"apply", MainConfiguration}).status, 0);
    EXPECT_EQ(ArrivalsOf(LoadedOf("C ", "first-loaded")).size(), 2U);
    EXPECT_EQ(sandbox->ReadFile(MainConfiguration), WithJob("first"));
}

TEST_F(CtlApplyTest, TellsOfConfigurationsWithoutJobs) {
    Configure(Configuration(Marker("none-yet")));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForLine(LoadedOf("C ", "none-yet")));
    for (const char* const marker : {"still-none", "none-at-all"}) {
        SCOPED_TRACE(marker);
        const Answer answer = Ctl({"apply", Draft(Configuration(Marker(marker)))});
        EXPECT_EQ(answer.status, 0) << answer.err;
        EXPECT_THAT(answer.out,
                    HasSubstr("the daemon has taken it up: 0 jobs, 1 thread, heartbeat "));
        EXPECT_FALSE(ArrivalsOf(LoadedOf("C ", marker)).empty());
    }
}

TEST_F(CtlApplyTest, GoesByThreadsAloneWhereNothingTellsOfAReading) {
    if (!KeepsNoAccessTimes(sandbox->PathInside(DataDirectory + "/config"))) {
        GTEST_SKIP() << "this file system keeps times of access for all";
    }
    StartWithFirst();
    const Answer answer = Ctl({"apply", Draft(WithJob("second"))});
    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_FALSE(ArrivalsOf(LoadedOf("C ", "second-loaded")).empty()) << "told before it was true";
}

TEST_F(CtlApplyTest, MendsABrokenConfiguration) {
    Configure("<kennly><job></kennly>");
    StartTrees({}, MainTree);
    const Answer answer = Ctl({"apply", Draft(WithJob("second"))});
    EXPECT_EQ(answer.status, 0) << answer.out << answer.err;
    EXPECT_TRUE(WaitForTraces("second", 2));
}

TEST_F(CtlApplyTest, WaitsForARunningCheckAndSaysSo) {
    Configure(Configuration(Slow("slow", 10)));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForTraces("slow", 1));

    const Answer answer = Ctl({"apply", Draft(WithJob("second"))});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_THAT(answer.out,
                HasSubstr("\nit has been read, and waits for running checks and pauses to end\n"
                          "the daemon has taken it up: 1 job, 4 threads, heartbeat "));
    EXPECT_TRUE(WaitForTraces("second", 1));
}

TEST_F(CtlApplyTest, SaysThatAnotherFileHasTakenThePlace) {
    StartWithSlowCheck();
    const std::string draft = Draft(WithJob("second"));
    const std::string other = Draft(WithJob("third"), "other.xml");
    const Answer answer =
        InShell("$CTL apply " + draft + " & until cmp -s " + draft + " " + MainConfiguration +
                "; do sleep 0.1; done; mv " + other + " " + MainConfiguration + "; wait $!");
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.err, HasSubstr("kennlyctl: " + MainConfiguration +
                                      " has been replaced by another file meanwhile"));
    EXPECT_THAT(answer.out, Not(HasSubstr("has taken it up")));
}

TEST_F(CtlApplyTest, IsDoneThoughNobodyReadsWhatItSays) {
    StartWithFirst();
    const std::string draft = Draft(WithJob("second"));
    const std::string fifo = PathOf("fifo");
    InShell("mkfifo " + fifo + "; $CTL apply " + draft + " >" + fifo + " & : <" + fifo + "; wait");
    EXPECT_TRUE(WaitForTraces("second", 2));
    ExpectNothingBesideTheLiveFile();
}

TEST_F(CtlApplyTest, TakesNoOtherFilesUptakeForItsOwn) {
    Configure(Configuration(Slow("slow", 10)));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForTraces("slow", 1));
    const std::string second = WithJob("second");
    EXPECT_EQ(Ctl({"apply", "--wait", "0", Draft(second)}).status, 1);
    ASSERT_TRUE(WaitForLine(LoadedOf("C ", "second-loaded")));

    // The daemon has read the second one, and waits for the check.
    const Answer answer = Ctl({"apply", Draft(WithJob("third"))});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_FALSE(ArrivalsOf(LoadedOf("C ", "third-loaded")).empty()) << "told before it was true";
}

TEST_F(CtlApplyTest, TellsThatItHasNotBeenTakenUp) {
    HideLogFiles();
    StartWithSlowCheck();

    const Answer answer = Ctl({"apply", "--wait", "2", Draft(WithJob("second"))});

    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, Not(HasSubstr("has taken it up")));
    EXPECT_THAT(answer.err, HasSubstr("the daemon has not taken it up within 2 s, "));
    EXPECT_THAT(answer.err, HasSubstr("what it has logged is unknown, as " + LogFile));
}

TEST_F(CtlApplyTest, TellsThatTheDaemonHasEndedAndWhatItHasLogged) {
    CollectLog();
    StartWithSlowCheck();
    const auto applying = StartCtl({"apply", Draft(WithJob("second"))});
    ASSERT_TRUE(WaitUntil(
        [&] { return sandbox->ReadFile(LogFile).value_or("").find('\n') != std::string::npos; },
        Generous));
    SendTo("C ", SIGKILL);

    const Answer answer = AnswerOf(*applying);

    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, HasSubstr("the daemon has logged: " + LoadedText("second-loaded")));
    EXPECT_THAT(answer.err,
                HasSubstr("the daemon's process " + Role("C ").number + " has ended meanwhile"));
    EXPECT_THAT(answer.err, Not(HasSubstr("unknown")));
}

TEST_F(CtlApplyTest, TellsThatTheLogIsNotThere) {
    HideLogFiles();
    StartWithFirst();
    const Answer answer = Ctl({"apply", Draft(WithJob("second"))});
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.err,
              "kennlyctl: what it has logged is unknown, as " + LogFile + " cannot be read\n");
}

TEST_F(CtlApplyTest, WaitsForEveryProcessThatRunsTheJobs) {
    StartWithFirst();
    const std::string first = Role("C ").number;
    const auto other = sandbox->Start({KENNLY_PROGRAM, "-f"});
    const std::string second = NumberInside(other->Pid());
    ASSERT_TRUE(WaitForStatus([&](const nlohmann::json& status) {
        return status.at("main").at("processes").size() == 3 &&
               status.at("main").at("processes").at(2).at("threads") == 4;
    }));

    const Answer answer = Ctl({"apply", Draft(WithJob("second"))});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_THAT(answer.out, AllOf(HasSubstr("2 processes run the jobs of this tree"),
                                  HasSubstr("\nprocess " + first + " has taken it up: 1 job, "),
                                  HasSubstr("\nprocess " + second + " has taken it up: 1 job, ")));
}

TEST_F(CtlApplyTest, PutsTheFileInItsPlaceWhereNoDaemonRuns) {
    for (const bool isThere : {true, false}) {
        SCOPED_TRACE(isThere);
        if (!isThere) {
            ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));
        }
        const Answer answer = Ctl({"apply", Draft(WithJob("second"))});
        EXPECT_EQ(answer.status, 0) << answer.err;
        EXPECT_THAT(answer.out, HasSubstr(MainConfiguration + " is replaced\nno daemon runs"));
        EXPECT_EQ(sandbox->ReadFile(MainConfiguration), WithJob("second"));
    }
}

TEST_F(CtlApplyTest, DoesNotKnowWhetherADaemonRunsUnseen) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    StartWithFirst();
    ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));
    std::filesystem::permissions(sandbox->PathInside(DataDirectory + "/config"),
                                 std::filesystem::perms::all);
    const Answer answer = CtlBlindly("apply " + Draft(WithJob("second")));
    EXPECT_EQ(answer.status, 0) << answer.out << answer.err;
    EXPECT_THAT(answer.out,
                EndsWith("it is not known whether a daemon runs that would take it up: the "
                         "processes of other users cannot be seen\n"));
    EXPECT_THAT(answer.out, Not(HasSubstr("no daemon runs")));
}

TEST_F(CtlApplyTest, IsForTheDaemonInTheForegroundToo) {
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForTraces("first", 2));
    EXPECT_EQ(Ctl({"apply", Draft(WithJob("second"))}).status, 0);
    EXPECT_FALSE(ArrivalsOf(Loaded("second-loaded")).empty());
}

TEST_F(CtlApplyTest, IsForTheWatcherTreeToo) {
    Configure(WithJob("beats"), WatcherConfiguration);
    StartTrees({"-w"}, BothTrees);
    ASSERT_TRUE(WaitForTraces("beats", 2));

    const Answer answer = Ctl({"apply", "-W", Draft(WithJob("other"))});

    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_THAT(answer.out,
                AllOf(HasSubstr(WatcherConfiguration + " is replaced"),
                      HasSubstr("the daemon has taken it up: 1 job, 4 threads, heartbeat ")));
    EXPECT_FALSE(ArrivalsOf(LoadedOf("WC", "other-loaded")).empty());
    EXPECT_EQ(sandbox->ReadFile(MainConfiguration), WithJob("first"));
}

}  // namespace kennly::test
