#include <algorithm>
#include <optional>
#include <set>

#include "storm/Ends.h"
#include "storm/Leftovers.h"
#include "storm/ShutdownPhases.h"
#include "storm/Storm.h"
#include "support/DaemonProcesses.h"

namespace kennly::test {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

namespace {

/// How long a daemon may take for its work, or for its end, before it counts as hanging.
constexpr std::chrono::seconds Limit(60);

// Names of figures.
const std::string Exited = "exits with status 0";
const std::string InForeground = "rounds in the foreground";
const std::string InBackground = "rounds in the background";

/// What workers SIGTERM met, in the foreground, in each phase by itself: tells that the instants
/// are spread over its work.
class Meetings {
public:
    static inline const std::string Without = "without workers";
    static inline const std::string Some = "with some";
    static inline const std::string All = "with all";
    static inline const std::string Replaced = "with those to be replaced";

    void Count(const ShutdownPhase& phase, const std::string& met) {
        counts_.Count(phase.name + met);
    }
    std::int64_t Of(const std::string& phase, const std::string& met) const {
        return counts_.CountOf(phase + met);
    }
    void TellOf(const ShutdownPhase& phase, Figures& figures) const {
        std::string names = "    " + phase.name + ": met";
        std::string counts;
        for (const std::string& met : {Without, Some, All, Replaced}) {
            if (met == Replaced && Of(phase.name, met) == 0) {
                continue;
            }
            names += (counts.empty() ? " " : " / ") + met;
            counts += (counts.empty() ? "" : " / ") + std::to_string(Of(phase.name, met));
        }
        figures.Tell(names, counts);
    }

private:
    Figures counts_;  // never printed
};

/// Whether a signal that ends a process would be kept for it, or is caught by it.
bool IsReadyForSignals(pid_t process) {
    return HasSignal(StatusField(process, "SigBlk"), SIGTERM) ||
           HasSignal(StatusField(process, "SigCgt"), SIGTERM);
}

/// As WaitUntil, but asks again at once: what is waited for takes milliseconds.
template <class F>
bool WaitClosely(F condition) {
    const auto deadline = std::chrono::steady_clock::now() + Limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

}  // namespace

/// Sends SIGTERM to the daemon whatever it is doing: it has to end at once, and in order.
class ShutdownStorm : public DaemonTest {
public:
    void Round(const ShutdownPhase& phase, Dice& dice, Figures& figures, Meetings& meetings) {
        SetUp();  // also a log of its own, which stays short
        ASSERT_TRUE(sandbox);
        toBeReplaced_.clear();
        const Preparation prepared = phase.prepare(dice);
        const bool inBackground = dice.UpTo(2) == 0;
        const std::chrono::microseconds instant = InstantIn(phase, dice);
        SCOPED_TRACE(phase.name + (inBackground ? ", in the background" : ", in the foreground") +
                     ", " + std::to_string(prepared.jobs) + " jobs, SIGTERM after " +
                     std::to_string(instant.count()) + " microseconds");
        figures.Count("rounds");
        figures.Count("rounds " + phase.name);
        figures.Count(inBackground ? InBackground : InForeground);
        figures.Count("jobs", prepared.jobs);
        Configure(prepared.configuration);
        ASSERT_NO_FATAL_FAILURE(inBackground ? StartInBackground() : StartInForeground());
        ASSERT_NO_FATAL_FAILURE(AwaitWork(prepared));
        std::this_thread::sleep_for(instant);
        if (!inBackground) {
            Measure(figures);
            meetings.Count(phase, MetBy(prepared));
        }
        ASSERT_NO_FATAL_FAILURE(inBackground ? StopInBackground(figures)
                                             : StopInForeground(figures));
        EXPECT_THAT(Lines(), Each(Not(HasSubstr(" local4.err "))));
    }

private:
    // ---- up to the instant

    /// When SIGTERM comes, counted from the begin of the work; in one of three rounds almost at
    /// once.
    static std::chrono::microseconds InstantIn(const ShutdownPhase& phase, Dice& dice) {
        const std::chrono::microseconds longest = phase.longest;
        const auto latest = dice.UpTo(2) == 0 ? longest / 50 : longest;
        return std::chrono::microseconds(dice.UpTo(static_cast<std::uint32_t>(latest.count())));
    }

    void StartInForeground() {
        StartDaemon();
        target_ = daemon->Pid();
        ASSERT_TRUE(WaitClosely([&] { return IsReadyForSignals(target_); }));
    }

    /// Goes on as soon as there is a parent, which may not have its child yet.
    void StartInBackground() {
        StartDaemon({}, Ends::Recorded());
        ASSERT_EQ(EndOfDaemon(Limit), std::optional<int>(0)) << "the first process";
        ASSERT_TRUE(WaitClosely([&] {
            for (const DaemonProcess& process : DaemonProcesses(*sandbox)) {
                // What is about to become a child is still a copy of its parent.
                if (process.Tag() == "P " && process.parent == "1") {
                    target_ = process.outside;
                    return true;
                }
            }
            return false;
        }));
        ASSERT_TRUE(IsReadyForSignals(target_));
    }

    void AwaitWork(const Preparation& prepared) {
        if (!prepared.trace.empty()) {
            ASSERT_TRUE(
                WaitUntil([&] { return sandbox->FileExists(TracePath(prepared.trace)); }, Limit));
        }
        if (!prepared.replacement.empty()) {
            toBeReplaced_ = ThreadNumbers(target_);
            Configure(prepared.replacement);
            ASSERT_TRUE(sandbox->WaitForLog(
                [&](const auto& /*lines*/) {
                    return !LinesWith(LoadedText(ReplacementMarker)).empty();
                },
                Limit));
        }
    }

    // ---- from the instant on

    void StopInForeground(Figures& figures) {
        const auto asked = Clock::now();
        ASSERT_TRUE(daemon->Signal(SIGTERM)) << "the daemon runs no longer";
        const auto end = EndOfDaemon(Limit);
        figures.Largest("slowest end in the foreground, seconds",
                        SecondsBetween(asked, Clock::now()));
        ASSERT_EQ(end, std::optional<int>(0));
        EXPECT_TRUE(WaitForLine(Exit(0)));
        EXPECT_THAT(Exits(), UnorderedElementsAre("   exit(0)"));
        figures.Count(Exited);
    }

    void StopInBackground(Figures& figures) {
        const Ends ends(*sandbox);
        const auto asked = Clock::now();
        ASSERT_EQ(kill(target_, SIGTERM), 0) << "the parent runs no longer";
        const bool ended = WaitUntil([&] { return DaemonProcesses(*sandbox).empty(); }, Limit);
        figures.Largest("slowest end of a parent and its child, seconds",
                        SecondsBetween(asked, Clock::now()));
        ASSERT_TRUE(ended) << "processes of the daemon are left";
        sandbox->WaitForLog([&](const auto& /*lines*/) { return Exits().size() >= 2; }, Generous);
        EXPECT_THAT(Exits(), UnorderedElementsAre("P  exit(0)", "C  exit(0)"));
        for (const std::string& line : LinesWith(" exit(")) {
            const std::optional<int> end = ends.WaitFor(NumberIn(line), Generous);
            EXPECT_EQ(end, std::optional<int>(0)) << line;
            figures.Count(Exited, end == 0 ? 1 : 0);
        }
    }

    void Measure(Figures& figures) const {
        figures.Largest("most threads", ThreadCount(target_));
        figures.Largest("most descriptors", static_cast<double>(OpenDescriptors(target_).size()));
        figures.Largest("most resident memory, MiB", ResidentKiB(target_) / 1024);
    }

    /// Which workers SIGTERM is about to meet.
    std::string MetBy(const Preparation& prepared) const {
        if (HasThreadsToBeReplaced()) {
            return Meetings::Replaced;
        }
        const int threads = ThreadCount(target_);
        const int jobs = prepared.replacement.empty() ? prepared.jobs : prepared.replacementJobs;
        return threads == 1              ? Meetings::Without
               : threads == 3 * jobs + 1 ? Meetings::All
                                         : Meetings::Some;
    }

    /// Whether it still has a thread of the jobs that are being replaced.
    bool HasThreadsToBeReplaced() const {
        if (toBeReplaced_.empty()) {
            return false;  // saves the time that looking at many threads would take
        }
        const std::set<pid_t> threads = ThreadNumbers(target_);
        return std::any_of(threads.begin(), threads.end(), [this](pid_t thread) {
            return thread != target_ && toBeReplaced_.count(thread) != 0;
        });
    }

    std::vector<std::string> LinesWith(const std::string& text) const {
        std::vector<std::string> found;
        for (const std::string& line : Lines()) {
            if (line.find(text) != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }

    /// The last lines of all processes, from the tags of their roles on.
    std::vector<std::string> Exits() const {
        std::vector<std::string> exits;
        for (const std::string& line : LinesWith(" exit(")) {
            exits.push_back(line.substr(line.find(':') + 1));
        }
        return exits;
    }

    /// The number of the process that wrote a line.
    static std::string NumberIn(const std::string& line) {
        const std::string numberOn = line.substr(line.find(".debug ") + 7);
        return numberOn.substr(0, numberOn.find(':'));
    }

    pid_t target_ = -1;             // of SIGTERM
    std::set<pid_t> toBeReplaced_;  // its threads then
};

TEST(ShutdownStormTest, EndsInOrderWhateverItIsDoing) {
    const Leftovers leftovers;
    const int lanes = BusyLanes();
    Figures figures;
    Meetings meetings;
    figures.Tell("lanes", std::to_string(lanes));
    figures.Count("rounds", 0);
    for (const ShutdownPhase& phase : ShutdownPhases) {
        figures.Count("rounds " + phase.name, 0);
    }
    for (const std::string& name : {InForeground, InBackground, Exited}) {
        figures.Count(name, 0);
    }

    // In turn, and each lane begins elsewhere: a short storm meets every phase too.
    std::vector<std::size_t> turns;
    for (int lane = 0; lane < lanes; ++lane) {
        turns.push_back(ShutdownPhases.size() * static_cast<std::size_t>(lane) /
                        static_cast<std::size_t>(lanes));
    }
    RunLanes<ShutdownStorm>(lanes, [&](ShutdownStorm& lane, Dice& dice, int number) {
        std::size_t& turn = turns[static_cast<std::size_t>(number)];
        lane.Round(ShutdownPhases[turn++ % ShutdownPhases.size()], dice, figures, meetings);
    });

    leftovers.ExpectNone(figures);
    const std::int64_t processes =
        figures.CountOf(InForeground) + 2 * figures.CountOf(InBackground);
    figures.Tell(Exited,
                 std::to_string(figures.CountOf(Exited)) + " of " + std::to_string(processes));
    for (const ShutdownPhase& phase : ShutdownPhases) {
        meetings.TellOf(phase, figures);
    }
    figures.Print();
    if (Options().duration >= std::chrono::minutes(5)) {
        EXPECT_GT(meetings.Of("loading", Meetings::Without), 0);
        EXPECT_GT(meetings.Of("building the pool", Meetings::Some), 0);
    }
    for (const ShutdownPhase& phase : ShutdownPhases) {
        EXPECT_GT(figures.CountOf("rounds " + phase.name), 0) << phase.name;
    }
}

}  // namespace kennly::test
