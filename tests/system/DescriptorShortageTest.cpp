#include <sys/resource.h>

#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;

/// The process has no descriptor left but that of the log.
class DescriptorShortageTest : public DaemonTest {
protected:
    void SetUp() override {
        if (RunsUnderSanitizer()) {
            GTEST_SKIP() << "a sanitizer ends the process when it has no descriptors itself";
        }
        DaemonTest::SetUp();
    }

    /// Lets the daemon's process open no file that it has not yet.
    void ForbidNewDescriptors(bool forbidden) const {
        rlimit limit = {};
        ASSERT_EQ(prlimit(daemon->Pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
        limit.rlim_cur = forbidden ? 1 : limit.rlim_max;
        ASSERT_EQ(prlimit(daemon->Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    }
};

TEST_F(DescriptorShortageTest, HoldsUpHeartbeatsAndLoadsUntilItIsOver) {
    const std::string watched = PathOf("watched");
    PutFile(watched, 1);
    Configure(Configuration(
        Job("web", CheckOfType("CheckForNoFileChange", {watched, "60"}) + Remedy("true")),
        "maxloaderrors=\"100\""));
    StartDaemon();  // its line opens the log
    ASSERT_TRUE(WaitForRemedies("web", 1));

    ForbidNewDescriptors(true);

    ASSERT_TRUE(WaitForRemedies("web", RemediesOf("web") + 2));  // one more beat may have come
    const std::int64_t last = TimeOf(ChildHeartbeat);
    ASSERT_TRUE(WaitForRemedies("web", RemediesOf("web") + 3));
    EXPECT_EQ(TimeOf(ChildHeartbeat), last);
    const std::string notLoaded = Error("config file failed to load, error: Failed to open file");
    const std::string parseError = Error("Configuration file parse error");
    Configure(Configuration(Beside() + Marker("loaded")));
    EXPECT_TRUE(WaitForLine(notLoaded, 2));
    EXPECT_TRUE(WaitForLine(parseError, 2));
    ForbidNewDescriptors(false);
    EXPECT_TRUE(WaitForLine(Loaded("loaded")));
    EXPECT_TRUE(WaitForTraces("beside", 2));
    EXPECT_TRUE(WaitForHeartbeat(last));
    StopDaemon();
    EXPECT_THAT(Lines(), Each(AnyOf(RemedyRuns("web", "true"), notLoaded, parseError,
                                    Loaded("loaded"), Exit(0))));
}

}  // namespace kennly::test
