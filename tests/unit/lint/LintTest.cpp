#include "lint/Lint.h"

#include <set>

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

TEST_F(LintTest, FindsNothingInAGoodConfiguration) {
    EXPECT_THAT(Examine(WithCheck(GoodCheck)).findings, IsEmpty());
}

// Programs of others, and what the daemon and its package make, need not be there.
TEST_F(LintTest, FindsNothingElseInWhatIsShipped) {
    const std::set<std::string> ofMissing = {"command-not-found", "watched-file-missing",
                                             "block-directory-missing"};
    int files = 0;
    for (const char* const folder : {"recipes", "samples", "demo/recovery", "demo/repair"}) {
        for (const auto& entry :
             std::filesystem::directory_iterator(std::string(KENNLY_SOURCES) + "/" + folder)) {
            const std::string path = entry.path();
            if (entry.path().extension() != ".xml") {
                continue;
            }
            ++files;
            const bool watcher = path.find("dogdog") != std::string::npos;
            const LintReport report = ExamineFile(path, watcher);
            EXPECT_EQ(report.verdict.outcome, DaemonVerdict::Outcome::Loads) << path;
            for (const Finding& finding : report.findings) {
                EXPECT_TRUE(finding.severity == Severity::Note ||
                            ofMissing.count(finding.code) == 1)
                    << path << ": " << finding.text;
            }
        }
    }
    EXPECT_GE(files, 15);
}

class OtherUserTest : public LintTest {
protected:
    OtherUserTest() { std::filesystem::create_directory(closed); }

    std::vector<std::string> CodesFor(const std::string& content, std::filesystem::perms ofClosed) {
        directory.Write("draft.xml", content);
        const AsOther other(directory, "closed", ofClosed);
        std::vector<std::string> codes;
        for (const Finding& finding : Lint(directory.Path("draft.xml"), false, machine).findings) {
            codes.push_back(finding.code);
        }
        return codes;
    }

    void ExpectOnlyWhereOneMayLook(const std::string& code, const std::string& content) {
        SCOPED_TRACE(code + " " + content);
        EXPECT_THAT(CodesFor(content, std::filesystem::perms(0755)), Contains(code));
        EXPECT_THAT(CodesFor(content, std::filesystem::perms::none), Not(Contains(code)));
    }

    const std::string closed = directory.Path("closed");
};

TEST_F(OtherUserTest, IsToldOfNoFileThatItMayNotSee) {
    ExpectOnlyWhereOneMayLook("watched-file-missing", WithCheck(FileCheckOf(closed + "/file")));
    ExpectOnlyWhereOneMayLook("path-literal", WithCheck(FileCheckOf(closed + "/$x")));
    const auto blockedBy = [&](const std::string& name) {
        return WithRemedy(RemedyOf("true", "blockaction='" + closed + name + "'"));
    };
    ExpectOnlyWhereOneMayLook("block-directory-missing", blockedBy("/none/block"));
    directory.Write("closed/block", "");
    ExpectOnlyWhereOneMayLook("block-in-force", blockedBy("/block"));
    std::filesystem::create_directory(closed + "/directory");
    ExpectOnlyWhereOneMayLook("block-is-directory", blockedBy("/directory"));
}

TEST_F(OtherUserTest, IsToldOfNoProgramThatItMayNotSee) {
    const std::string code = "command-not-found";
    ExpectOnlyWhereOneMayLook(code, WithCheck(CheckOf(closed + "/none")));
    ExpectOnlyWhereOneMayLook(code, WithRemedy(RemedyOf("sh -c " + closed + "/none")));
    machine.searchPath += ":" + closed;
    ExpectOnlyWhereOneMayLook(code, WithCheck(CheckOf("chekc_disk")));
    ExpectOnlyWhereOneMayLook("nohup-cannot-run", WithRemedy(RemedyOf("exec true")));
    machine.searchPath = closed;
    ExpectOnlyWhereOneMayLook(code, WithRemedy(RemedyOf("true")));  // of nohup
}

TEST_F(OtherUserTest, IsToldOfNoRecordThatItMayNotSee) {
    const std::string config = WithCheck(FileCheckOf("/etc/passwd"));
    machine.recordDirectory = closed;
    ExpectOnlyWhereOneMayLook("first-sight", config);
    machine.recordDirectory = closed + "/filetimes";
    ExpectOnlyWhereOneMayLook("no-record-directory", config);

    directory.Write("draft.xml",
                    RootOf(JobOf(FileCheckOf("/etc/passwd") + GoodRemedy, "name='x/y'")));
    const AsOther other(directory, "closed");
    std::string text;
    for (const Finding& finding : Lint(directory.Path("draft.xml"), false, machine).findings) {
        text += finding.code == "record-name" ? finding.text : "";
    }
    EXPECT_THAT(text, Not(HasSubstr("missing")));
    EXPECT_THAT(text, HasSubstr("if its directory is there"));
}

TEST_F(OtherUserTest, IsToldOfNoHeartbeatThatItMayNotSee) {
    const auto config = [&](const std::string& beat) {
        return WithCheck(StaleCheckOf(machine.heartbeatDirectory + beat, "60"));
    };
    for (const std::string& place : {closed, closed + "/heartbeats"}) {
        machine.heartbeatDirectory = place;
        ExpectOnlyWhereOneMayLook("heartbeat-not-written", config("/watcherchild"));
    }
    DaemonProcess foreground;
    foreground.role = DaemonProcess::Role::Foreground;
    machine.processes = {foreground};
    machine.heartbeatDirectory = closed;
    ExpectOnlyWhereOneMayLook("heartbeat-not-written", config("/parent"));
    directory.Write("closed/parent", " ");
    ExpectOnlyWhereOneMayLook("heartbeat-left-over", config("/parent"));
}

TEST_F(LintTest, NotesAFileThatTheDaemonWouldTakeForTheOneThatItHas) {
    machine.daemonRuns = true;
    const std::string config = WithCheck(GoodCheck);
    directory.Write("config/kennly.xml", config);
    directory.Write("draft.xml", config);
    ASSERT_TRUE(directory.SetTime("config/kennly.xml", 1'700'000'000, 5));
    ASSERT_TRUE(directory.SetTime("draft.xml", 1'700'000'000, 7));
    const auto findings = [&](const std::string& name) {
        return ExamineFile(directory.Path(name)).findings;
    };

    ASSERT_THAT(findings("draft.xml"), SizeIs(1));
    EXPECT_EQ(findings("draft.xml")[0].code, "same-time");
    EXPECT_EQ(findings("draft.xml")[0].severity, Severity::Note);
    EXPECT_THAT(findings("config/kennly.xml"), IsEmpty()) << "the live one itself";

    machine.daemonRuns = false;
    EXPECT_THAT(findings("draft.xml"), IsEmpty());
    machine.daemonRuns = true;
    ASSERT_TRUE(directory.SetTime("draft.xml", 1'700'000'001));
    EXPECT_THAT(findings("draft.xml"), IsEmpty());
}

}  // namespace kennly::test
