#pragma once

#include "system/TreeFixture.h"

namespace kennly::test {

/// The real program while something happens to the system log.
class LogTroubleTest : public BackgroundTest {
protected:
    /// A job that writes a line at each failure, and one that writes none.
    void ConfigureLoggingAndSilentJob() { Configure(Configuration(LoggingJob() + Beside())); }
    static std::string LoggingJob() {
        return Job("logging", Check("false", "delay=\"1\"") + Remedy(NoteInShell("remedy")));
    }
    std::string Announced() const { return RemedyRuns("logging", NoteInShell("remedy")); }
    std::size_t Announcements() const { return ArrivalsOf(Announced()).size(); }

    /// Expects that jobs and heartbeat go on whatever becomes of the log.
    void ExpectSilentJobAtWork() {
        EXPECT_TRUE(WaitForMoreTraces("beside", 3));
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
    }
};

}  // namespace kennly::test
