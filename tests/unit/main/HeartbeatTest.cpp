#include "main/Heartbeat.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <string>
#include <utility>
#include <vector>

#include "main/ProcessState.h"
#include "support/SandboxDescriptor.h"
#include "support/TemporaryDirectory.h"

namespace {

// How a file was opened while `observed` is set.
struct Opened {
    std::string path;
    bool closesOnExecute;
};
struct Opening {
    bool observed = false;
    std::string redirectedTo;  // opened instead of the path asked for, unless empty
    std::vector<Opened> files;
} opening;

// Goes through whichever function the build makes of "open".
template <typename Open>
int Observe(Open open, const char* path) {
    if (!opening.observed) {
        return open(path);
    }
    const int file = open(opening.redirectedTo.empty() ? path : opening.redirectedTo.c_str());
    opening.files.push_back({path, (fcntl(file, F_GETFD) & FD_CLOEXEC) != 0});
    return file;
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...);

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Observe([=](const char* chosen) { return __real_open(chosen, flags, mode); }, path);
}

int __wrap_open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Observe([=](const char* chosen) { return __real_open64(chosen, flags, mode); }, path);
}
}

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
    const std::array<timespec, 2> longAgo = {timespec{1000, 0}, timespec{1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), longAgo.data(), 0), 0);
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

TEST_F(HeartbeatTest, WritesTheFileOfItsOwnTree) {
    const std::vector<std::pair<bool, std::string>> rows = {
        {false, "/opt/qrv/data/kennly/heartbeats/child"},
        {true, "/opt/qrv/data/kennly/heartbeats/watcherchild"},
    };
    for (const auto& [ofWatcher, path] : rows) {
        SCOPED_TRACE(path);
        opening = {true, directory_.Path("redirected"), {}};
        directory_.Write("redirected", "");
        watcherMode = ofWatcher;

        WriteChildHeartbeat();

        ASSERT_THAT(opening.files, SizeIs(1));
        EXPECT_EQ(opening.files[0].path, path);
        EXPECT_EQ(directory_.Read("redirected"), " ");
    }
}

}  // namespace kennly::test
