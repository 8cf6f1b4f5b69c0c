#include "system/FullLogFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

/// How processes end that cannot tell of it.
class FullLogEndTest : public FullLogFixture {
protected:
    /// Expects the daemon to end by itself, a long time before the log is read again.
    void ExpectEnd() {
        EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
        sandbox->ReadLogAgain();
    }
};

TEST_F(FullLogEndTest, DoesNotKeepTheForegroundFromItsEnd) {
    Configure(Configuration(Beside()));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("beside", 1));
    FillLog();

    ASSERT_TRUE(daemon->Signal(SIGTERM));

    ExpectEnd();
}

TEST_F(FullLogEndTest, ThatHoldsUpAJobDoesNotKeepTheForegroundFromItsEnd) {
    ConfigureLoggingAndSilentJob();
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 1));
    FillLog();
    ExpectSilentJobAtWork();  // by then the other one waits

    ASSERT_TRUE(daemon->Signal(SIGTERM));

    ExpectEnd();
}

// The log is the C library's, which begins again whenever a signal interrupts it.
TEST_F(FullLogEndTest, ThatHoldsUpALoadHoldsUpTheEndOfTheForegroundToo) {
    Configure(Configuration(Beside()));
    StartDaemon();
    ASSERT_NO_FATAL_FAILURE(HoldUpALoad());
    ASSERT_TRUE(daemon->Signal(SIGTERM));
    ASSERT_FALSE(EndOfDaemon(std::chrono::seconds(7)));

    sandbox->ReadLogAgain();

    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_THAT(LinesButFilling(), ElementsAre(Loaded("loaded"), Exit(0)));
}

TEST_F(FullLogEndTest, ThatHoldsUpALoadDoesNotKeepATreeFromItsEnd) {
    Configure(Configuration(Beside()));
    StartTrees({}, MainTree);
    ASSERT_NO_FATAL_FAILURE(HoldUpALoad());

    SendTo("P ", SIGTERM);

    EXPECT_TRUE(WaitUntilOnly({}));
}

TEST_F(FullLogEndTest, DoesNotKeepATreeFromItsEnd) {
    ConfigureLoggingAndSilentJob();
    StartTrees({"-w"}, BothTrees);
    ASSERT_TRUE(WaitForTraces("remedy", 1));
    FillLog();
    ExpectSilentJobAtWork();

    SendTo("P ", SIGTERM);
    SendTo("WP", SIGTERM);

    EXPECT_TRUE(WaitUntilOnly({}));
}

}  // namespace kennly::test
