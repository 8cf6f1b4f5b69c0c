#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;

class MissingFileTest : public DaemonTest {
protected:
    std::string TooManyErrors() const {
        return Error("watchdog closing down as there have been too many load config errors");
    }

    static std::string JobThatTraces(const std::string& name) {
        return Job(name, Check(Note(name) + "; true") + Remedy("true"));
    }
};

TEST_F(MissingFileTest, KeepsTheJobsRunningWhileTheFileIsMissing) {
    Configure(Configuration(JobThatTraces("first"), "maxloaderrors=\"100\""));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("first", 1));
    const std::time_t loaded = fileTime;

    ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));
    ASSERT_TRUE(WaitForTraces("first", 9));

    // Back with the time it was loaded with, it counts as unchanged, whatever it contains.
    ConfigureAt(loaded, Configuration(Marker("unseen")));
    ASSERT_TRUE(WaitForTraces("first", TracesOf("first").size() + 3));
    StopDaemon();
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

TEST_F(MissingFileTest, EndsWithTheFirstErrorWhenNoneIsTolerated) {
    Configure(Configuration(Marker("loaded"), "maxloaderrors=\"0\""));
    StartDaemon();
    ASSERT_TRUE(WaitForLine(Loaded("loaded")));

    ASSERT_TRUE(sandbox->RemoveFile(MainConfiguration));

    // With the usual limit it would take five seconds and ten pauses of two.
    EXPECT_EQ(EndOfDaemon(std::chrono::seconds(15)), std::optional<int>(0));
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_THAT(Lines(), ElementsAre(Loaded("loaded"), TooManyErrors(), Exit(0)));
}

}  // namespace kennly::test
