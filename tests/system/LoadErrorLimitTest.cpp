#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

using LoadErrorLimitTest = DaemonTest;

TEST_F(LoadErrorLimitTest, IsTenErrorsWhenTheFileIsMissingOrBroken) {
    const std::string closing =
        "watchdog closing down as there have been too many load config errors";
    // Both at once: each takes twenty seconds.
    StartDaemon();
    const auto daemonWithoutFile = std::move(daemon);
    const std::string numberWithoutFile = number;
    const auto startedWithoutFile = started;
    std::string error;
    const auto sandboxWithoutFile = std::exchange(sandbox, Sandbox::Create(error));
    ASSERT_TRUE(sandbox) << error;
    Configure("<kennly><job></kennly>");
    StartDaemon();

    EXPECT_EQ(EndOfDaemon(std::chrono::seconds(50)), std::optional<int>(0));

    const double waited = SecondsBetween(started, Clock::now());
    EXPECT_GE(waited, 20);
    EXPECT_LT(waited, Allowing(30));
    ASSERT_TRUE(WaitForLine(Exit(0)));
    std::vector<std::string> expected;
    for (int failure = 0; failure < 11; ++failure) {
        expected.push_back(Error("config file failed to load, error: Error reading end tag."));
        expected.push_back(Error("Configuration file parse error"));
    }
    expected.push_back(Error(closing));
    expected.push_back(Exit(0));
    EXPECT_EQ(Lines(), expected);

    EXPECT_EQ(daemonWithoutFile->WaitForEnd(Generous), std::optional<int>(0));
    ASSERT_TRUE(
        sandboxWithoutFile->WaitForLog([](const auto& log) { return log.size() >= 2; }, Generous));
    const std::vector<LogLine> log = sandboxWithoutFile->Log();
    ASSERT_EQ(log.size(), 2U) << DescribeLog(log);
    EXPECT_EQ(log[0].text, numberWithoutFile + ":  : " + closing + "\n");
    EXPECT_GE(SecondsBetween(startedWithoutFile, log[0].arrival), 20);
    EXPECT_LT(SecondsBetween(startedWithoutFile, log[0].arrival), Allowing(30));
    EXPECT_EQ(log[1].text, numberWithoutFile + ":   exit(0)");
}

}  // namespace kennly::test
