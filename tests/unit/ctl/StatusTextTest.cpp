#include "ctl/StatusText.h"

#include <functional>
#include <sstream>

#include "ctl/Time.h"
#include "unit/status/GivenSnapshot.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

inline std::string TextFor(const Snapshot& snapshot, bool coloured = false) {
    std::ostringstream text;
    WriteStatus(ViewOf(snapshot), {text, text, coloured});
    return text.str();
}

TEST(StatusTextTest, ShowsTreesProcessesAndJobs) {
    const std::string text = TextFor(HealthyBoth());
    EXPECT_THAT(text,
                AllOf(HasSubstr("main tree: runs\n  parent     11, for "),
                      HasSubstr("\n  child      12, for "), HasSubstr(", heartbeat 0.5 s ago\n"),
                      HasSubstr(", heartbeat 1.5 s ago, 4 threads\n"),
                      HasSubstr("  kennly.xml: 1 job, changed " + Moment(0) + "\n"),
                      HasSubstr("  job web: CheckCommandResult \"probe\" every 30 s\n"),
                      HasSubstr("watcher tree: runs\n"), Not(HasSubstr("unknown")),
                      Not(HasSubstr("critical")), Not(HasSubstr("\033["))));
    EXPECT_THAT(TextFor(Healthy()), AllOf(HasSubstr("watcher tree: does not run\n"),
                                          HasSubstr("  dogdog.xml: missing\n")));
    EXPECT_THAT(TextFor(Healthy(), true), HasSubstr("\033[1mmain tree\033[0m: runs"));
}

TEST(StatusTextTest, ShowsWhatIsSpecial) {
    struct Row {
        std::function<void(Snapshot&)> change;
        std::string line;  // a part of the text then, and not before
    };
    const auto tree = [](Snapshot& s) -> TreeState& {
        return s.main.tree;
    };
    const auto job = [](Snapshot& s) -> JobState& {
        return s.main.jobs[0];
    };
    const std::vector<Row> rows = {
        {[&](Snapshot& s) { tree(s).parentBeat.exists = false; }, "heartbeat missing\n"},
        {[&](Snapshot& s) { tree(s).workers[0].threads = 1; }, ", 1 thread\n"},
        {[&](Snapshot& s) {
             tree(s).parentBeat = {"parent", false, true, 0};
         },
         "heartbeat unknown\n"},
        {[&](Snapshot& s) { tree(s).parentBeat.age = 90; }, "heartbeat 90 s ago (stale)\n"},
        {[&](Snapshot& s) { tree(s).parentBeat.age = -2; }, "heartbeat 2.0 s in the future\n"},
        {[&](Snapshot& s) { tree(s).parentBeat.age = -90; },
         "heartbeat 90 s in the future (stale)\n"},
        {[&](Snapshot& s) { tree(s).ended = {Running(13, DaemonProcess::Role::Child)}; },
         "  child 13 has ended\n"},
        {[&](Snapshot& s) { tree(s).config.exists = tree(s).config.readable = false; },
         "  kennly.xml: missing\n"},
        {[&](Snapshot& s) { tree(s).config.readable = false; },
         "  kennly.xml: unknown, as this user may not read it\n"},
        {[&](Snapshot& s) {
             tree(s).config.exists = tree(s).config.readable = false;
             tree(s).config.hidden = true;
         },
         "  kennly.xml: unknown, as this user may not read it\n"},
        {[&](Snapshot& s) {
             tree(s).config.loads = false;
             tree(s).config.reason = "bad\nfile";
         },
         "  kennly.xml: does not load: bad\\x0Afile\n"},
        {[&](Snapshot& s) { tree(s).config.newerThanLoaded = true; },
         ", newer than what the daemon is known to run\n"},
        {[&](Snapshot& s) { tree(s).config.newerThanLoaded.reset(); },
         ", unknown whether the daemon has taken it up\n"},
        {[&](Snapshot& s) { tree(s).config.jobs.clear(); }, "  kennly.xml: 0 jobs"},
        {[&](Snapshot& s) {
             job(s).checks = {{44, 5, "probe\x1B", {"web"}}};
         },
         "    checks: \"probe \", process 44, for 5.0 s\n"},
        {[&](Snapshot& s) {
             job(s).checks = {{44, 5, "probe", {"web", "mail"}}};
         },
         "for 5.0 s (or of another job with the same command)\n"},
        {[&](Snapshot& s) {
             job(s).remedies = {{45, 60, "restart", {"web"}}};
         },
         "    remedy, probably: \"restart\", process 45, for 60 s\n"},
        {[&](Snapshot& s) {
             s.main.strangers = {{46, 1, "x", {}}};
         },
         "  of no known job: \"x\", process 46, for 1.0 s\n"},
        {[&](Snapshot& s) { job(s).blockFiles = {"/run/b\n"}; },
         "    remedy blocked by /run/b\\x0A\n"},
        {[&](Snapshot& s) { job(s).unknownBlockFiles = {"b"}; },
         "    remedy blocked by b: unknown, as the path counts from the daemon's directory, which "
         "is not known\n"},
        {[&](Snapshot& s) { job(s).unknownBlockFiles = {"/root/b"}; },
         "    remedy blocked by /root/b: unknown, as this user may not look there\n"},
        {[&](Snapshot& s) { s.recordsHidden = true; },
         "unknown: which records of file times are of no job\n"},
        {[&](Snapshot& s) { s.detailsHidden = true; }, "unknown: which programs"},
        {[&](Snapshot& s) { s.processesHidden = true; },
         "unknown: the processes of other users cannot be seen\n"},
        {[&](Snapshot& s) { s.orphanRecords = {"old"}; }, "note: [orphan-record] the record"},
        {[&](Snapshot& s) { tree(s).workers.clear(); }, "critical: [child-dead] main tree: the"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        Snapshot snapshot = Healthy();
        EXPECT_THAT(TextFor(snapshot), Not(HasSubstr(row.line)));
        row.change(snapshot);
        EXPECT_THAT(TextFor(snapshot), HasSubstr(row.line));
    }
}

TEST(StatusTextTest, ShowsWatchedFilesAndTheirRecords) {
    Snapshot snapshot = Healthy();
    JobState& job = snapshot.main.jobs[0];
    job = GivenJob("file", "watched", CheckTypeFileChange);
    EXPECT_THAT(TextFor(snapshot),
                HasSubstr("  job file: CheckForFileChange \"watched\" every 30 s\n"
                          "    file: unknown, as the path counts from the daemon's directory, "
                          "which is not known\n    time on record: none\n"));
    job.file = "/srv/watched";
    job.recorded = 1'600'000'000;
    EXPECT_THAT(
        TextFor(snapshot),
        HasSubstr("    file: /srv/watched\n    time on record: " + Moment(1'600'000'000) + "\n"));
    job.recorded.reset();
    job.recordKnown = false;
    job.subject = "/srv/watched";
    EXPECT_THAT(TextFor(snapshot),
                AllOf(Not(HasSubstr("    file:")), HasSubstr("    time on record: unknown\n")));
}

TEST(StatusTextTest, DoesNotClaimThatNothingRunsWhereItCannotBeSeen) {
    Snapshot snapshot;
    snapshot.main = NoTree(false);
    snapshot.watcher = NoTree(true);
    snapshot.processesHidden = true;
    EXPECT_THAT(TextFor(snapshot),
                AllOf(StartsWith("main tree: unknown\n"), HasSubstr("watcher tree: unknown\n"),
                      Not(HasSubstr("not-running"))));
}

TEST(StatusTextTest, GivesAPluginItsLineAndStatus) {
    struct Row {
        std::function<void(Snapshot&)> change;
        int status;
        std::string line;  // its beginning
    };
    const auto tree = [](Snapshot& s) -> TreeState& {
        return s.main.tree;
    };
    const std::vector<Row> rows = {
        {[](Snapshot&) {}, 0,
         "KENNLY OK - main tree runs, 1 job | jobs=1 heartbeat_age=1.500000s;;6"},
        {[](Snapshot& s) { s.orphanRecords = {"old"}; }, 0, "KENNLY OK - main tree runs, 1 job |"},
        {[&](Snapshot& s) { tree(s).parents[0].programReplaced = true; }, 1,
         "KENNLY WARNING - main tree: process 11"},
        {[&](Snapshot& s) { tree(s).workers.clear(); }, 2, "KENNLY CRITICAL - main tree: the"},
        {[&](Snapshot& s) {
             tree(s).config.loads = false;
             tree(s).config.reason = "a|b\nc";
         },
         2,
         "KENNLY CRITICAL - main tree: kennly.xml does not load (a/b\\x0Ac), and only the jobs "
         "of an earlier file run: kennlyctl check says where | jobs=U heartbeat_age="},
        {[&](Snapshot& s) { s.processesHidden = true; }, 3,
         "KENNLY UNKNOWN - the processes of other users cannot be seen | jobs=1"},
        {[&](Snapshot& s) { tree(s).config.readable = tree(s).config.loads = false; }, 3,
         "KENNLY UNKNOWN - kennly.xml cannot be read by this user | jobs=U"},
        {[&](Snapshot& s) {
             tree(s).config = {};
             tree(s).config.path = "kennly.xml";
             tree(s).config.hidden = true;
         },
         3, "KENNLY UNKNOWN - kennly.xml cannot be read by this user | jobs=U"},
        {[&](Snapshot& s) {
             tree(s).workerBeat = {"child", false, true, 0};
         },
         3, "KENNLY UNKNOWN - child cannot be seen by this user | jobs=1"},
        {[&](Snapshot& s) {
             tree(s).config.readable = tree(s).config.loads = false;
             tree(s).workers.clear();
         },
         2, "KENNLY CRITICAL - main tree: the parent"},  // what is wrong for certain comes first
        {[&](Snapshot& s) { s.detailsHidden = true; }, 0, "KENNLY OK"},
        {[&](Snapshot& s) { s.watcher.tree.config.hidden = true; }, 0, "KENNLY OK"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        Snapshot snapshot = Healthy();
        row.change(snapshot);
        const StatusView view = ViewOf(snapshot);
        EXPECT_EQ(PluginStatus(view), row.status);
        EXPECT_THAT(PluginLine(view), StartsWith(row.line));
        EXPECT_EQ(PluginLine(view).find('\n'), std::string::npos);
    }
}

TEST(StatusTextTest, AsksForTheWatcherTreeWhereItRunsOrShould) {
    Snapshot snapshot = HealthyBoth();
    snapshot.watcher.tree.config.readable = snapshot.watcher.tree.config.loads = false;
    EXPECT_EQ(PluginStatus(ViewOf(snapshot)), 3);
    EXPECT_THAT(PluginLine(ViewOf(snapshot)), HasSubstr("dogdog.xml cannot be read"));
    EXPECT_EQ(PluginStatus(ViewOf(Healthy(), true)), 2);
}

}  // namespace kennly::test
