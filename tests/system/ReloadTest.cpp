#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ReloadTest : public DaemonTest {
protected:
    static std::string JobThatTraces(const std::string& name) {
        return Job(name, Check(Note(name) + "; true") + Remedy("true"));
    }

    /// Waits until `running` has run three times more, and expects no run of `gone` meanwhile.
    void ExpectOnly(const std::string& running, const std::string& gone) {
        ASSERT_TRUE(WaitForTraces(running, TracesOf(running).size() + 1));
        const std::size_t count = TracesOf(gone).size();
        EXPECT_GT(count, 0U);
        EXPECT_TRUE(WaitForTraces(running, TracesOf(running).size() + 3));
        EXPECT_THAT(TracesOf(gone), SizeIs(count));
    }
};

TEST_F(ReloadTest, ReplacesAllJobsByThoseOfANewerAndOfAnOlderFile) {
    Configure(Configuration(JobThatTraces("first")));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("first", 1));

    Configure(Configuration(JobThatTraces("second") + Marker("newer")));
    ASSERT_TRUE(WaitForLine(Loaded("newer")));
    ExpectOnly("second", "first");

    ConfigureAt(1000000000, Configuration(JobThatTraces("third") + Marker("older")));
    ASSERT_TRUE(WaitForLine(Loaded("older")));
    ExpectOnly("third", "second");
    StopDaemon();
    EXPECT_THAT(Lines(), Each(AnyOf(Loaded("newer"), Loaded("older"), Exit(0))));
}

TEST_F(ReloadTest, TakesAFileWithTheSameTimeForUnchanged) {
    ConfigureAt(1700000000, Configuration(JobThatTraces("first")));
    StartDaemon();
    ASSERT_TRUE(WaitForTraces("first", 1));

    ConfigureAt(1700000000, "not even a configuration");

    const std::int64_t loaded = TimeOf(ChildHeartbeat);
    ASSERT_TRUE(WaitForHeartbeat(loaded));
    const std::int64_t looked = TimeOf(ChildHeartbeat) + 2500000000;
    ASSERT_TRUE(WaitForHeartbeat(looked));
    ASSERT_TRUE(WaitForTraces("first", TracesOf("first").size() + 1));
    EXPECT_THAT(Lines(), IsEmpty());
    ConfigureAt(1700000001, Configuration(Marker("changed")));
    EXPECT_TRUE(WaitForLine(Loaded("changed")));
    StopDaemon();
}

}  // namespace kennly::test
