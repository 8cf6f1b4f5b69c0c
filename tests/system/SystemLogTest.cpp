#include "system/SystemLogFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;

using SystemLogTest = LogTroubleTest;

TEST_F(SystemLogTest, MissingAtTheStartIsUsedOnceItIsThere) {
    sandbox->EndLog();
    ConfigureLoggingAndSilentJob();

    StartDaemon();

    ASSERT_TRUE(WaitForTraces("remedy", 2));
    ExpectSilentJobAtWork();
    ASSERT_TRUE(sandbox->BeginLogAgain());
    EXPECT_TRUE(WaitForLine(Announced(), 2));
    EXPECT_LT(Announcements(), TracesOf("remedy").size());
    Configure(Configuration(LoggingJob() + Beside() + Marker("loaded")));
    EXPECT_TRUE(WaitForLine(Loaded("loaded")));
    StopDaemon();
    EXPECT_THAT(Lines(), Each(AnyOf(Announced(), Loaded("loaded"), Exit(0))));
}

TEST_F(SystemLogTest, MissingAllTheTimeHindersNothing) {
    sandbox->EndLog();
    ConfigureLoggingAndSilentJob();
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("remedy", 2));
    ExpectSilentJobAtWork();

    ASSERT_TRUE(daemon->Signal(SIGTERM));

    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
}

TEST_F(SystemLogTest, ThatGoesAwayIsUsedAgainOnceItIsBack) {
    ConfigureLoggingAndSilentJob();
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Announced()));

    sandbox->EndLog();

    const std::size_t announcements = Announcements();
    ASSERT_TRUE(WaitForMoreTraces("remedy", 2));
    ExpectSilentJobAtWork();
    EXPECT_EQ(Announcements(), announcements);
    ASSERT_TRUE(sandbox->BeginLogAgain());
    EXPECT_TRUE(WaitForLine(Announced(), announcements + 2));
    StopDaemon();
    EXPECT_LT(Announcements(), TracesOf("remedy").size());
    EXPECT_THAT(Lines(), Each(AnyOf(Announced(), Exit(0))));
}

}  // namespace kennly::test
