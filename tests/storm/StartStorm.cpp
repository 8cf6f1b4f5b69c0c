#include <atomic>
#include <filesystem>
#include <set>

#include "storm/Leftovers.h"
#include "storm/Storm.h"

namespace kennly::test {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

constexpr std::chrono::seconds Limit(120);

/// Has all lanes go on at the same moment.
class Meeting {
public:
    explicit Meeting(int lanes) : lanes_(lanes) {}

    /// Waits until every lane has come `times` times; not for ever, because one may be at its end.
    void Attend(int times) {
        ++arrivals_;
        WaitUntil([&] { return arrivals_ >= lanes_ * times || !StormGoesOn(); },
                  std::chrono::seconds(10));
    }

private:
    const int lanes_;
    std::atomic<int> arrivals_{0};
};

/// The jobs of one start, and the traces by which each of them tells that its check has run.
///
/// A job whose check is a placeholder can tell nothing; its threads are counted.
class JobsOfOneStart {
public:
    /// In one of three starts, jobs of all kinds. A file check tells of itself only through its
    /// remedy, seconds later; without them, many more starts go into the same time.
    explicit JobsOfOneStart(Dice& dice) : count(20 + static_cast<int>(dice.UpTo(30))) {
        const bool mixed = dice.UpTo(2) == 0;
        for (int number = 0; number < count; ++number) {
            const std::string name = "job" + std::to_string(number);
            mixed ? AddAny(name, dice) : AddCommand(name, "true", DelayFrom(dice));
        }
    }

    const int count;
    std::string text;
    std::set<std::string> traces;
    std::vector<std::string> commands;  // the traces of checks that are commands

private:
    static std::string DelayFrom(Dice& dice) {
        return "delay=\"" + dice.Pick({"1", "2", "300"}) + "\"";
    }

    void AddAny(const std::string& name, Dice& dice) {
        const std::string delay = DelayFrom(dice);
        switch (dice.UpTo(4)) {
            case 0:
                AddCommand(name, "true", delay);
                break;
            case 1:
                AddCommand(name, "false", delay);
                traces.insert("remedy-" + name);
                break;
            case 2:
                AddWithRemedy(name, CheckOfType("CheckForFileChange", {PathOf("watched")}, delay));
                traces.insert("remedy-" + name);
                break;
            case 3:  // fails from its second look on
                AddWithRemedy(name, CheckOfType("CheckForNoFileChange", {PathOf("watched"), "60"}));
                traces.insert("remedy-" + name);
                break;
            default:
                AddWithRemedy(
                    name,
                    CheckOfType(dice.Pick({"CheckSocketListening", "CheckListeningSocketResponse"}),
                                {"80"}, delay));
        }
    }

    // Appending nothing leaves the trace with the time of the first check.
    void AddCommand(const std::string& name, const std::string& verdict, const std::string& delay) {
        AddWithRemedy(name, Check(": >>" + TracePath(name) + "; " + verdict, delay));
        traces.insert(name);
        commands.push_back(name);
    }

    void AddWithRemedy(const std::string& name, const std::string& check) {
        text += Job(name, check + Remedy("touch " + TracePath("remedy-" + name)));
    }
};

}  // namespace

/// Starts the daemon with many jobs of all kinds: none of them may be forgotten.
class StartStorm : public DaemonTest {
public:
    void Round(Dice& dice, Meeting& meeting, Figures& figures) {
        SetUp();  // also a log of its own, which stays short
        ASSERT_TRUE(sandbox);
        const JobsOfOneStart jobs(dice);
        SCOPED_TRACE("round " + std::to_string(++rounds_) + ", " + std::to_string(jobs.count) +
                     " jobs");
        PutFile(PathOf("watched"), 1600000000);
        Configure(Configuration(jobs.text));
        const auto load = LoadAtTimes(dice);
        if (rounds_ % 6 == 0) {
            meeting.Attend(rounds_ / 6);
        }
        figures.Count("starts");
        figures.Count("jobs", jobs.count);
        ASSERT_NO_FATAL_FAILURE(StartAndAwait(jobs, figures));
        Measure(jobs, figures);
        ASSERT_NO_FATAL_FAILURE(Stop(figures));
    }

private:
    /// In one of four rounds, a process that leaves the daemon less of the machine.
    std::unique_ptr<SandboxProcess> LoadAtTimes(Dice& dice) const {
        return dice.UpTo(3) == 0 ? sandbox->Start({"nice", "sh", "-c", "while :; do :; done"})
                                 : nullptr;
    }

    void StartAndAwait(const JobsOfOneStart& jobs, Figures& figures) {
        wallClockAtStart_ = std::chrono::system_clock::now();
        StartDaemon();
        std::set<std::string> missing;
        WaitUntil([&] { return (missing = MissingOf(jobs.traces)).empty(); }, Limit);
        ASSERT_THAT(missing, IsEmpty()) << "never left a trace";
        figures.Count("jobs that left their traces", Tellers(jobs));
        figures.Largest("slowest start until every trace was there, seconds",
                        SecondsBetween(started, Clock::now()));
    }

    std::set<std::string> MissingOf(std::set<std::string> traces) const {
        const std::string prefix = "trace-";
        for (const auto& file :
             std::filesystem::directory_iterator(sandbox->PathInside(DataDirectory))) {
            const std::string name = file.path().filename();
            if (name.rfind(prefix, 0) == 0) {
                traces.erase(name.substr(prefix.size()));
            }
        }
        return traces;
    }

    static std::int64_t Tellers(const JobsOfOneStart& jobs) {
        std::set<std::string> names;
        for (const std::string& trace : jobs.traces) {
            names.insert(trace.substr(trace.find("job")));
        }
        return static_cast<std::int64_t>(names.size());
    }

    void Measure(const JobsOfOneStart& jobs, Figures& figures) const {
        const int threads = Threads();
        EXPECT_EQ(threads, 3 * jobs.count + 1);
        EXPECT_TRUE(WaitUntil([this] { return HasOnlyTheLogOpen(daemon->Pid()); }, Limit))
            << ::testing::PrintToString(OpenDescriptors(daemon->Pid()));
        figures.Largest("most threads", threads);
        figures.Largest("most descriptors", Number(OpenDescriptors(daemon->Pid()).size()));
        figures.Largest("most resident memory, MiB", ResidentKiB(daemon->Pid()) / 1024);
        for (const std::string& command : jobs.commands) {
            figures.Largest("slowest first check that is a command, seconds",
                            SecondsBetween(NanosecondsAtStart(), TimeOf(TracePath(command))));
        }
    }

    void Stop(Figures& figures) {
        const auto asked = Clock::now();
        ASSERT_TRUE(daemon->Signal(SIGTERM)) << "the daemon runs no longer";
        ASSERT_EQ(EndOfDaemon(), std::optional<int>(0));
        figures.Largest("slowest end, seconds", SecondsBetween(asked, Clock::now()));
        EXPECT_TRUE(WaitForLine(Exit(0)));
        EXPECT_THAT(ArrivalsOf(Exit(0)), SizeIs(1));
        EXPECT_THAT(Lines(), Each(Not(HasSubstr(" local4.err "))));
        figures.Count("exits with status 0");
    }

    std::int64_t NanosecondsAtStart() const {
        return std::chrono::nanoseconds(wallClockAtStart_.time_since_epoch()).count();
    }
    static double Number(std::size_t value) { return static_cast<double>(value); }

    int rounds_ = 0;
    std::chrono::system_clock::time_point wallClockAtStart_;
};

TEST(StartStormTest, RunsTheFirstCheckOfEveryJob) {
    const Leftovers leftovers;
    const int lanes = BusyLanes();
    Meeting meeting(lanes);
    Figures figures;
    figures.Tell("lanes", std::to_string(lanes));

    RunLanes<StartStorm>(lanes, [&](StartStorm& lane, Dice& dice, int /*number*/) {
        lane.Round(dice, meeting, figures);
    });

    leftovers.ExpectNone(figures);
    figures.Tell("exits with status 0", std::to_string(figures.CountOf("exits with status 0")) +
                                            " of " + std::to_string(figures.CountOf("starts")));
    figures.Print();
    EXPECT_GT(figures.CountOf("starts"), 0);
}

}  // namespace kennly::test
