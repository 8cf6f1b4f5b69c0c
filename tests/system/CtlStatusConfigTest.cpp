#include "system/CtlStatusFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;

/// What the configuration file has to do with the processes that run.
class CtlStatusConfigTest : public CtlStatusFixture {};

TEST_F(CtlStatusConfigTest, FindsAConfigurationThatFails) {
    StartMainTree();
    Configure("<kennly><job></kennly>");
    EXPECT_TRUE(WaitForProblems({"config-fails"}));
    EXPECT_THAT(TextOfStatus(), HasSubstr("kennly.xml: does not load: Error reading end tag."));
    // At first those of the file before still run.
    EXPECT_TRUE(WaitForStatus([&](const nlohmann::json& status) {
        return status.dump().find("no job runs: kennlyctl check says where") != std::string::npos;
    }));
    const nlohmann::json status = Status();
    EXPECT_EQ(status.at("main").at("configuration").at("loads"), false);
    EXPECT_EQ(status.at("main").at("configuration").at("reason"), "Error reading end tag.");
}

TEST_F(CtlStatusConfigTest, FindsAConfigurationThatIsMissing) {
    StartMainTree();
    ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));
    EXPECT_TRUE(WaitForProblems({"config-missing"}));
    EXPECT_THAT(TextOfStatus(), HasSubstr("kennly.xml: missing\n"));
    EXPECT_TRUE(Status().at("main").at("configuration").at("loads").is_null());
}

TEST_F(CtlStatusConfigTest, FindsThreadsThatCouldNotBeStarted) {
    StartOptions start;
    start.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {"FAILING_THREAD", "4"}};
    StartDaemon({"-f"}, start);
    ASSERT_TRUE(WaitForLine(Error("Error creating Thread Pool")));

    EXPECT_TRUE(WaitForProblems({"threads-lost"}));

    EXPECT_EQ(Plugin().status, 2);
    EXPECT_THAT(TextOfStatus(),
                HasSubstr("process " + number + " has 1 thread instead of 7 for 2 jobs"));
}

TEST_F(CtlStatusConfigTest, FindsAFileThatHasNotBeenTakenUp) {
    StartMainTree();
    // What the daemon does not notice: another file of the same time.
    ConfigureAt(fileTime, Configuration(Healthy("web") + Healthy("mail") + Healthy("dns")));
    EXPECT_TRUE(WaitForProblems({"threads-lost"}));
    ConfigureAt(fileTime, Configuration(Healthy("web")));
    EXPECT_TRUE(WaitForProblems({"threads-many"}));
}

TEST_F(CtlStatusConfigTest, AllowsTheDaemonTheTimeToTakeAFileUp) {
    StartMainTree();
    ConfigureAt(fileTime, Configuration(Healthy("web")));  // which it does not notice
    const auto begin = std::chrono::steady_clock::now();
    const bool isAllowed = ProblemsIn(Status()).empty();
    const auto seconds = std::chrono::steady_clock::now() - begin;
    // It looks again at most five seconds after a load; a slow machine may have spent those.
    EXPECT_TRUE(isAllowed || seconds > std::chrono::seconds(5));
}

TEST_F(CtlStatusConfigTest, FindsNothingWrongWithAFileThatHasLongBeenTakenUp) {
    StartBothTrees();
    const auto secondsSinceChange = [this] {
        struct stat status = {};
        EXPECT_EQ(stat(sandbox->PathInside(MainConfiguration).c_str(), &status), 0);
        return std::time(nullptr) - status.st_ctime;
    };
    ASSERT_TRUE(WaitUntil([&] { return secondsSinceChange() > 9; }, Generous));

    EXPECT_THAT(ProblemsIn(Status({"-W"})), ::testing::IsEmpty()) << Status();
}

TEST_F(CtlStatusConfigTest, FindsAReloadThatWaitsForACheck) {
    Configure(Configuration(Slow("slow", 1000)));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForTraces("slow", 1));
    Configure(Configuration(Healthy("later")));

    EXPECT_TRUE(WaitForProblems({"reload-hangs"}));

    const nlohmann::json status = Status();
    EXPECT_EQ(status.at("main").at("child_heartbeat").at("stale"), true);
    EXPECT_EQ(status.at("main").at("parent_heartbeat").at("stale"), false);
    // The job is no longer in the file, and its command runs all the same.
    EXPECT_EQ(status.at("main").at("running_of_no_known_job").size(), 1U);
    EXPECT_THAT(TextOfStatus(), HasSubstr("of no known job: \""));
}

TEST_F(CtlStatusConfigTest, FindsAReloadThatWaitsForAPause) {
    Configure(Configuration(
        Job("long", Check(Note("long") + "; true", "delay=\"1000\"") + Remedy("true"))));
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForTraces("long", 1));
    ASSERT_TRUE(WaitForProblems({}));
    Configure(Configuration(Healthy("later")));
    EXPECT_TRUE(WaitForProblems({"reload-hangs"}));
    EXPECT_THAT(TextOfStatus(), AnyOf(HasSubstr("; 0 commands run, and 1 of its threads pause"),
                                      HasSubstr("; 0 commands run, and an unknown number of its")));
}

TEST_F(CtlStatusConfigTest, HangsOnNoConfigurationThatIsNoFile) {
    ASSERT_TRUE(sandbox->RemoveFile(WatcherConfiguration));
    ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));
    EXPECT_EQ(InShell("mkfifo " + MainConfiguration).status, 0);

    const Answer answer = Ctl({"status"});

    EXPECT_EQ(answer.status, 69);
    EXPECT_THAT(answer.out, AllOf(HasSubstr("kennly.xml: does not load: not a regular file"),
                                  Not(HasSubstr("  job "))));
}

}  // namespace kennly::test
