#include <cerrno>
#include <fstream>

#include "support/FileTimeRecord.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::HasSubstr;

/// No room is left on the disk with the data directory. What room a file has, it keeps.
class FullDiskTest : public DaemonTest {
protected:
    static constexpr std::int32_t WatchedTime = 1'600'000'000;

    /// Takes all room there is, to the last byte.
    void FillDisk() {
        std::ofstream ballast(sandbox->PathInside(PathOf("ballast")), std::ios::binary);
        const std::string piece(4096, '.');
        while (ballast.write(piece.data(), static_cast<std::streamsize>(piece.size())).flush()) {
        }
        ASSERT_EQ(errno, ENOSPC);
        ASSERT_TRUE(IsFull());
    }
    void MakeRoom() {
        ASSERT_TRUE(sandbox->RemoveFile(PathOf("ballast")));
        ASSERT_FALSE(IsFull());
    }
    bool IsFull() const {
        const bool written = sandbox->WriteFile(PathOf("new"), ".");
        sandbox->RemoveFile(PathOf("new"));
        return !written;
    }

    /// A job that watches a file that does not change, and one whose remedy leaves traces.
    std::string Jobs() const {
        return Job("watching",
                   CheckOfType("CheckForFileChange", {PathOf("watched")}) + Remedy("true")) +
               Job("failing", Check("false", "delay=\"1\"") + Remedy(NoteInShell("remedy"))) +
               Beside();
    }
    void ConfigureJobs() {
        PutFile(PathOf("watched"), WatchedTime);
        Configure(Configuration(Jobs()));
    }

    /// Has the configuration loaded again, without any room for it.
    void ReloadWithNewTime() {
        fileTime += 10;
        ASSERT_TRUE(sandbox->SetFileTime(MainConfiguration, fileTime));
    }

    void ExpectAllAtWork() {
        EXPECT_TRUE(WaitForMoreTraces("beside", 2));
        EXPECT_TRUE(WaitForMoreTraces("remedy", 2));
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
    }

    /// Of all daemons that there have been.
    void ExpectOnlyRemediesInLog() {
        EXPECT_THAT(Lines(), Each(AnyOf(HasSubstr("watching check failed - running remedy: true"),
                                        HasSubstr("failing check failed - running remedy: sh"),
                                        HasSubstr(" exit(0)"))));
    }
};

TEST_F(FullDiskTest, HoldsBackNothingButTheRecordsOfFileTimes) {
    ConfigureJobs();
    StartDaemon();
    ASSERT_TRUE(WaitForRemedies("watching", 1));
    ExpectAllAtWork();

    FillDisk();

    ExpectAllAtWork();
    ReloadWithNewTime();
    EXPECT_TRUE(WaitForRemedies("watching", 2));  // nothing told the new job of the time
    StopDaemon();
    EXPECT_TRUE(IsFull());
    EXPECT_EQ(sandbox->ReadFile(RecordPath("watching")).value_or(""), "");
    ExpectOnlyRemediesInLog();

    MakeRoom();
    StartDaemon();
    EXPECT_TRUE(WaitForRemedies("watching", 1));
    StopDaemon();
    EXPECT_EQ(sandbox->ReadFile(RecordPath("watching")), RecordOf(WatchedTime));
    StartDaemon();
    ExpectAllAtWork();
    EXPECT_EQ(RemediesOf("watching"), 0U);
    StopDaemon();
    ExpectOnlyRemediesInLog();
}

TEST_F(FullDiskTest, AtTheStartLeavesTheHeartbeatEmptyUntilThereIsRoom) {
    ConfigureJobs();
    ASSERT_TRUE(sandbox->WriteFile(TracePath("beside"), "0\n"));
    ASSERT_TRUE(sandbox->WriteFile(TracePath("remedy"), "0\n"));
    FillDisk();

    StartDaemon();

    EXPECT_TRUE(WaitForTraces("beside", 4));
    EXPECT_TRUE(WaitForTraces("remedy", 3));
    EXPECT_EQ(sandbox->ReadFile(ChildHeartbeat), "");

    MakeRoom();
    EXPECT_TRUE(WaitUntil([&] { return sandbox->ReadFile(ChildHeartbeat) == " "; }, Generous));
    ExpectAllAtWork();
    StopDaemon();
    ExpectOnlyRemediesInLog();
}

}  // namespace kennly::test
