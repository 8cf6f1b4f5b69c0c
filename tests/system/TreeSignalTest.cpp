#include "system/TreeFixture.h"

namespace kennly::test {

class TreeSignalTest : public BackgroundTest {
protected:
    static constexpr int IgnoredSignals[] = {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2};

    /// The set without the signals that the C library keeps for itself; these come from the test's
    /// starter.
    static std::uint64_t OrdinarySignals(const std::string& set) {
        return std::stoull(set, nullptr, 16) & 0x7fffffff;
    }

    /// Expects that each process ignores what it shall, catches SIGTERM and nothing else, and
    /// blocks none.
    void ExpectDispositions() const {
        std::uint64_t ignored = 0;
        for (const int signal : IgnoredSignals) {
            ignored |= std::uint64_t{1} << (signal - 1);
        }
        for (const std::string& of : BothTrees) {
            SCOPED_TRACE(of);
            const pid_t process = Role(of).outside;
            EXPECT_EQ(OrdinarySignals(StatusField(process, "SigIgn")), ignored);
            EXPECT_EQ(OrdinarySignals(StatusField(process, "SigCgt")),
                      std::uint64_t{1} << (SIGTERM - 1));
            for (const std::string& blocked : BlockedSignalsOfThreads(process)) {
                EXPECT_EQ(blocked, std::string(16, '0'));
            }
        }
    }
};

TEST_F(TreeSignalTest, ThatEndsAProcessIsSIGTERMAlone) {
    StartTrees({"-w"}, BothTrees);

    ExpectDispositions();
}

TEST_F(TreeSignalTest, OfAnotherKindEndsNoProcess) {
    StartTrees({"-w"}, BothTrees);

    for (const std::string& of : BothTrees) {
        for (const int signal : IgnoredSignals) {
            SendTo(of, signal);
        }
        SendTo(of, SIGCHLD);
    }

    EXPECT_TRUE(WaitForBeatsOf(BothTrees));
    EXPECT_TRUE(WaitUntilOnly(BothTrees));
    StopTrees();
    EXPECT_TRUE(WaitForExitsOf(BothTrees));
    EXPECT_THAT(Lines(), ::testing::UnorderedElementsAreArray(ExitsOf(BothTrees)));
}

TEST_F(TreeSignalTest, DoesNotDependOnWhatTheStarterIgnoredOrBlocked) {
    StartOptions start;
    start.ignoredSignals = {SIGCHLD, SIGTERM};
    start.blockedSignals = {SIGTERM, SIGCHLD, SIGINT, SIGALRM};

    StartTrees({"-w"}, BothTrees, start);

    ExpectDispositions();
    EXPECT_TRUE(WaitUntilOnly(BothTrees));
    SendTo("P ", SIGTERM);
    SendTo("WP", SIGTERM);
    EXPECT_TRUE(WaitUntilOnly({}));
    EXPECT_TRUE(WaitForExitsOf(BothTrees));
}

}  // namespace kennly::test
