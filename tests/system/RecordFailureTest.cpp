#include <cerrno>

#include "support/FileTimeRecord.h"
#include "system/FaultFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;

/// The records of the times of watched files cannot be opened, read or written.
class RecordFailureTest : public FaultTest {
protected:
    static constexpr std::int32_t WatchedTime = 1'600'000'000;
    static inline const std::vector<std::string> All = {"unopened", "unread", "unwritten", "sound"};

    /// Each job watches the same file, which does not change.
    void ConfigureWatchers(const std::string& marker, const std::vector<std::string>& names = All) {
        std::string jobs = Beside() + Marker(marker);
        for (const std::string& job : names) {
            jobs +=
                Job(job, CheckOfType("CheckForFileChange", {PathOf("watched")}) + Remedy("true"));
        }
        Configure(Configuration(jobs));
    }

    /// Expects each job to have run its remedy so often by the time that others could follow.
    void ExpectRemedies(const std::map<std::string, std::size_t>& counts) {
        for (const auto& [job, count] : counts) {
            EXPECT_TRUE(WaitForRemedies(job, count)) << job;
        }
        EXPECT_TRUE(WaitForMoreTraces("beside", 4));
        for (const auto& [job, count] : counts) {
            EXPECT_EQ(RemediesOf(job), count) << job;
        }
    }
};

TEST_F(RecordFailureTest, OfAnyKindIsSilentAndHasTheRemedyRunOnceMore) {
    PutFile(PathOf("watched"), WatchedTime);
    ConfigureWatchers("first");
    StartFaultyDaemon();
    ExpectRemedies({{"unopened", 1}, {"unread", 1}, {"unwritten", 1}, {"sound", 1}});

    Fail(Fault("open", EIO, "filetimes/unopened") + Fault("read", EIO, "filetimes/unread") +
         Fault("write", ENOSPC, "filetimes/unwritten"));
    ConfigureWatchers("second");

    ASSERT_TRUE(WaitForLine(Loaded("second")));
    ExpectRemedies({{"unopened", 2}, {"unread", 2}, {"unwritten", 2}, {"sound", 1}});
    // A record is written when its job is replaced, and then once more when a worker still held
    // that job.
    EXPECT_THAT(FailuresOf("open", "filetimes/unopened"), AnyOf(2U, 3U));  // and read once
    EXPECT_EQ(FailuresOf("read", "filetimes/unread"), 1U);
    EXPECT_THAT(FailuresOf("write", "filetimes/unwritten"), AnyOf(1U, 2U));
    for (const char* const job : {"unopened", "unread", "unwritten"}) {
        EXPECT_FALSE(sandbox->FileExists(RecordPath(job))) << job;
    }

    FailNoLonger();
    ConfigureWatchers("third");

    ASSERT_TRUE(WaitForLine(Loaded("third")));
    ExpectRemedies({{"unopened", 2}, {"unread", 2}, {"unwritten", 2}, {"sound", 1}});
    for (const std::string& job : All) {
        EXPECT_EQ(sandbox->ReadFile(RecordPath(job)), RecordOf(WatchedTime)) << job;
    }
    ExpectRecovery();
    StopDaemon();
    EXPECT_THAT(Lines(), Each(AnyOf(Loaded("first"), Loaded("second"), Loaded("third"), Exit(0),
                                    ::testing::HasSubstr("check failed - running remedy: true"))));
}

TEST_F(RecordFailureTest, OfWritingItsSecondHalfIsSilentAndHasTheRemedyRunOnceMore) {
    const std::string whole = RecordOf(WatchedTime);
    const std::string old = RecordOf(WatchedTime - 100'000'000);  // another one in both halves
    ASSERT_TRUE(sandbox->WriteFile(RecordPath("over"), old));
    PutFile(PathOf("watched"), WatchedTime);
    ConfigureWatchers("first", {"short", "over"});
    StartFaultyDaemon();
    ExpectRemedies({{"short", 1}, {"over", 1}});
    Fail(Fault("write-on", ENOSPC, "filetimes/"));
    StopDaemon();
    EXPECT_EQ(sandbox->ReadFile(RecordPath("short")), whole.substr(0, 2));
    EXPECT_EQ(sandbox->ReadFile(RecordPath("over")), whole.substr(0, 2) + old.substr(2));
    EXPECT_THAT(Lines(), Each(AnyOf(Loaded("first"), RemedyRuns("short", "true"),
                                    RemedyRuns("over", "true"), Exit(0))));

    FailNoLonger();
    StartFaultyDaemon();

    ExpectRemedies({{"short", 1}, {"over", 1}});
    EXPECT_FALSE(sandbox->FileExists(RecordPath("short")));
    StopDaemon();
    for (const char* const job : {"short", "over"}) {
        EXPECT_EQ(sandbox->ReadFile(RecordPath(job)), whole) << job;
    }
}

}  // namespace kennly::test
