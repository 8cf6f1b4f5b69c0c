#include <limits>
#include <utility>

#include "support/FileTimeRecord.h"
#include "support/Lanes.h"
#include "system/FaultFixture.h"

namespace kennly::test {

namespace {

/// A time and how it is recorded.
using TimeAndRecord = std::pair<std::int64_t, std::int32_t>;

}  // namespace

/// Before, at and after the second in which times of 32 bits change their sign.
class LateDateTest : public FaultTest {
public:
    void ConfigureChangeCheck() {
        Configure(Configuration(
            Job("web", CheckOfType("CheckForFileChange", {WatchedPath("web")}) + Remedy("true")) +
            Beside()));
    }
    void PutWatched(std::int64_t time) { PutFile(WatchedPath("web"), time); }

    /// How many remedies there are while the daemon runs for long enough.
    std::size_t RemediesOfARun() {
        StartDaemon();
        EXPECT_TRUE(WaitForMoreTraces("beside", 4));
        const std::size_t remedies = RemediesOf("web");
        StopDaemon();
        return remedies;
    }
    std::string Record() const { return sandbox->ReadFile(RecordPath("web")).value_or("missing"); }

protected:
    /// Sets the daemon's clock to `seconds` since the epoch, from where it goes on.
    void SetClockTo(std::int64_t seconds) {
        PutFile(ClockShiftPath, 0, std::to_string(seconds - std::time(nullptr)) + "\n");
    }
};

TEST_F(LateDateTest, AFileIsStaleWithTheClockBeforeAndAfterIt) {
    struct Row {
        const char* job;
        std::int64_t time;
        bool isStaleBefore;
        bool isStaleAfter;
    };
    const std::vector<Row> rows = {
        {"long-before", TwoTo31 - 10000, true, true}, {"before", TwoTo31 - 1000, false, true},
        {"last", TwoTo31 - 1, false, true},           {"at", TwoTo31, false, true},
        {"after", TwoTo31 + 1, false, true},          {"long-after", TwoTo31 + 9000, false, false},
    };
    std::string jobs = Beside();
    for (const Row& row : rows) {
        PutFile(WatchedPath(row.job), row.time);
        jobs += Job(row.job, CheckOfType("CheckForNoFileChange", {WatchedPath(row.job), "2000"}) +
                                 Remedy("true"));
    }
    Configure(Configuration(jobs));
    SetClockTo(TwoTo31 - 500);  // it is set to the other side later
    StartFaultyDaemon();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.job);
        EXPECT_TRUE(!row.isStaleBefore || WaitForRemedies(row.job, 2));
    }
    ASSERT_TRUE(WaitForMoreTraces("beside", 3));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.job);
        EXPECT_TRUE(row.isStaleBefore || RemediesOf(row.job) == 0);
    }

    const std::size_t before = RemediesOf("long-before");
    SetClockTo(TwoTo31 + 5000);

    for (const Row& row : rows) {
        SCOPED_TRACE(row.job);
        const std::size_t further = 2 + (row.isStaleBefore ? before : 0);
        EXPECT_TRUE(!row.isStaleAfter || WaitForRemedies(row.job, further));
    }
    ASSERT_TRUE(WaitForMoreTraces("beside", 3));
    EXPECT_EQ(RemediesOf("long-after"), 0U);
    StopDaemon();
}

TEST_F(LateDateTest, AChangeIsRememberedInRecordsOfEitherSign) {
    const std::vector<TimeAndRecord> rows = {
        {-5, -5},
        {TwoTo31 - 1, std::numeric_limits<std::int32_t>::max()},
        {TwoTo31, std::numeric_limits<std::int32_t>::min()},
        {TwoTo31 + 100, std::numeric_limits<std::int32_t>::min() + 100},
        {2 * TwoTo31 - 1, -1},
        {2 * TwoTo31 + 5, 5},
    };
    RunAtOnce<LateDateTest>(rows, [](LateDateTest& lane, const TimeAndRecord& row) {
        const auto& [time, recorded] = row;
        lane.ConfigureChangeCheck();
        lane.PutWatched(time - 1);
        EXPECT_EQ(lane.RemediesOfARun(), 1U);
        EXPECT_EQ(lane.RemediesOfARun(), 0U);

        lane.PutWatched(time);

        EXPECT_EQ(lane.RemediesOfARun(), 1U);
        EXPECT_EQ(lane.Record(), RecordOf(recorded));
        EXPECT_EQ(lane.RemediesOfARun(), 0U);
        EXPECT_EQ(lane.Record(), RecordOf(recorded));
    });
}

}  // namespace kennly::test
