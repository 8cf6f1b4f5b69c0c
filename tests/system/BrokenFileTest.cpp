#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::SizeIs;

class BrokenFileTest : public DaemonTest {
protected:
    std::string TooManyErrors() const {
        return Error("watchdog closing down as there have been too many load config errors");
    }

    static std::string JobThatTraces(const std::string& name) {
        return Job(name, Check(Note(name) + "; true") + Remedy("true"));
    }
};

TEST_F(BrokenFileTest, RunsNoCommandWhileTheFileIsBrokenAndRecoversOnceItIsRepaired) {
    Configure(Configuration(JobThatTraces("first"), "maxloaderrors=\"100\""));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("first", 1));

    Configure("<kennly><job name=\"first\"");
    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error")));
    const std::size_t count = TracesOf("first").size();
    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error"), 3));
    EXPECT_LE(TracesOf("first").size(), count + 1);  // one may have been about to start

    Configure(Configuration(JobThatTraces("second") + Marker("repaired")));
    EXPECT_TRUE(WaitForLine(Loaded("repaired")));
    EXPECT_TRUE(WaitForTraces("second", 2));
    StopDaemon();
}

TEST_F(BrokenFileTest, CountsOnlyErrorsInARow) {
    Configure(Configuration(Marker("first"), "maxloaderrors=\"1\""));
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Loaded("first")));
    Configure("<broken");
    ASSERT_TRUE(WaitForLine(Error("Configuration file parse error"), 1));
    Configure(Configuration(Marker("second")));
    ASSERT_TRUE(WaitForLine(Loaded("second")));

    Configure("<broken");

    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_THAT(ArrivalsOf(Error("Configuration file parse error")), SizeIs(3));
    EXPECT_EQ(Lines().at(Lines().size() - 2), TooManyErrors());
}

}  // namespace kennly::test
