#include "system/CtlStatusFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// What is seen of single jobs.
class CtlStatusJobTest : public CtlStatusFixture {
protected:
    /// Asks until the condition holds for a job; returns it as it was at last.
    template <class F>
    nlohmann::json AwaitJob(const std::string& name, F condition) const {
        nlohmann::json job;
        EXPECT_TRUE(WaitForStatus([&](const nlohmann::json& status) {
            job = JobIn(status, name);
            return !job.is_null() && condition(job);
        })) << job;
        return job;
    }
    /// The numbers of the processes inside that have this command line.
    std::vector<int> NumbersOf(const std::vector<std::string>& arguments) const {
        std::vector<int> numbers;
        for (const pid_t process : sandbox->Processes()) {
            if (daemonprocesses::ArgumentsOf(process) == arguments) {
                numbers.push_back(std::stoi(NumberInside(process)));
            }
        }
        return numbers;
    }
    static std::vector<int> NumbersIn(const nlohmann::json& commands) {
        std::vector<int> numbers;
        for (const auto& command : commands) {
            numbers.push_back(command.at("pid"));
        }
        return numbers;
    }
};

TEST_F(CtlStatusJobTest, ShowsTheCheckThatRunsAndForHowLong) {
    Configure(Configuration(Slow("list", 1000) +
                            Job("single", Check("sleep 1001") + Remedy("true")) + Healthy("idle")));
    StartTrees({}, MainTree);
    const auto runs = [](const nlohmann::json& job) {
        return job.at("running").size() == 1 && job.at("running").at(0).at("seconds") > 1.0;
    };

    const nlohmann::json list = AwaitJob("list", runs);
    const nlohmann::json single = AwaitJob("single", runs);

    EXPECT_EQ(list.at("running").at(0).at("command"), Note("list") + "; sleep 1000");
    EXPECT_EQ(single.at("running").at(0).at("command"), "sleep 1001");
    EXPECT_THAT(JobIn(Status(), "idle").at("running"), IsEmpty());
    EXPECT_THAT(TextOfStatus(), HasSubstr("    checks: \"sleep 1001\", process "));
    EXPECT_THAT(Status().at("main").at("running_of_no_known_job"), IsEmpty());
}

TEST_F(CtlStatusJobTest, ShowsTheRemedyThatRuns) {
    const std::string script = PathOf("remedy");
    ASSERT_TRUE(sandbox->WriteFile(script, "#!/bin/sh\nsleep 1002\n"));
    std::filesystem::permissions(sandbox->PathInside(script), std::filesystem::perms(0755));
    Configure(Configuration(
        Job("down", Check("false", "delay=\"600\"") + Remedy("sleep 1000")) +
        Job("shell", Check("false", "delay=\"600\"") + Remedy("sh -c 'sleep 1001; true'")) +
        Job("script", Check("false", "delay=\"600\"") + Remedy(script)) + Healthy("web")));
    StartTrees({}, MainTree);
    // The same, begun by somebody else.
    const auto other = sandbox->Start({"sleep", "1000"});
    const auto runs = [](const nlohmann::json& job) {
        return job.at("remedies_probably_running").size() == 1;
    };

    for (const char* const name : {"shell", "script"}) {
        SCOPED_TRACE(name);
        AwaitJob(name, runs);
    }
    const nlohmann::json down = AwaitJob("down", runs);

    const int remedy = down.at("remedies_probably_running").at(0).at("pid");
    EXPECT_THAT(NumbersOf({"sleep", "1000"}),
                AllOf(::testing::SizeIs(2), ::testing::Contains(remedy)));
    EXPECT_NE(remedy, std::stoi(NumberInside(other->Pid())));
    EXPECT_THAT(TextOfStatus(), HasSubstr("    remedy, probably: \"sleep 1000\", process " +
                                          std::to_string(remedy)));
    EXPECT_THAT(JobIn(Status(), "web").at("remedies_probably_running"), IsEmpty());
}

TEST_F(CtlStatusJobTest, ShowsTheBlockFilesInForce) {
    PutFile(PathOf("first"), 1);
    PutFile(PathOf("third"), 1);
    Configure(Configuration(Job(
        "web",
        Check("true", "delay=\"1\"") +
            Remedy("true", "blockaction=\"" + PathOf("first") + "\" blockaction2=\"" +
                               PathOf("second") + "\" blockaction3=\"" + PathOf("third") + "\""))));
    const nlohmann::json status = Status();
    EXPECT_EQ(JobIn(status, "web").at("blocked_by"),
              nlohmann::json({PathOf("first"), PathOf("third")}));
    EXPECT_THAT(TextOfStatus(), AllOf(HasSubstr("remedy blocked by " + PathOf("third")),
                                      HasSubstr("note: [block-in-force] main tree: the remedy of "
                                                "job web is blocked by " +
                                                PathOf("first"))));
}

TEST_F(CtlStatusJobTest, ShowsTheTimeOnRecord) {
    PutFile(PathOf("watched"), 1'600'000'000);
    const std::string job =
        Job("file", CheckOfType("CheckForFileChange", {PathOf("watched")}) + Remedy("true"));
    Configure(Configuration(Healthy("web") + job));
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForRemedies("file", 1));
    EXPECT_TRUE(JobIn(Status(), "file").at("recorded_time").is_null());
    EXPECT_THAT(TextOfStatus(), HasSubstr("    time on record: none\n"));

    StopDaemon();

    EXPECT_EQ(JobIn(Status(), "file").at("recorded_time"), 1'600'000'000);
    StartOptions inGreenwich;
    inGreenwich.environment = {{"TZ", "UTC"}};
    EXPECT_THAT(Ctl({"status"}, inGreenwich).out,
                HasSubstr("    time on record: 2020-09-13 12:26:40\n"));
    EXPECT_TRUE(JobIn(Status(), "web").at("recorded_time").is_null());
}

TEST_F(CtlStatusJobTest, NotesRecordsThatAreOfNoJob) {
    for (const char* const name : {"gone", "web", "kept", "beats"}) {
        ASSERT_TRUE(sandbox->WriteFile(RecordPath(name), "1234"));
    }
    const std::string watched = CheckOfType("CheckForFileChange", {PathOf("watched")});
    Configure(Configuration(Job("beats", watched + Remedy("true"))), WatcherConfiguration);
    Configure(Configuration(Healthy("web") + Job("kept", watched + Remedy("true"))));

    EXPECT_EQ(Status().at("orphan_records"), nlohmann::json({"gone", "web"}));
    EXPECT_THAT(TextOfStatus(), HasSubstr("note: [orphan-record] the record filetimes/gone"));

    Configure("<kennly><job></kennly>");  // then nobody knows
    EXPECT_TRUE(Status().at("orphan_records").is_null());
}

}  // namespace kennly::test
