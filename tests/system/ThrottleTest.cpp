#include "system/DaemonFixture.h"

namespace kennly::test {

using ThrottleTest = DaemonTest;

TEST_F(ThrottleTest, WaitsFifteenSecondsOnceFailuresInARowPassTheThreshold) {
    // The second job is healthy every other time, so that its failures never add up.
    const std::string toggle = "test -e " + DataDirectory + "/up && rm " + DataDirectory +
                               "/up || { touch " + DataDirectory + "/up; exit 1; }";
    Configure(Configuration(
        Job("down", Check("exit 1", "delay=\"1\"") + Remedy("true", "delay=\"1\""),
            "maxerrors=\"2\"") +
        Job("flapping", Check(toggle, "delay=\"1\"") + Remedy("true"), "maxerrors=\"1\"") +
        Job("unlimited", Check("exit 1", "delay=\"1\"") + Remedy("true"), "maxerrors=\"0\"")));

    StartDaemon();

    ASSERT_TRUE(WaitForLine(RemedyRuns("down", "true"), 3, std::chrono::seconds(40)));
    const auto down = ArrivalsOf(RemedyRuns("down", "true"));
    EXPECT_GE(SecondsBetween(started, down[0]), 1);
    EXPECT_GE(SecondsBetween(down[0], down[1]), 1);
    EXPECT_LT(SecondsBetween(down[0], down[1]), Allowing(12));
    EXPECT_GE(SecondsBetween(down[1], down[2]), 15);
    EXPECT_LT(SecondsBetween(down[1], down[2]), Allowing(25));
    for (const char* const name : {"flapping", "unlimited"}) {
        const auto arrivals = ArrivalsOf(RemedyRuns(name, "true"));
        ASSERT_GE(arrivals.size(), 3U) << name;
        for (std::size_t index = 1; index < arrivals.size(); ++index) {
            EXPECT_LT(SecondsBetween(arrivals[index - 1], arrivals[index]), Allowing(14)) << name;
        }
    }
    StopDaemon();
}

}  // namespace kennly::test
