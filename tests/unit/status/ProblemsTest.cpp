#include "status/Problems.h"

#include <functional>

#include "unit/status/GivenSnapshot.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Level = Problem::Level;

inline std::vector<Problem> Those(const Snapshot& snapshot, const std::string& code,
                                  bool watcherExpected = false) {
    std::vector<Problem> those;
    for (const Problem& problem : FindProblems(snapshot, watcherExpected)) {
        if (problem.code == code) {
            those.push_back(problem);
        }
    }
    return those;
}

TEST(ProblemsTest, FindsNoneWhereAllIsWell) {
    EXPECT_THAT(FindProblems(Healthy(), false), IsEmpty());
    EXPECT_THAT(FindProblems(HealthyBoth(), true), IsEmpty());
    Snapshot foreground = Healthy();
    foreground.main.tree.parents.clear();
    foreground.main.tree.parentBeat = {};
    foreground.main.tree.workers[0].role = DaemonProcess::Role::Foreground;
    EXPECT_THAT(FindProblems(foreground, false), IsEmpty());
}

TEST(ProblemsTest, FindsEachByWhatGivesItAway) {
    struct Row {
        const char* code;
        Level level;
        std::function<void(Snapshot&)> spoil;
        std::string text;  // a part of it
    };
    const auto tree = [](Snapshot& snapshot) -> TreeState& {
        return snapshot.main.tree;
    };
    const std::vector<Row> rows = {
        {"not-running", Level::Critical,
         [&](Snapshot& s) {
             tree(s).parents.clear();
             tree(s).workers.clear();
         },
         "main tree: no process runs"},
        {"heartbeat-left-over", Level::Note,
         [&](Snapshot& s) { s.watcher.tree.workerBeat = Beat("watcherchild", 77); },
         "watcher tree: watcherchild is left over, 77 s old"},
        {"heartbeat-left-over", Level::Note,
         [&](Snapshot& s) {
             tree(s).parents.clear();
             tree(s).workers[0].role = DaemonProcess::Role::Foreground;
         },
         "main tree: parent is left over"},
        {"second-tree", Level::Critical,
         [&](Snapshot& s) {
             tree(s).parents.push_back(Running(21, DaemonProcess::Role::Parent));
             tree(s).workers.push_back(Running(22, DaemonProcess::Role::Child, 21));
         },
         "runs more than once (11, 21)"},
        {"second-tree", Level::Critical,
         [&](Snapshot& s) {
             tree(s).workers.push_back(Running(22, DaemonProcess::Role::Foreground));
         },
         "runs more than once (12, 22)"},
        {"second-tree", Level::Warning,
         [&](Snapshot& s) {
             tree(s).workers.push_back(Running(22, DaemonProcess::Role::Foreground));
             tree(s).workers.back().dataKnown = false;
         },
         "seems to run more than once"},
        {"child-dead", Level::Critical, [&](Snapshot& s) { tree(s).workers.clear(); },
         "the parent 11 lives without a child"},
        {"orphan", Level::Critical,
         [&](Snapshot& s) {
             tree(s).parents.clear();
             tree(s).parentBeat = {};
         },
         "the child 12 has lost its parent"},
        {"orphan", Level::Critical, [&](Snapshot& s) { tree(s).workers[0].parent = 1; },
         "the child 12 has lost its parent"},
        {"program-replaced", Level::Warning,
         [&](Snapshot& s) { tree(s).parents[0].programReplaced = true; }, "process 11 still runs"},
        {"program-replaced", Level::Warning,
         [&](Snapshot& s) { tree(s).workers[0].programReplaced = true; },
         "process 12 still runs the /usr/sbin/kennly"},
        {"parent-hangs", Level::Critical, [&](Snapshot& s) { tree(s).parentBeat.age = 6.5; },
         "no heartbeat for 7 s"},
        {"reload-hangs", Level::Critical, [&](Snapshot& s) { tree(s).workerBeat.age = 30; },
         "no heartbeat for 30 s: the process waits for running checks and pauses, as in a reload"},
        {"reload-hangs", Level::Critical, [&](Snapshot& s) { tree(s).workerBeat.age = -3600; },
         "3600 s in the future"},
        {"heartbeat-missing", Level::Warning,
         [&](Snapshot& s) { tree(s).parentBeat.exists = false; }, "parent is not there"},
        {"heartbeat-missing", Level::Warning,
         [&](Snapshot& s) { tree(s).workerBeat.exists = false; }, "child is not there"},
        {"config-missing", Level::Critical, [&](Snapshot& s) { tree(s).config.exists = false; },
         "kennly.xml is missing"},
        {"config-fails", Level::Critical,
         [&](Snapshot& s) {
             tree(s).config.loads = false;
             tree(s).config.reason = "Error parsing Element.";
         },
         "kennly.xml does not load (Error parsing Element.), and only the jobs of an earlier file"},
        {"config-fails", Level::Critical,
         [&](Snapshot& s) {
             tree(s).config.loads = false;
             tree(s).workers[0].threads = 1;
         },
         "and no job runs: kennlyctl check"},
        {"check-hangs", Level::Warning,
         [&](Snapshot& s) {
             RunningCommand check;
             check.number = 99;
             check.seconds = 300;
             check.jobs = {"web"};
             s.main.jobs[0].checks = {check};
         },
         "the check of job web has been running for 300 s, and all jobs wait for it: process 99"},
        {"check-hangs", Level::Warning,
         [&](Snapshot& s) {
             s.main.jobs.push_back(GivenJob("mail"));
             for (JobState& job : s.main.jobs) {
                 job.checks = {{99, 300, "probe", {"web", "mail"}}};
             }
         },
         "the check of job web or mail has been running for 300 s"},
        {"threads-lost", Level::Critical, [&](Snapshot& s) { tree(s).workers[0].threads = 3; },
         "process 12 has 3 threads instead of 4"},
        {"threads-many", Level::Critical, [&](Snapshot& s) { tree(s).workers[0].threads = 7; },
         "process 12 has 7 threads instead of 4"},
        {"block-in-force", Level::Note,
         [&](Snapshot& s) { s.main.jobs[0].blockFiles = {"/run/b"}; },
         "the remedy of job web is blocked by /run/b"},
        {"orphan-record", Level::Note, [&](Snapshot& s) { s.orphanRecords = {"old"}; },
         "filetimes/old"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.code) + ", " + row.text);
        Snapshot snapshot = Healthy();
        EXPECT_THAT(Those(snapshot, row.code), IsEmpty());

        row.spoil(snapshot);

        const std::vector<Problem> found = Those(snapshot, row.code);
        ASSERT_THAT(found, SizeIs(1));
        EXPECT_EQ(found[0].level, row.level);
        EXPECT_THAT(found[0].text, HasSubstr(row.text));
    }
}

TEST(ProblemsTest, MissesTheWatcherTreeOnlyWhereItIsExpected) {
    EXPECT_THAT(Those(Healthy(), "not-running", false), IsEmpty());
    const std::vector<Problem> missed = Those(Healthy(), "not-running", true);
    ASSERT_THAT(missed, SizeIs(1));
    EXPECT_THAT(missed[0].text, StartsWith("watcher tree: "));
    EXPECT_THAT(Those(HealthyBoth(), "not-running", true), IsEmpty());
    Snapshot configured = Healthy();
    configured.watcher.tree.config.exists = true;
    ASSERT_THAT(Those(configured, "not-running", false), SizeIs(1));
    EXPECT_EQ(Those(configured, "not-running", false)[0].level, Level::Note);
    EXPECT_EQ(Those(configured, "not-running", true)[0].level, Level::Critical);
}

TEST(ProblemsTest, JudgesNothingThatCannotBeSeen) {
    Snapshot hidden = Healthy();
    hidden.processesHidden = true;
    hidden.main.tree.parents.clear();
    hidden.main.tree.workers.clear();
    EXPECT_THAT(FindProblems(hidden, true), IsEmpty());

    Snapshot closed = Healthy();
    closed.main.tree.parentBeat = {"parent", false, true, 0};
    closed.main.tree.workerBeat = {"child", false, true, 0};
    closed.main.tree.config = {};
    closed.main.tree.config.hidden = true;
    closed.main.tree.workers[0].threads = 99;
    EXPECT_THAT(FindProblems(closed, false), IsEmpty());

    Snapshot unreadable = Healthy();
    unreadable.main.tree.config.readable = false;
    unreadable.main.tree.config.loads = false;
    unreadable.main.tree.workers[0].threads = 99;
    EXPECT_THAT(FindProblems(unreadable, false), IsEmpty());
}

TEST(ProblemsTest, CountsNoThreadsWhileAHeartbeatIsMissing) {
    Snapshot snapshot = Healthy();
    snapshot.main.tree.workers[0].threads = 2;
    snapshot.main.tree.workerBeat.age = 30;
    EXPECT_THAT(Those(snapshot, "threads-lost"), IsEmpty());
}

TEST(ProblemsTest, TellsTheLongestPauseThatAReloadMayWaitFor) {
    struct Row {
        std::int32_t check;
        std::int32_t remedy;
        std::int32_t maxErrors;
        std::string pause;
    };
    for (const Row& row :
         {Row{2, 3, 0, "up to 3 s"}, Row{2, 3, 1, "up to 15 s"}, Row{20, 3, 1, "up to 20 s"},
          Row{5, -9, 0, "up to 5 s"}, Row{-1, 0, 0, "up to 4294967295 s"}}) {
        Snapshot snapshot = Healthy();
        DogJob& job = *snapshot.main.tree.config.jobs[0];
        job.check->delay = row.check;
        job.remedy->delay = row.remedy;
        job.maxErrors = row.maxErrors;
        snapshot.main.tree.config.newerThanLoaded = false;
        snapshot.main.tree.workerBeat.age = 30;
        ASSERT_THAT(Those(snapshot, "reload-hangs"), SizeIs(1));
        EXPECT_THAT(Those(snapshot, "reload-hangs")[0].text, EndsWith(row.pause));
    }
    for (const std::optional<bool> newer : {std::optional<bool>(true), std::optional<bool>()}) {
        Snapshot unknown = Healthy();
        unknown.main.tree.config.newerThanLoaded = newer;
        unknown.main.tree.workerBeat.age = 30;
        EXPECT_THAT(Those(unknown, "reload-hangs")[0].text, EndsWith("of its threads pause"));
    }
}

TEST(ProblemsTest, CountsWhatAReloadMayWaitFor) {
    Snapshot snapshot = Healthy();
    snapshot.main.tree.workerBeat.age = 30;
    EXPECT_THAT(Those(snapshot, "reload-hangs")[0].text,
                HasSubstr("; 0 commands run, and an unknown number of its threads pause"));
    snapshot.main.jobs.push_back(GivenJob("mail"));
    for (JobState& job : snapshot.main.jobs) {
        job.checks = {{99, 5, "probe", {"web", "mail"}}};
    }
    snapshot.main.tree.pausing = 2;
    EXPECT_THAT(Those(snapshot, "reload-hangs")[0].text,
                HasSubstr("; 1 command runs, and 2 of its threads pause"));
    snapshot.main.strangers = {{}};
    EXPECT_THAT(Those(snapshot, "reload-hangs")[0].text, HasSubstr("; 2 commands run, "));
    snapshot.main.jobs[0].checks.push_back({98, 5, "probe", {"web", "mail"}});
    EXPECT_THAT(Those(snapshot, "reload-hangs")[0].text, HasSubstr("; 3 commands run, "));
}

TEST(ProblemsTest, KnowsTheWorst) {
    EXPECT_EQ(WorstOf({}), Level::Note);
    EXPECT_EQ(WorstOf({{Level::Note, "a", ""}}), Level::Note);
    EXPECT_EQ(WorstOf({{Level::Note, "a", ""}, {Level::Warning, "b", ""}}), Level::Warning);
    EXPECT_EQ(WorstOf({{Level::Critical, "a", ""}, {Level::Warning, "b", ""}}), Level::Critical);
    EXPECT_STREQ(NameOf(Level::Note), "note");
    EXPECT_STREQ(NameOf(Level::Warning), "warning");
    EXPECT_STREQ(NameOf(Level::Critical), "critical");
}

TEST(ProblemsTest, KeepsWhatLastsByItsCodeAndTree) {
    const Problem main = {Level::Critical, "child-dead", "main tree: the parent 1 lives alone"};
    const Problem later = {Level::Critical, "child-dead", "main tree: the parent 2 lives alone"};
    const Problem watcher = {Level::Critical, "child-dead",
                             "watcher tree: the parent 3 lives alone"};
    const Problem other = {Level::Critical, "orphan", "main tree: the child 4 has lost its parent"};

    EXPECT_THAT(ThatLast({}, {main}), IsEmpty());
    EXPECT_THAT(ThatLast({main}, {}), IsEmpty());
    EXPECT_THAT(ThatLast({watcher, other}, {main}), IsEmpty());
    const std::vector<Problem> lasting = ThatLast({main, other}, {later, watcher});
    ASSERT_THAT(lasting, SizeIs(1));
    EXPECT_EQ(lasting[0].text, later.text);
}

}  // namespace kennly::test
