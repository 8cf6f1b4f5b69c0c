#include <cstdint>
#include <limits>

#include "support/FileTimeRecord.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

namespace {

struct Watched {
    std::string job;
    std::int64_t time;
    std::int32_t recorded;
};

const std::vector<Watched> Files = {
    {"first", 1, 1},
    {"usual", 1700000000, 1700000000},
    {"last", TwoTo31 - 1, std::numeric_limits<std::int32_t>::max()},
    {"at", TwoTo31, std::numeric_limits<std::int32_t>::min()},
    {"after", TwoTo31 + 1, std::numeric_limits<std::int32_t>::min() + 1},
    {"negative", -1700000000, -1700000000},
};

}  // namespace

/// The records of files' times are the same for programs of either word size.
class RecordExchangeTest : public DaemonTest {
protected:
    /// Runs a program until each job has looked at its file more than once. Returns those whose
    /// remedies have run.
    std::vector<std::string> Remedied(const std::string& program) {
        daemon = sandbox->Start({program, "-f"});
        number = NumberInside(daemon->Pid());
        EXPECT_TRUE(WaitForMoreTraces("beside", 4));
        std::vector<std::string> jobs;
        for (const Watched& file : Files) {
            jobs.insert(jobs.end(), RemediesOf(file.job), file.job);
        }
        StopDaemon();
        return jobs;
    }

    std::vector<std::string> Records() const {
        std::vector<std::string> records;
        for (const Watched& file : Files) {
            records.push_back(sandbox->ReadFile(RecordPath(file.job)).value_or("missing"));
        }
        return records;
    }

    static unsigned BitsOf(const char* program) {
        std::ifstream file(program, std::ios::binary);
        std::string head(5, '\0');
        file.read(head.data(), static_cast<std::streamsize>(head.size()));
        return head[4] == 2 ? 64 : 32;
    }
};

TEST_F(RecordExchangeTest, OneProgramReadsWhatTheOtherHasWritten) {
    ASSERT_NE(BitsOf(KENNLY_PROGRAM), BitsOf(KENNLY_OTHER_PROGRAM));
    std::string jobs = Beside();
    std::vector<std::string> all;
    std::vector<std::string> records;
    for (const Watched& file : Files) {
        jobs += Job(file.job,
                    CheckOfType("CheckForFileChange", {WatchedPath(file.job)}) + Remedy("true"));
        all.push_back(file.job);
        records.push_back(RecordOf(file.recorded));
    }
    Configure(Configuration(jobs));
    const std::vector<std::pair<std::string, std::string>> turns = {
        {KENNLY_PROGRAM, KENNLY_OTHER_PROGRAM}, {KENNLY_OTHER_PROGRAM, KENNLY_PROGRAM}};
    for (const auto& [writer, reader] : turns) {
        SCOPED_TRACE(writer);
        for (const Watched& file : Files) {
            PutFile(WatchedPath(file.job), file.time);
            sandbox->RemoveFile(RecordPath(file.job));  // there is none in the first turn
        }

        EXPECT_EQ(Remedied(writer), all);
        EXPECT_EQ(Records(), records);
        EXPECT_EQ(Remedied(reader), std::vector<std::string>());
        EXPECT_EQ(Records(), records);

        PutFile(WatchedPath(Files[2].job), TwoTo31);
        EXPECT_EQ(Remedied(reader), std::vector<std::string>({Files[2].job}));
    }
}

}  // namespace kennly::test
