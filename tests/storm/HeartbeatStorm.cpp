#include <csignal>

#include "storm/Storm.h"
#include "system/RecoveryFixture.h"

namespace kennly::test {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

Figures figures;

const std::map<std::string, std::string> NameOf = {
    {"P ", "parent"}, {"C ", "child"}, {"WP", "watcher parent"}, {"WC", "watcher child"}};

// One for each process, and three for each of the jobs in the samples.
const std::map<std::string, int> ThreadsOf = {{"P ", 1}, {"C ", 13}, {"WP", 1}, {"WC", 7}};

}  // namespace

/// Two trees that watch each other, of which one process after another is hurt.
class HeartbeatStorm : public RecoveryFixture {
public:
    static std::string Told(const std::string& victim, int signal) {
        return NameOf.at(victim) + (signal == SIGKILL ? " killed" : " stopped");
    }

    /// Hurts one process at any instant and waits until all is well again. Never a second one
    /// before: two trees whose children both hang are beyond repair.
    void Round(Dice& dice) {
        const std::string victim = dice.Pick(BothTrees);
        const int signal = dice.UpTo(1) == 0 ? SIGKILL : SIGSTOP;
        const std::string what = Told(victim, signal);
        SCOPED_TRACE("seed " + std::to_string(Options().seed) + ", " + what);
        std::this_thread::sleep_for(dice.UpTo(std::chrono::milliseconds(6000)));
        const auto begin = Clock::now();
        figures.Count("rounds");
        figures.Count("    " + what);

        ASSERT_NO_FATAL_FAILURE(ExpectTreeReplacedAfter(signal, victim));

        ASSERT_NO_FATAL_FAILURE(ExpectAllAsInTheBeginning());
        figures.Largest("slowest recovery, s", SecondsBetween(begin, Clock::now()));
    }

protected:
    void SetUp() override {
        RecoveryFixture::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        StartTrees({"-w"}, BothTrees);
        ASSERT_FALSE(HasFatalFailure());
        ExpectAllAsInTheBeginning();
        TellMemory("at the beginning");
    }

    void TearDown() override {
        if (!HasFailure()) {
            EndTrees();
        }
        RecoveryFixture::TearDown();
    }

private:
    void ExpectAllAsInTheBeginning() {
        EXPECT_TRUE(WaitForBeatsOf(BothTrees));
        for (const std::string& of : BothTrees) {
            SCOPED_TRACE(NameOf.at(of));
            const pid_t process = Role(of).outside;
            EXPECT_TRUE(
                WaitUntil([&] { return ThreadCount(process) == ThreadsOf.at(of); }, Generous))
                << ThreadCount(process);
            EXPECT_TRUE(WaitUntil([&] { return HasOnlyTheLogOpen(process); }, Generous))
                << ::testing::PrintToString(OpenDescriptors(process));
        }
    }

    /// The most that a process has in any of the lanes.
    void TellMemory(const std::string& when) {
        for (const std::string& of : BothTrees) {
            figures.Largest("resident memory of a " + NameOf.at(of) + " " + when + ", MiB",
                            ResidentKiB(Role(of).outside) / 1024);
        }
    }

    void EndTrees() {
        TellMemory("at the end");
        StopTrees();
        EXPECT_TRUE(WaitForExitsOf(BothTrees));
        const std::vector<std::string> lines = Lines();
        EXPECT_THAT(lines, Not(Contains(HasSubstr(".err "))));
        for (const std::string& of : BothTrees) {
            figures.Count("exits with status 0",
                          std::count(lines.begin(), lines.end(), ExitOf(of)));
        }
    }
};

TEST(HeartbeatStormTest, EndsWithAllProcessesInTheirPlaces) {
    figures.Count("rounds", 0);
    for (const std::string& of : BothTrees) {
        figures.Count("    " + HeartbeatStorm::Told(of, SIGKILL), 0);
        figures.Count("    " + HeartbeatStorm::Told(of, SIGSTOP), 0);
    }
    // A healthy tree that a sanitizer and its neighbours starve for ten seconds looks like a dead
    // one.
    const int lanes = RunsUnderSanitizer() ? 2 : 4;
    RunLanes<HeartbeatStorm>(
        lanes, [](HeartbeatStorm& trees, Dice& dice, int /*number*/) { trees.Round(dice); });
    figures.Print();
    EXPECT_GT(figures.CountOf("rounds"), 0);
}

}  // namespace kennly::test
