#include "main/Heartbeat.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "main/ProcessState.h"
#include "support/ObservedOpening.h"
#include "support/SandboxDescriptor.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

using ::testing::IsEmpty;
using ::testing::SizeIs;

class HeartbeatTest : public ::testing::Test {
protected:
    HeartbeatTest() : maskBefore_(umask(022)) {
        opening = {};
        watcherMode = false;
    }

    ~HeartbeatTest() override {
        opening = {};
        watcherMode = false;
        umask(maskBefore_);
    }

    void Write(const std::string& path) { WriteHeartbeat(path.c_str()); }

    const mode_t maskBefore_;
    const TemporaryDirectory directory_;
};

mode_t Permissions(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(HeartbeatTest, CreatesAFileOfOneBlank) {
    Write(directory_.Path("child"));

    EXPECT_EQ(directory_.Read("child"), " ");
}

TEST_F(HeartbeatTest, LeavesThePermissionsToTheMask) {
    const std::vector<std::pair<mode_t, mode_t>> rows = {{0, 0666}, {022, 0644}, {077, 0600}};
    for (const auto& [mask, permissions] : rows) {
        SCOPED_TRACE(mask);
        umask(mask);
        const std::string path = directory_.Path(std::to_string(mask));

        Write(path);

        EXPECT_EQ(Permissions(path), permissions);
    }
}

TEST_F(HeartbeatTest, KeepsThePermissionsOfAFileThatExists) {
    const std::string path = directory_.Write("child", "");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);

    Write(path);

    EXPECT_EQ(Permissions(path), 0640U);
}

TEST_F(HeartbeatTest, KeepsLongerContentButItsFirstByte) {
    const std::string path = directory_.Write("child", "alive since Monday\n");

    Write(path);
    Write(path);

    EXPECT_EQ(directory_.Read("child"), " live since Monday\n");
}

TEST_F(HeartbeatTest, RefreshesTheModificationTime) {
    const std::string path = directory_.Write("child", " ");
    ASSERT_TRUE(directory_.SetTime("child", 1000));
    const time_t before = time(nullptr);

    Write(path);

    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_GE(status.st_mtime, before - 1);  // a file system's clock may lag by a tick
}

TEST_F(HeartbeatTest, CreatesNoDirectory) {
    Write(directory_.Path("heartbeats/child"));

    EXPECT_NE(access(directory_.Path("heartbeats").c_str(), F_OK), 0);
}

TEST_F(HeartbeatTest, GoesOnWhenTheFileCannotBeWritten) {
    Write(directory_.Path(""));  // a directory
    Write("/dev/full");          // takes no byte
    Write(directory_.Path("child"));

    EXPECT_EQ(directory_.Read("child"), " ");
}

TEST_F(HeartbeatTest, LeavesNoDescriptorOpen) {
    const Descriptor before(dup(STDERR_FILENO));
    ASSERT_TRUE(before.IsOpen());

    Write(directory_.Path("child"));

    const Descriptor after(dup(STDERR_FILENO));
    EXPECT_EQ(after.Get(), before.Get() + 1);
}

TEST_F(HeartbeatTest, DoesNotBlockOnAFifoThatNobodyReads) {
    const std::string path = directory_.Path("child");
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);

    Write(path);  // the time limit of this program would notice

    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(HeartbeatTest, DoesNotBlockOnAFifoThatIsFull) {
    const std::string path = directory_.Path("child");
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    const Descriptor reader(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const int room = fcntl(reader.Get(), F_GETPIPE_SZ);
    ASSERT_GT(room, 0);

    for (int written = 0; written <= room; ++written) {
        Write(path);
    }

    std::string content(static_cast<std::size_t>(room) + 1, '\0');
    EXPECT_GT(read(reader.Get(), content.data(), content.size()), 0);
    EXPECT_EQ(content.front(), ' ');
}

TEST_F(HeartbeatTest, OpensTheFileSoThatNoCommandInheritsIt) {
    opening.observed = true;

    Write(directory_.Path("child"));

    ASSERT_THAT(opening.files, SizeIs(1));
    EXPECT_TRUE(opening.files[0].closesOnExecute);
}

TEST_F(HeartbeatTest, DoesNotTakeATerminalInItsPlaceForItsOwn) {
    opening.observed = true;

    Write(directory_.Path("child"));

    ASSERT_THAT(opening.files, SizeIs(1));
    EXPECT_NE(opening.files[0].flags & O_NOCTTY, 0);
}

TEST_F(HeartbeatTest, WritesTheFileOfTheRoleInItsOwnTree) {
    struct Row {
        void (*write)();
        bool ofWatcher;
        const char* path;
    };
    const std::vector<Row> rows = {
        {WriteParentHeartbeat, false, "/opt/qrv/data/kennly/heartbeats/parent"},
        {WriteParentHeartbeat, true, "/opt/qrv/data/kennly/heartbeats/watcherparent"},
        {WriteChildHeartbeat, false, "/opt/qrv/data/kennly/heartbeats/child"},
        {WriteChildHeartbeat, true, "/opt/qrv/data/kennly/heartbeats/watcherchild"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        opening = {true, directory_.Path("redirected"), {}};
        directory_.Write("redirected", "");
        watcherMode = row.ofWatcher;

        row.write();

        ASSERT_THAT(opening.files, SizeIs(1));
        EXPECT_EQ(opening.files[0].path, row.path);
        EXPECT_EQ(directory_.Read("redirected"), " ");
    }
}

}  // namespace kennly::test
