#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::IsEmpty;

using CheckTest = DaemonTest;

TEST_F(CheckTest, LogsChecksThatCannotBeEvaluatedAndStartsNoRemedy) {
    const std::string check = "<check type=\"CheckCommandResult\" delay=\"1\">";
    const std::string remedy = Remedy(NoteInShell("remedy"));
    Configure(
        Configuration(Job("none", check + "</check>" + remedy) +
                      Job("two", check + Param("exit 1") + Param("exit 1") + "</check>" + remedy) +
                      Job("empty", check + Param("") + "</check>" + remedy)));
    const std::string wrongCount =
        "check error - DogCheckCommandWatch::DoWatch() not one parameter!!";

    StartDaemon();

    EXPECT_TRUE(WaitForLine(Error(wrongCount + " none"), 3));
    EXPECT_TRUE(WaitForLine(Error(wrongCount + " two"), 3));
    EXPECT_TRUE(
        WaitForLine(Error("check error - DogCheckCommandWatch::DoWatch() no command!! empty"), 3));
    StopDaemon();
    EXPECT_FALSE(sandbox->FileExists(TracePath("remedy")));
    const std::vector<std::string> lines = Lines();
    EXPECT_THAT(lines, ::testing::Not(::testing::Contains(::testing::HasSubstr("remedy"))));
}

TEST_F(CheckTest, KeepsSilentAboutSocketsAndStartsNoRemedy) {
    std::string jobs;
    for (const std::string type : {"CheckSocketListening", "CheckListeningSocketResponse"}) {
        jobs += Job(type, CheckOfType(type, {}) + Remedy("true"));
        jobs += Job(type + "-port", CheckOfType(type, {"localhost", "1"}) + Remedy("true"));
    }
    Configure(
        Configuration(jobs + Job("failing", Check("exit 1", "delay=\"1\"") + Remedy("true"))));

    StartDaemon();

    EXPECT_TRUE(WaitForRemedies("failing", 3));
    StopDaemon();
    EXPECT_THAT(Lines(), Each(AnyOf(RemedyRuns("failing", "true"), Exit(0))));
}

TEST_F(CheckTest, KeepsSilentAboutFilesThatAreGivenWronglyAndStartsNoRemedy) {
    const std::string path = DataDirectory + "/config";
    const std::string old = DataDirectory + "/old";
    PutFile(old, std::time(nullptr) - 10000);
    const std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
        {"CheckForFileChange", {}},
        {"CheckForFileChange", {path, path}},
        {"CheckForFileChange", {path, ""}},
        {"CheckForFileChange", {""}},
        {"CheckForNoFileChange", {}},
        {"CheckForNoFileChange", {old}},
        {"CheckForNoFileChange", {old, "1", "1"}},
        {"CheckForNoFileChange", {"", "1"}},
    };
    std::string jobs =
        Job("changed", CheckOfType("CheckForFileChange", {path}) + Remedy("true")) +
        Job("stale", CheckOfType("CheckForNoFileChange", {old, "1"}) + Remedy("true"));
    for (const auto& [type, params] : rows) {
        jobs +=
            Job("job" + std::to_string(jobs.size()), CheckOfType(type, params) + Remedy("true"));
    }
    Configure(Configuration(jobs));

    StartDaemon();

    EXPECT_TRUE(WaitForRemedies("changed", 1));
    EXPECT_TRUE(WaitForRemedies("stale", 3));
    StopDaemon();
    EXPECT_THAT(Lines(),
                Each(AnyOf(RemedyRuns("changed", "true"), RemedyRuns("stale", "true"), Exit(0))));
}

TEST_F(CheckTest, JudgesExitStatusesAsTheJobAsks) {
    struct Row {
        const char* name;
        const char* end;
        const char* attribute;
        bool fails;
    };
    const std::vector<Row> rows = {
        {"zero", "exit 0", "", false},
        {"one", "exit 1", "", true},
        {"three", "exit 3", "", true},
        {"missing", "/no/such/command", "", true},
        {"killed", "kill -9 $$", "", false},
        {"three-is-three", "exit 3", "runactionresult=\"3\"", true},
        {"three-not-zero", "exit 0", "runactionresult=\"3\"", false},
        {"three-not-four", "exit 4", "runactionresult=\" 3x\"", false},
        {"zero-is-zero", "exit 0", "runactionresult=\"0\"", true},
        {"zero-not-one", "exit 1", "runactionresult=\"0\"", false},
        {"text-is-zero", "exit 0", "runactionresult=\"text\"", true},
        {"never", "exit 255", "runactionresult=\"-1\"", false},
        {"killed-is-zero", "kill -9 $$", "runactionresult=\"0\"", true},
    };
    std::string jobs;
    for (const Row& row : rows) {
        jobs += Job(row.name, Check(Note(row.name) + "; " + row.end,
                                    std::string("delay=\"2\" ") + row.attribute) +
                                  Remedy("true"));
    }
    Configure(Configuration(jobs));

    StartDaemon();

    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(WaitForTraces(row.name, 2));
        if (row.fails) {
            EXPECT_TRUE(WaitForLine(RemedyRuns(row.name, "true")));
        } else {
            EXPECT_THAT(ArrivalsOf(RemedyRuns(row.name, "true")), IsEmpty());
        }
    }
    StopDaemon();
}

}  // namespace kennly::test
