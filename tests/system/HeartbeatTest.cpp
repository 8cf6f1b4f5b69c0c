#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

class HeartbeatTest : public DaemonTest {};

TEST_F(HeartbeatTest, ComesOnceASecondInSteadyStateAndHoldsOneBlank) {
    Configure(Configuration(Job("web", Check("true", "delay=\"1\"") + Remedy("true"))));
    StartDaemon();
    ASSERT_TRUE(WaitForHeartbeat());
    // The second cycle comes after the long pause that follows a load.
    ASSERT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat) + 3000000000));

    const std::vector<std::int64_t> beats =
        BeatsWithin(std::chrono::seconds(6), {ChildHeartbeat}).front();

    EXPECT_GE(beats.size(), 4U);
    EXPECT_LE(beats.size(), Allowing(8));
    for (std::size_t index = 1; index < beats.size(); ++index) {
        EXPECT_LT(SecondsBetween(beats[index - 1], beats[index]), Allowing(2.8));
    }
    EXPECT_EQ(sandbox->ReadFile(ChildHeartbeat), " ");
    StopDaemon();
}

TEST_F(HeartbeatTest, ComesWhileTheConfigurationIsMissing) {
    StartDaemon();

    ASSERT_TRUE(WaitForHeartbeat());
    ASSERT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat) + 1000000000));
    ASSERT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat) + 1000000000));
    StopDaemon();
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

TEST_F(HeartbeatTest, ReplacesOnlyTheFirstByteOfLongerContent) {
    ASSERT_TRUE(sandbox->WriteFile(ChildHeartbeat, "xyz"));
    ASSERT_TRUE(sandbox->SetFileTime(ChildHeartbeat, 1000000000));
    Configure(Configuration(Marker("loaded")));

    StartDaemon();

    EXPECT_TRUE(WaitForHeartbeat(1000000001000000000));
    EXPECT_EQ(sandbox->ReadFile(ChildHeartbeat), " yz");
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));
    StopDaemon();
}

TEST_F(HeartbeatTest, IsDispensableWithoutAWord) {
    std::filesystem::remove(sandbox->PathInside(DataDirectory + "/heartbeats"));
    Configure(Configuration(Job("web", Check(Note("web") + "; true") + Remedy("true"))));

    StartDaemon();

    EXPECT_TRUE(WaitForTraces("web", 2));
    StopDaemon();
    EXPECT_FALSE(sandbox->FileExists(DataDirectory + "/heartbeats"));
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

TEST_F(HeartbeatTest, HasItsModeFromTheMask) {
    Configure(Configuration(Marker("loaded")));
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));

    struct stat status = {};
    ASSERT_EQ(stat(sandbox->PathInside(ChildHeartbeat).c_str(), &status), 0);

    EXPECT_EQ(status.st_mode & 07777, 0644U);
    EXPECT_EQ(status.st_size, 1);
    StopDaemon();
}

}  // namespace kennly::test
