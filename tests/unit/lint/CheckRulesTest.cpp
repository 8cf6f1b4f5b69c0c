#include "lint/CheckRules.h"

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using CheckRulesTest = LintTest;

TEST_F(CheckRulesTest, FindsChecksThatNeverReachAVerdict) {
    const std::string param = "<param value='/etc/passwd'/>";
    const std::string good = WithCheck(FileCheckOf("/etc/passwd"));
    ExpectTraps({
        {"no command", "param-count", WithCheck(CheckOfType("CheckCommandResult", "")),
         WithCheck(CheckOfType("CheckCommandResult", "<param value='true'/>"))},
        {"two commands", "param-count", WithCheck(CheckOfType("CheckCommandResult", param + param)),
         good},
        {"two files", "param-count", WithCheck(CheckOfType("CheckForFileChange", param + param)),
         good},
        {"no limit", "param-count", WithCheck(CheckOfType("CheckForNoFileChange", param)),
         WithCheck(StaleCheckOf("/etc/passwd", ""))},
        {"an empty command", "empty-param", WithCheck(CheckOf("")), WithCheck(CheckOf("true"))},
        {"an empty path", "empty-param", WithCheck(FileCheckOf("")), good},
        {"an empty path with a limit", "empty-param", WithCheck(StaleCheckOf("", "9")), good},
        {"a placeholder", "inert-check", WithCheck(CheckOfType("CheckSocketListening", param)),
         good},
        {"the other one", "inert-check", WithCheck(CheckOfType("CheckListeningSocketResponse", "")),
         good},
    });
}

TEST_F(CheckRulesTest, FindsDelays) {
    const auto with = [](const std::string& delay) {
        return WithCheck(CheckOf("true", delay));
    };
    ExpectTraps({
        {"none", "no-delay", with(""), with("delay='1'")},
        {"of nothing", "no-delay", with("delay='0'"), with("delay='1'")},
        {"before the beginning", "negative-delay", with("delay='-1'"), with("delay='1'")},
        {"long", "long-delay", with("delay='10'"), with("delay='9'")},
    });
    EXPECT_EQ(Those(with("delay='59'"), "long-delay").at(0).severity, Severity::Note);
    const Finding strong = Those(with("delay='60'"), "long-delay").at(0);
    EXPECT_EQ(strong.severity, Severity::Warning);
    EXPECT_THAT(strong.text, HasSubstr("a reload may take up to 60 s"));
}

TEST_F(CheckRulesTest, FindsStatusesThatAreNoFailures) {
    const auto with = [](const std::string& status) {
        return WithCheck(CheckOf("true", "delay='1' runactionresult='" + status + "'"));
    };
    const std::string without = WithCheck(CheckOf("true"));
    ExpectTraps({
        {"beyond a byte", "status-never-seen", with("256"), with("255")},
        {"below one", "status-never-seen", with("-1"), with("1")},
        {"success", "status-inverted", with("0"), with("1")},
        {"no digits", "status-inverted", with("critical"), with("2")},
        {"one of many", "status-hides-failures", with("2"), without},
        {"of a file", "status-ignored",
         WithCheck(CheckOfType("CheckForFileChange", "<param value='/etc/passwd'/>",
                               "delay='1' runactionresult='1'")),
         WithCheck(FileCheckOf("/etc/passwd"))},
    });
}

TEST_F(CheckRulesTest, FindsPathsThatLeadElsewhere) {
    const std::string good = WithCheck(FileCheckOf("/etc/passwd"));
    ExpectTraps({
        {"relative", "path-not-absolute", WithCheck(FileCheckOf("etc/passwd")), good},
        {"home", "path-literal", WithCheck(FileCheckOf("~/file")), good},
        {"a variable", "path-literal", WithCheck(FileCheckOf("/home/$USER/x")), good},
        {"a set", "path-literal", WithCheck(FileCheckOf("/var/log/[ab].log")), good},
        {"a wildcard", "path-literal", WithCheck(FileCheckOf("/var/log/*.log")), good},
        {"a blank before", "path-literal", WithCheck(FileCheckOf(" /etc/passwd")), good},
        {"a blank behind", "path-literal", WithCheck(StaleCheckOf("/etc/passwd ", "9")), good},
        {"nothing there", "watched-file-missing", WithCheck(FileCheckOf("/etc/kennly/none")), good},
        {"nothing to be stale", "watched-file-missing", WithCheck(StaleCheckOf("/none", "9")),
         good},
    });
}

TEST_F(CheckRulesTest, FindsLimitsThatAreReadAsOthers) {
    for (const char* const limit : {"5m", "abc", "1.5", "0", "-3", " 9", "99999999999"}) {
        EXPECT_THAT(Those(WithCheck(StaleCheckOf("/etc/passwd", limit)), "limit-not-a-number"),
                    SizeIs(1))
            << limit;
    }
    for (const char* const limit : {"", "1", "120", "0120", "2147483647"}) {
        EXPECT_THAT(Those(WithCheck(StaleCheckOf("/etc/passwd", limit)), "limit-not-a-number"),
                    IsEmpty())
            << limit;
    }
}

TEST_F(CheckRulesTest, TakesAPathAsItStandsThatIsThere) {
    const std::string odd = directory.Write("odd [1]* $x.log", "");
    EXPECT_THAT(Those(WithCheck(FileCheckOf(odd)), "path-literal"), IsEmpty());
}

TEST_F(CheckRulesTest, SaysWhatPassesBesidesTheOneStatus) {
    const auto textFor = [&](const std::string& status) {
        return Those(WithCheck(CheckOf("true", "delay='1' runactionresult='" + status + "'")),
                     "status-hides-failures")
            .at(0)
            .text;
    };
    EXPECT_THAT(textFor("2"), HasSubstr("127 of a missing command, 126 of one that cannot run, 124 "
                                        "of timeout:"));
    EXPECT_THAT(textFor("127"), HasSubstr("such as 126 of one that cannot run"));
}

TEST_F(CheckRulesTest, FindsWhatIsNotRemembered) {
    const std::string config = WithCheck(FileCheckOf("/etc/passwd"));
    EXPECT_THAT(Those(config, "first-sight"), SizeIs(1));
    EXPECT_THAT(Those(config, "no-record-directory"), IsEmpty());

    directory.Write("config/filetimes/a", "012");
    EXPECT_THAT(Those(config, "first-sight"), SizeIs(1)) << "a record that is too short";
    directory.Write("config/filetimes/a", "0123");
    EXPECT_THAT(Those(config, "first-sight"), IsEmpty());

    std::filesystem::remove_all(machine.recordDirectory);
    EXPECT_THAT(Those(config, "no-record-directory"), SizeIs(1));
}

}  // namespace kennly::test
