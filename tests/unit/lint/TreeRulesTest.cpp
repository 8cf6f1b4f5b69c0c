#include "lint/TreeRules.h"

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Checks of the daemon's own heartbeats.
class TreeRulesTest : public LintTest {
protected:
    std::string Watching(const std::string& beat, const std::string& limit) const {
        return WithCheck(StaleCheckOf(machine.heartbeatDirectory + "/" + beat, limit));
    }

    void GivenProcess(bool watcher, DaemonProcess::Role role) {
        DaemonProcess process;
        process.isWatcher = watcher;
        process.role = role;
        machine.processes.push_back(process);
    }
};

TEST_F(TreeRulesTest, FindsAProcessThatWatchesItself) {
    const char* const code = "watches-itself";
    ExpectTraps({{"main", code, Watching("child", "60"), Watching("watcherchild", "60")},
                 {"its parent", code, Watching("child", "60"), Watching("parent", "60")}});
    ExpectTraps({{"watcher", code, Watching("watcherchild", "60"), Watching("child", "60")}}, true);
}

TEST_F(TreeRulesTest, KnowsAHeartbeatByAnyOfItsPaths) {
    for (const char* const beat : {"child", "/child", "./child", ".//./child"}) {
        EXPECT_THAT(Those(Watching(beat, "60"), "watches-itself"), SizeIs(1)) << beat;
    }
    for (const char* const beat : {"child/", "child/child", "../child", "children"}) {
        EXPECT_THAT(Those(Watching(beat, "60"), "watches-itself"), IsEmpty()) << beat;
    }
    machine.heartbeatDirectory += "/.";
    EXPECT_THAT(Those(Watching("/child", "60"), "watches-itself"), SizeIs(1));
}

TEST_F(TreeRulesTest, FindsLimitsBelowWhatAReloadTakes) {
    const char* const code = "stale-limit-short";
    directory.Write("config/dogdog.xml", RootOf(JobOf(CheckOf("true", "delay='30'") + GoodRemedy)));
    directory.Write("config/kennly.xml",
                    RootOf(JobOf(CheckOf("true", "delay='5'") + RemedyOf("true", "delay='50'"))));

    ExpectTraps(
        {{"of the other tree", code, Watching("watcherchild", "35"),
          Watching("watcherchild", "36")},
         {"of a process that no reload holds up", code, Watching("watcherchild", "5"),
          Watching("watcherparent", "5")},
         {"the usual one", code, Watching("watcherchild", "35"), Watching("watcherchild", "")}});
    ExpectTraps({{"a remedy's delay", code, Watching("child", "55"), Watching("child", "56")}},
                true);
    EXPECT_THAT(Those(Watching("watcherchild", "9"), code).at(0).text,
                HasSubstr("write at least 36"));
}

TEST_F(TreeRulesTest, ReckonsWithThePauseOfAThrottle) {
    directory.Write("config/dogdog.xml",
                    RootOf(JobOf(GoodCheck + GoodRemedy, "name='a' maxerrors='3'")));
    ExpectTraps({{"15 s and 6", "stale-limit-short", Watching("watcherchild", "20"),
                  Watching("watcherchild", "21")}});
}

TEST_F(TreeRulesTest, NotesAHeartbeatThatHasNotBeenWrittenYet) {
    const std::string config = Watching("watcherchild", "60");
    const auto found = Those(config, "heartbeat-not-written");
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0].severity, Severity::Note);
    EXPECT_THAT(Those(config, "watched-file-missing"), IsEmpty());

    directory.Write("heartbeats/watcherchild", " ");
    EXPECT_THAT(Examine(config).findings, IsEmpty());
}

TEST_F(TreeRulesTest, FindsAHeartbeatWithoutADirectory) {
    const std::string config = Watching("watcherchild", "60");
    std::filesystem::remove_all(machine.heartbeatDirectory);
    const auto found = Those(config, "heartbeat-not-written");
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0].severity, Severity::Warning);
    EXPECT_THAT(found[0].text, HasSubstr("the check passes for ever; make it"));
}

TEST_F(TreeRulesTest, FindsAHeartbeatThatNobodyWritesInTheForeground) {
    const std::string config = Watching("parent", "60");
    GivenProcess(false, DaemonProcess::Role::Foreground);
    const auto found = Those(config, "heartbeat-not-written", true);
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0].severity, Severity::Warning);
    EXPECT_THAT(found[0].text, HasSubstr("the check passes for ever; watch child"));
    EXPECT_THAT(Those(config, "heartbeat-left-over", true), IsEmpty());

    directory.Write("heartbeats/parent", " ");
    EXPECT_THAT(Those(config, "heartbeat-not-written", true), IsEmpty());
    EXPECT_THAT(Those(config, "heartbeat-left-over", true), SizeIs(1));

    EXPECT_THAT(Those(Watching("child", "60"), "heartbeat-left-over", true), IsEmpty());
    GivenProcess(false, DaemonProcess::Role::Parent);
    EXPECT_THAT(Those(config, "heartbeat-left-over", true), IsEmpty()) << "somebody writes it";
}

TEST_F(TreeRulesTest, TellsTheTreesApart) {
    directory.Write("heartbeats/watcherparent", " ");
    GivenProcess(false, DaemonProcess::Role::Foreground);
    EXPECT_THAT(Those(Watching("watcherparent", "60"), "heartbeat-left-over"), IsEmpty());
    GivenProcess(true, DaemonProcess::Role::Foreground);
    EXPECT_THAT(Those(Watching("watcherparent", "60"), "heartbeat-left-over").at(0).text,
                HasSubstr("remove the file that is left over, and watch watcherchild"));
}

}  // namespace kennly::test
