#include "ctl/StatusMetrics.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "support/TemporaryDirectory.h"
#include "unit/status/GivenSnapshot.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

inline std::string MetricsFor(const Snapshot& snapshot) {
    return MetricsOf(ViewOf(snapshot));
}

/// What promtool, of the Debian package "prometheus", has against a text; without it, that. Empty
/// when it takes all of it.
inline std::string ObjectionsTo(const std::string& metrics) {
    const TemporaryDirectory directory;
    directory.Write("metrics", metrics);
    const std::string command = "promtool check metrics <" + directory.Path("metrics") + " >" +
                                directory.Path("answer") + " 2>&1";
    const int status = std::system(command.c_str());
    const std::string answer = directory.Read("answer");
    return WIFEXITED(status) && WEXITSTATUS(status) == 0
               ? answer
               : "status " + std::to_string(status) + ": " + answer + "\n" + metrics;
}

inline Snapshot Busy() {
    Snapshot snapshot = HealthyBoth();
    JobState& job = snapshot.main.jobs[0];
    job.checks = {{44, 5, "probe", {"web"}}, {45, 7.5, "probe", {"web"}}};
    job.blockFiles = {"/run/a", "/run/b"};
    snapshot.main.tree.workers[0].programReplaced = true;
    snapshot.main.tree.parents[0].programReplaced = true;
    snapshot.watcher.tree.config.newerThanLoaded = true;
    return snapshot;
}

TEST(StatusMetricsTest, HasEveryNumber) {
    const std::string text = MetricsFor(Busy());
    for (const char* const line :
         {"kennly_up{tree=\"main\"} 1\n", "kennly_up{tree=\"watcher\"} 1\n",
          "kennly_heartbeat_age_seconds{tree=\"main\",role=\"parent\"} 0.5\n",
          "kennly_heartbeat_age_seconds{tree=\"watcher\",role=\"child\"} 1.5\n",
          "kennly_processes{tree=\"main\",role=\"child\"} 1\n", "kennly_threads{tree=\"main\"} 4\n",
          "kennly_threads_expected{tree=\"main\"} 4\n", "kennly_config_loads{tree=\"main\"} 1\n",
          "kennly_config_newer_than_loaded{tree=\"main\"} 0\n",
          "kennly_config_newer_than_loaded{tree=\"watcher\"} 1\n", "kennly_jobs{tree=\"main\"} 1\n",
          "kennly_job_check_running_seconds{tree=\"main\",job_name=\"web\"} 7.5\n",
          "kennly_job_blocked{tree=\"main\",job_name=\"web\"} 2\n",
          "kennly_job_blocked{tree=\"watcher\",job_name=\"beats\"} 0\n",
          "kennly_problems{code=\"program-replaced\",level=\"warning\"} 2\n",
          "kennly_problems{code=\"block-in-force\",level=\"note\"} 2\n"}) {
        EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_THAT(text, Not(HasSubstr("running_seconds{tree=\"watcher\"")));
}

TEST(StatusMetricsTest, IsTakenByPrometheusInEveryState) {
    EXPECT_EQ(ObjectionsTo(MetricsFor(Healthy())), "");
    EXPECT_EQ(ObjectionsTo(MetricsFor(Busy())), "");
    Snapshot nothing;
    nothing.main = NoTree(false);
    nothing.watcher = NoTree(true);
    EXPECT_EQ(ObjectionsTo(MetricsFor(nothing)), "");
    nothing.processesHidden = true;
    EXPECT_EQ(ObjectionsTo(MetricsFor(nothing)), "");
    EXPECT_NE(ObjectionsTo("kennly up\n"), "") << "it takes anything";
}

TEST(StatusMetricsTest, EscapesWhateverANameHolds) {
    struct Row {
        std::string name;
        std::string label;
    };
    const std::vector<Row> rows = {
        {"a \"b\" c", "a \\\"b\\\" c"},
        {"a\\b", "a\\\\b"},
        {"a\nb", "a\\\\x0Ab"},
        {"} 1\nx{a=\"", "} 1\\\\x0Ax{a=\\\""},
        {"Gr\xC3\xBC", "Gr\xC3\xBC"},
        {"Gr\xFC", "Gr\\\\xFC"},
        {"", ""},
        {"{tree=\"main\"}#,", "{tree=\\\"main\\\"}#,"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        Snapshot snapshot = Healthy();
        snapshot.main.jobs[0] = GivenJob(row.name);
        const std::string text = MetricsFor(snapshot);
        EXPECT_THAT(text, HasSubstr("kennly_job_blocked{tree=\"main\",job_name=\"" + row.label +
                                    "\"} 0\n"));
        EXPECT_EQ(ObjectionsTo(text), "");
    }
}

TEST(StatusMetricsTest, LeavesOutWhatIsUnknown) {
    struct Row {
        std::function<void(Snapshot&)> change;
        std::string sample;  // there before, and not then
    };
    const auto tree = [](Snapshot& s) -> TreeState& {
        return s.main.tree;
    };
    const std::vector<Row> rows = {
        {[&](Snapshot& s) { tree(s).workerBeat.exists = false; },
         "kennly_heartbeat_age_seconds{tree=\"main\",role=\"child\"}"},
        {[&](Snapshot& s) { tree(s).workers.clear(); }, "kennly_threads{tree=\"main\"}"},
        {[&](Snapshot& s) { tree(s).config.loads = false; },
         "kennly_threads_expected{tree=\"main\"}"},
        {[&](Snapshot& s) { tree(s).config.readable = false; },
         "kennly_config_loads{tree=\"main\"}"},
        {[&](Snapshot& s) { tree(s).config.readable = false; }, "kennly_jobs{tree=\"main\"}"},
        {[&](Snapshot& s) { tree(s).config.newerThanLoaded.reset(); },
         "kennly_config_newer_than_loaded{tree=\"main\"}"},
        {[&](Snapshot& s) { s.main.jobs[0].unknownBlockFiles = {"b"}; }, "kennly_job_blocked{"},
        {[&](Snapshot& s) { s.processesHidden = true; }, "kennly_up{tree=\"watcher\"}"},
        {[&](Snapshot& s) { s.processesHidden = true; },
         "kennly_processes{tree=\"watcher\",role=\"parent\"}"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.sample);
        Snapshot snapshot = Healthy();
        EXPECT_THAT(MetricsFor(snapshot), HasSubstr("\n" + row.sample));
        row.change(snapshot);
        EXPECT_THAT(MetricsFor(snapshot), Not(HasSubstr("\n" + row.sample)));
    }
}

TEST(StatusMetricsTest, LeavesOutACheckThatMayBeOfSeveralJobs) {
    Snapshot snapshot = Healthy();
    JobState& web = snapshot.main.jobs[0];
    web.checks = {{44, 99, "probe", {"web", "mail"}}};
    EXPECT_THAT(MetricsFor(snapshot), Not(HasSubstr("running_seconds{")));
    web.checks.push_back({45, 5, "probe", {"web"}});
    EXPECT_THAT(MetricsFor(snapshot),
                HasSubstr("running_seconds{tree=\"main\",job_name=\"web\"} 5\n"));
}

TEST(StatusMetricsTest, TellsThatARunningTreeHasNoConfiguration) {
    Snapshot snapshot = Healthy();
    snapshot.main.tree.config = {};
    const std::string text = MetricsFor(snapshot);
    EXPECT_THAT(text, HasSubstr("kennly_config_loads{tree=\"main\"} 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("kennly_config_loads{tree=\"watcher\"}")));
}

}  // namespace kennly::test
