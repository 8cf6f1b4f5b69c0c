#include "system/DaemonFixture.h"

namespace kennly::test {

class RebuildTest : public DaemonTest {
protected:
    static std::string JobThatTraces(const std::string& name) {
        return Job(name, Check(Note(name) + "; true") + Remedy("true"));
    }
};

TEST_F(RebuildTest, StartsEveryJobAnewWhenOnlyTheTimeHasChanged) {
    const std::string content =
        Configuration(Marker("loaded") +
                      Job("web", Check(Note("web") + "; true", "delay=\"2\"") + Remedy("true")));
    Configure(content);
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));

    Configure(content);

    ASSERT_TRUE(WaitForLine(Loaded("loaded"), 2));
    const double pause =
        SecondsBetween(ArrivalsOf(Loaded("loaded"))[0], ArrivalsOf(Loaded("loaded"))[1]);
    EXPECT_GE(pause, 4.5);  // after a load it looks away for five seconds
    EXPECT_LT(pause, Allowing(10));
    EXPECT_TRUE(WaitForTraces("web", TracesOf("web").size() + 2));
    StopDaemon();
}

TEST_F(RebuildTest, AdaptsItsThreadsToTheNumberOfJobs) {
    Configure(Configuration(JobThatTraces("first")));
    StartDaemon();
    EXPECT_TRUE(WaitForThreadsOf(1));

    Configure(Configuration(JobThatTraces("first") + JobThatTraces("second") +
                            JobThatTraces("third") + Marker("off")));
    EXPECT_TRUE(WaitForThreadsOf(3));

    Configure(Configuration(Marker("none")));
    EXPECT_TRUE(WaitForThreadsOf(0));
    EXPECT_TRUE(WaitForLine(Loaded("none")));
    StopDaemon();
}

}  // namespace kennly::test
