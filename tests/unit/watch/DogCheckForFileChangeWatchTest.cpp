#include "watch/DogCheckForFileChangeWatch.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "job/ResultCode.h"
#include "main/ProcessState.h"
#include "support/FailingAllocation.h"
#include "support/FileTimeRecord.h"
#include "support/ObservedOpening.h"
#include "support/RecordedLog.h"
#include "support/SandboxDescriptor.h"
#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace kennly::test {

using ::testing::IsEmpty;

constexpr std::int32_t Noon = 1700000000;

class DogCheckForFileChangeWatchTest : public ::testing::Test {
protected:
    DogCheckForFileChangeWatchTest() {
        opening = {};
        ForgetLog();
        std::filesystem::create_directories(directory.Path(records));
        std::snprintf(configDir, sizeof(configDir), "%s", directory.Path("config").c_str());
        TouchAt(Noon);
        NewCheck();
    }

    ~DogCheckForFileChangeWatchTest() override {
        check.reset();
        EXPECT_THAT(RecordedLines(), IsEmpty());  // whatever happens
        opening = {};
        configDir[0] = '\0';
    }

    /// Destroys the check and makes a new one, as a reload does.
    void NewCheck(const std::string& jobName = "web") {
        check.reset();
        check = std::make_unique<DogCheckForFileChangeWatch>();
        check->jobName = jobName;
        check->params = {directory.Path("watched")};
    }

    /// Gives the watched file a modification time.
    void TouchAt(std::int32_t seconds, long nanoseconds = 0) const {
        directory.Write("watched", "");
        ASSERT_TRUE(directory.SetTime("watched", seconds, nanoseconds));
    }

    std::string RecordPath(const std::string& jobName = "web") const {
        return directory.Path(records + jobName);
    }
    void WriteRecord(const std::string& bytes) const { directory.Write(records + "web", bytes); }
    std::string Record(const std::string& jobName = "web") const {
        return directory.Read(records + jobName);
    }
    bool HasRecord(const std::string& jobName = "web") const {
        return std::filesystem::exists(RecordPath(jobName));
    }

    /// The next two evaluations: failed, then healthy.
    void ExpectOneFailure() {
        EXPECT_EQ(check->DoWatch(), ResultFailed);
        EXPECT_EQ(check->DoWatch(), ResultHealthy);
    }

    const std::string records = "config/filetimes/";
    const TemporaryDirectory directory;
    std::unique_ptr<DogCheckForFileChangeWatch> check;
};

TEST_F(DogCheckForFileChangeWatchTest, BeginsWithoutATimeBeforeItsFirstCall) {
    EXPECT_EQ(check->lastFileTime, NoFileTime);
    EXPECT_TRUE(check->firstCall);
    EXPECT_EQ(check->type, 0);
    EXPECT_EQ(check->delay, 0);
}

// ---- evaluation

TEST_F(DogCheckForFileChangeWatchTest, FailsOnceAtFirstSightAndOncePerChange) {
    ExpectOneFailure();
    EXPECT_EQ(check->DoWatch(), ResultHealthy);
    EXPECT_FALSE(check->firstCall);

    for (const std::int32_t time : {Noon + 1, Noon + 1000, Noon + 999, 0, -1, Noon}) {
        SCOPED_TRACE(time);
        TouchAt(time);

        ExpectOneFailure();

        EXPECT_EQ(check->lastFileTime, time);
    }
}

TEST_F(DogCheckForFileChangeWatchTest, CountsChangesBetweenTwoEvaluationsAsOne) {
    ExpectOneFailure();
    TouchAt(Noon + 1);
    TouchAt(Noon + 2);
    ExpectOneFailure();

    TouchAt(Noon + 3);
    TouchAt(Noon + 2);
    EXPECT_EQ(check->DoWatch(), ResultHealthy);
}

TEST_F(DogCheckForFileChangeWatchTest, DoesNotSeeAChangeWithinTheSecond) {
    ExpectOneFailure();

    TouchAt(Noon, 999999999);

    EXPECT_EQ(check->DoWatch(), ResultHealthy);
}

TEST_F(DogCheckForFileChangeWatchTest, LooksAtNothingButTheTime) {
    ExpectOneFailure();

    directory.Write("watched", "other content");
    std::filesystem::permissions(directory.Path("watched"), std::filesystem::perms::owner_read);
    ASSERT_TRUE(directory.SetTime("watched", Noon));

    EXPECT_EQ(check->DoWatch(), ResultHealthy);
}

TEST_F(DogCheckForFileChangeWatchTest, IsHealthyAndUnmovedWhileTheFileCannotBeExamined) {
    std::filesystem::create_symlink("nowhere", directory.Path("dangling"));
    std::filesystem::create_symlink("loop", directory.Path("loop"));
    WriteRecord("short");
    for (const char* const name : {"missing", "dangling", "loop", "watched/below"}) {
        SCOPED_TRACE(name);
        check->params = {directory.Path(name)};

        EXPECT_EQ(check->DoWatch(), ResultHealthy);
        EXPECT_EQ(check->DoWatch(), ResultHealthy);

        EXPECT_TRUE(check->firstCall);
        EXPECT_EQ(check->lastFileTime, NoFileTime);
    }
    check.reset();
    EXPECT_EQ(Record(), "short");  // neither read nor written
}

TEST_F(DogCheckForFileChangeWatchTest, RemembersAFileThatHasGone) {
    ExpectOneFailure();
    std::filesystem::remove(directory.Path("watched"));
    EXPECT_EQ(check->DoWatch(), ResultHealthy);
    EXPECT_EQ(check->lastFileTime, Noon);

    TouchAt(Noon);
    EXPECT_EQ(check->DoWatch(), ResultHealthy);
    TouchAt(Noon + 1);
    ExpectOneFailure();

    std::filesystem::remove(directory.Path("watched"));
    check.reset();
    EXPECT_EQ(Record(), RecordOf(Noon + 1));
}

TEST_F(DogCheckForFileChangeWatchTest, TakesExactlyOneParameterThatIsNotEmpty) {
    const std::string path = directory.Path("watched");
    WriteRecord(RecordOf(Noon));
    const std::vector<std::list<std::string>> rows = {{},         {path, path},       {path, ""},
                                                      {"", path}, {path, path, path}, {""}};
    for (const std::list<std::string>& params : rows) {
        SCOPED_TRACE(::testing::PrintToString(params));
        check->params = params;

        EXPECT_EQ(check->DoWatch(), ResultNotEvaluated);

        EXPECT_TRUE(check->firstCall);
        EXPECT_EQ(check->lastFileTime, NoFileTime);
    }
}

TEST_F(DogCheckForFileChangeWatchTest, FollowsSymbolicLinks) {
    std::filesystem::create_symlink("watched", directory.Path("link"));
    check->params = {directory.Path("link")};
    ExpectOneFailure();

    TouchAt(Noon + 1);

    ExpectOneFailure();
}

TEST_F(DogCheckForFileChangeWatchTest, WatchesWhatIsNoRegularFileToo) {
    std::filesystem::create_directory(directory.Path("below"));
    ASSERT_EQ(mkfifo(directory.Path("fifo").c_str(), 0666), 0);
    for (const char* const name : {"below", "fifo"}) {  // a FIFO that is opened would block
        SCOPED_TRACE(name);
        check->params = {directory.Path(name)};
        ASSERT_TRUE(directory.SetTime(name, Noon + 1));
        ExpectOneFailure();
        ASSERT_TRUE(directory.SetTime(name, Noon + 2));
        ExpectOneFailure();
    }
}

TEST_F(DogCheckForFileChangeWatchTest, ReachesNoVerdictWhenMemoryRunsOutAndReadsNoRecordLater) {
    WriteRecord(RecordOf(Noon));
    std::int32_t result = ResultHealthy;
    bool failed = false;
    {
        const FailingOnceAllocation failing(0);
        result = check->DoWatch();
        failed = failing.HasFailed();
    }

    EXPECT_TRUE(failed);
    EXPECT_EQ(result, ResultNotEvaluated);
    ExpectOneFailure();
}

// ---- the record is read

TEST_F(DogCheckForFileChangeWatchTest, IsHealthyAtFirstWhenTheRecordHoldsTheTime) {
    for (const std::int32_t time : {Noon, 0, -1, 0x01020304}) {
        SCOPED_TRACE(time);
        NewCheck();
        TouchAt(time);
        WriteRecord(RecordOf(time));

        EXPECT_EQ(check->DoWatch(), ResultHealthy);

        EXPECT_FALSE(check->firstCall);
        EXPECT_EQ(check->lastFileTime, time);
        EXPECT_EQ(Record(), RecordOf(time));
    }
}

TEST_F(DogCheckForFileChangeWatchTest, FailsOnceWhenTheRecordHoldsAnotherTime) {
    for (const std::int32_t time : {Noon - 1, Noon + 1, 0, -1, -Noon}) {
        SCOPED_TRACE(time);
        NewCheck();
        WriteRecord(RecordOf(time));

        ExpectOneFailure();

        EXPECT_EQ(Record(), RecordOf(time));  // until the check is destroyed
    }
}

TEST_F(DogCheckForFileChangeWatchTest, TakesTheFirstFourBytesOfARecordAndDeletesAShorterOne) {
    const std::string complete = RecordOf(Noon);
    const struct {
        std::string record;
        std::int32_t result;
        std::int32_t loaded;
        bool kept;
    } rows[] = {
        {"", ResultFailed, NoFileTime, false},
        {complete.substr(0, 1), ResultFailed, NoFileTime, false},
        {complete.substr(0, 3), ResultFailed, NoFileTime, false},
        {RecordOf(NoFileTime), ResultFailed, NoFileTime, false},
        {RecordOf(NoFileTime) + complete, ResultFailed, NoFileTime, false},
        {complete, ResultHealthy, Noon, true},
        {complete + "\n", ResultHealthy, Noon, true},
        {complete + RecordOf(1) + RecordOf(2), ResultHealthy, Noon, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.record));
        NewCheck();
        WriteRecord(row.record);
        check->lastFileTime = 5;

        check->LoadFileTime();

        EXPECT_EQ(check->lastFileTime, row.loaded);
        EXPECT_EQ(HasRecord(), row.kept);

        WriteRecord(row.record);
        EXPECT_EQ(check->DoWatch(), row.result);
        EXPECT_EQ(check->DoWatch(), ResultHealthy);
        EXPECT_EQ(HasRecord(), row.kept);
        EXPECT_EQ(Record(), row.kept ? row.record : "");
    }
}

TEST_F(DogCheckForFileChangeWatchTest, KeepsItsTimeWhenThereIsNoRecordToOpen) {
    check->lastFileTime = 5;
    check->LoadFileTime();
    EXPECT_EQ(check->lastFileTime, 5);

    std::filesystem::create_symlink("web", RecordPath());  // to itself, so nobody can open it
    check->LoadFileTime();
    EXPECT_EQ(check->lastFileTime, 5);
    EXPECT_TRUE(std::filesystem::is_symlink(RecordPath()));
}

TEST_F(DogCheckForFileChangeWatchTest, KeepsARecordThatItMayNotOpen) {
    using std::filesystem::perms;
    WriteRecord(RecordOf(Noon));
    std::filesystem::permissions(RecordPath(), perms::none);
    for (const char* const name : {"", "config", "config/filetimes"}) {  // it could be deleted
        std::filesystem::permissions(directory.Path(name), perms::all);
    }
    check->lastFileTime = 5;
    {
        const WithoutPrivileges anybody;
        ASSERT_NE(access(RecordPath().c_str(), R_OK), 0);

        check->LoadFileTime();
        EXPECT_EQ(check->lastFileTime, 5);
        check.reset();
    }
    std::filesystem::permissions(RecordPath(), perms::owner_read);
    EXPECT_EQ(Record(), RecordOf(Noon));
}

TEST_F(DogCheckForFileChangeWatchTest, TakesARecordThatCannotBeReadForNone) {
    std::filesystem::create_directories(RecordPath() + "/below");
    check->lastFileTime = 5;

    check->LoadFileTime();

    EXPECT_EQ(check->lastFileTime, NoFileTime);
    ExpectOneFailure();
    check.reset();
    EXPECT_TRUE(std::filesystem::exists(RecordPath() + "/below"));
}

TEST_F(DogCheckForFileChangeWatchTest, ReadsTheRecordOnlyAtTheFirstEvaluationThatSeesTheFile) {
    WriteRecord(RecordOf(Noon));
    EXPECT_EQ(check->DoWatch(), ResultHealthy);
    WriteRecord(RecordOf(Noon + 1));

    TouchAt(Noon + 1);

    ExpectOneFailure();
}

// ---- the record is written

TEST_F(DogCheckForFileChangeWatchTest, SavesFourBytesWhenItIsDestroyed) {
    const std::string complete = RecordOf(Noon);
    ASSERT_EQ(complete.size(), 4U);
    for (const std::string& before :
         {std::string(), complete.substr(0, 1), complete.substr(0, 3), RecordOf(Noon - 1),
          complete + "\n", complete + complete + complete}) {
        SCOPED_TRACE(::testing::PrintToString(before));
        NewCheck();
        WriteRecord(before);
        check->lastFileTime = Noon;

        EXPECT_EQ(Record(), before);
        check.reset();

        EXPECT_EQ(Record(), complete);
    }
}

TEST_F(DogCheckForFileChangeWatchTest, SavesTheLastTimeItHasSeen) {
    for (const std::int32_t time : {Noon, Noon - 5, 0, -1}) {
        SCOPED_TRACE(time);
        TouchAt(time);
        check->DoWatch();
    }
    EXPECT_FALSE(HasRecord());

    check.reset();

    EXPECT_EQ(Record(), RecordOf(-1));
}

TEST_F(DogCheckForFileChangeWatchTest, SavesTheRecordWhenToldToRememberAndGoesOn) {
    ExpectOneFailure();

    check->Remember();

    EXPECT_EQ(Record(), RecordOf(Noon));
    EXPECT_EQ(check->DoWatch(), ResultHealthy);
    TouchAt(Noon + 1);
    ExpectOneFailure();
}

TEST_F(DogCheckForFileChangeWatchTest, RemembersDuringAnEvaluationAndTheRecordIsAlwaysComplete) {
    constexpr std::int32_t changes = 2000;
    ExpectOneFailure();
    check->Remember();
    std::atomic<bool> done{false};
    std::thread worker([&] {
        for (std::int32_t i = 1; i <= changes; ++i) {
            TouchAt(Noon + i);
            EXPECT_EQ(check->DoWatch(), ResultFailed);
        }
        done = true;
    });
    int incomplete = 0;
    std::thread reader([&] {
        while (!done) {
            incomplete += Record().size() == sizeof(std::int32_t) ? 0 : 1;
        }
    });

    while (!done) {
        check->Remember();
    }

    worker.join();
    reader.join();
    EXPECT_EQ(incomplete, 0);
    check->Remember();
    EXPECT_EQ(Record(), RecordOf(Noon + changes));
}

TEST_F(DogCheckForFileChangeWatchTest, LeavesTheRecordAloneWhenItHasNeverSeenTheFile) {
    check.reset();
    EXPECT_FALSE(HasRecord());

    WriteRecord("as it was");
    NewCheck();
    check.reset();
    EXPECT_EQ(Record(), "as it was");
}

TEST_F(DogCheckForFileChangeWatchTest, ActsAfterAReloadOnlyOnAChangeMadeMeanwhile) {
    ExpectOneFailure();
    NewCheck();
    EXPECT_EQ(check->DoWatch(), ResultHealthy);

    NewCheck();
    TouchAt(Noon + 1);
    ExpectOneFailure();

    check.reset();
    TouchAt(Noon);
    NewCheck();
    ExpectOneFailure();
}

TEST_F(DogCheckForFileChangeWatchTest, LeavesThePermissionsOfANewRecordToTheMask) {
    const mode_t before = umask(027);
    check->DoWatch();
    check.reset();
    umask(before);

    EXPECT_EQ(std::filesystem::status(RecordPath()).permissions(),
              static_cast<std::filesystem::perms>(0640));
}

TEST_F(DogCheckForFileChangeWatchTest, CannotFailByADestructionWithoutMemory) {
    check->DoWatch();
    bool failed = false;
    {
        const FailingAllocation failing(0);
        check.reset();
        failed = failing.HasFailed();
    }

    EXPECT_TRUE(failed);
    EXPECT_FALSE(HasRecord());
}

TEST_F(DogCheckForFileChangeWatchTest, KeepsSilentWhenTheRecordCannotBeWritten) {
    std::filesystem::create_symlink("/dev/full", RecordPath());
    check->lastFileTime = Noon;
    check.reset();
    EXPECT_EQ(std::filesystem::read_symlink(RecordPath()), "/dev/full");

    std::filesystem::remove(RecordPath());
    std::filesystem::create_symlink("web", RecordPath());
    NewCheck();
    check->lastFileTime = Noon;
    check.reset();
    EXPECT_EQ(std::filesystem::read_symlink(RecordPath()), "web");
}

TEST_F(DogCheckForFileChangeWatchTest, KeepsTheOldRecordWhenThereIsNoRoomForANewOne) {
    WriteRecord(RecordOf(Noon) + "rest");
    check->lastFileTime = Noon + 1;
    const auto handlerBefore = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);

    check.reset();

    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handlerBefore);
    EXPECT_EQ(Record(), RecordOf(Noon) + "rest");
}

// ---- where the record lies

TEST_F(DogCheckForFileChangeWatchTest, NamesTheRecordAfterTheJobAsItStands) {
    std::filesystem::create_directory(RecordPath("group"));
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"web", "config/filetimes/web"},
        {"Web server 50%s $HOME '\"\\", "config/filetimes/Web server 50%s $HOME '\"\\"},
        {"gr\xC3\xBC\xC3\x9F\n", "config/filetimes/gr\xC3\xBC\xC3\x9F\n"},
        {"group/web", "config/filetimes/group/web"},
        {"../above", "config/above"},
    };
    for (const auto& [jobName, path] : rows) {
        SCOPED_TRACE(jobName);
        NewCheck(jobName);
        ExpectOneFailure();
        check.reset();
        EXPECT_EQ(directory.Read(path), RecordOf(Noon));

        NewCheck(jobName);
        EXPECT_EQ(check->DoWatch(), ResultHealthy);
    }
}

TEST_F(DogCheckForFileChangeWatchTest, MakesNoDirectoryForTheRecord) {
    std::filesystem::remove(directory.Path(records));
    for (const char* const jobName : {"web", "group/web"}) {
        SCOPED_TRACE(jobName);
        NewCheck(jobName);
        ExpectOneFailure();
        NewCheck(jobName);
        ExpectOneFailure();
        check.reset();
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path("config")));
}

TEST_F(DogCheckForFileChangeWatchTest, ReadsNoRecordForAJobWithoutANameButTriesToSaveOne) {
    NewCheck("");
    opening.observed = true;

    ExpectOneFailure();
    EXPECT_THAT(opening.files, IsEmpty());
    check.reset();

    ASSERT_EQ(opening.files.size(), 1U);
    EXPECT_EQ(opening.files[0].path, RecordPath(""));
    EXPECT_FALSE(opening.files[0].opened);
    EXPECT_TRUE(std::filesystem::is_empty(RecordPath("")));
}

// ---- descriptors

TEST_F(DogCheckForFileChangeWatchTest, OpensTheRecordSoThatNoCommandInheritsIt) {
    WriteRecord(RecordOf(Noon - 1));
    opening.observed = true;

    check->DoWatch();
    check.reset();

    ASSERT_EQ(opening.files.size(), 2U);
    for (const ObservedOpening::File& file : opening.files) {
        EXPECT_EQ(file.path, RecordPath());
        EXPECT_TRUE(file.opened);
        EXPECT_TRUE(file.closesOnExecute);
    }
}

TEST_F(DogCheckForFileChangeWatchTest, LeavesNoDescriptorOpen) {
    const Descriptor before(dup(STDERR_FILENO));
    ASSERT_TRUE(before.IsOpen());
    for (const std::string& record : {std::string("no"), RecordOf(1), RecordOf(NoFileTime)}) {
        SCOPED_TRACE(::testing::PrintToString(record));
        NewCheck();
        WriteRecord(record);

        check->DoWatch();
        check.reset();

        const Descriptor after(dup(STDERR_FILENO));
        EXPECT_EQ(after.Get(), before.Get() + 1);
    }
}

// The time limit of this program would notice an open() or a read() that blocks.

TEST_F(DogCheckForFileChangeWatchTest, DoesNotBlockOnAFifoInTheRecordsPlace) {
    ASSERT_EQ(mkfifo(RecordPath().c_str(), 0666), 0);
    ExpectOneFailure();
    EXPECT_FALSE(HasRecord());  // empty, and so too short

    ASSERT_EQ(mkfifo(RecordPath().c_str(), 0666), 0);
    check.reset();
    EXPECT_TRUE(std::filesystem::is_fifo(RecordPath()));
}

TEST_F(DogCheckForFileChangeWatchTest, DoesNotBlockOnAFifoThatIsOpenAndEmpty) {
    ASSERT_EQ(mkfifo(RecordPath().c_str(), 0666), 0);
    const Descriptor writer(open(RecordPath().c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(writer.IsOpen());

    ExpectOneFailure();

    EXPECT_FALSE(HasRecord());
}

}  // namespace kennly::test
