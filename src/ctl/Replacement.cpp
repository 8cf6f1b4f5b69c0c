#include "ctl/Replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "main/Descriptor.h"

namespace kennly {

namespace {

// A time of access that any reading changes.
constexpr std::time_t NeverRead = 1;

std::string Failure(const std::string& what, const std::string& path) {
    return "cannot " + what + " " + path + ": " + std::strerror(errno);
}

bool WriteAll(int file, const std::string& content) {
    for (std::size_t written = 0; written < content.size();) {
        const ssize_t count = write(file, content.data() + written, content.size() - written);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

std::optional<struct stat> StatusOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

// The path of the file that links lead to, which need not be there. Nothing, with errno set, for
// links that lead nowhere.
std::optional<std::string> FollowLinks(const std::string& path) {
    namespace fs = std::filesystem;
    fs::path followed = path;
    constexpr int mostLinks = 40;  // as the kernel has it
    for (int i = 0; i <= mostLinks; ++i) {
        std::error_code error;
        if (!fs::is_symlink(fs::symlink_status(followed, error))) {
            return followed;
        }
        const fs::path target = fs::read_symlink(followed, error);
        if (error) {
            errno = error.value();
            return std::nullopt;
        }
        followed = followed.parent_path() / target;  // which is all of it if it is absolute
    }
    errno = ELOOP;
    return std::nullopt;
}

bool TakeOverOwnership(int file, const std::optional<struct stat>& live) {
    constexpr mode_t writableByOwner = 0644;
    constexpr mode_t permissions = 07777;
    if (live && fchown(file, live->st_uid, live->st_gid) != 0) {
        return false;
    }
    return fchmod(file, live ? live->st_mode & permissions : writableByOwner) == 0;
}

// After this the name survives a power cut. Some file systems cannot, and need not.
void SyncDirectory(const std::string& directory) {
    const Descriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.IsOpen()) {
        fsync(opened.Number());
    }
}

}  // namespace

std::time_t TimeOfReplacement(std::time_t live, std::time_t now) {
    return now > live ? now : live + 1;
}

std::unique_ptr<Replacement> Replacement::Prepare(const std::string& path,
                                                  const std::string& content,
                                                  std::string& failure) {
    const std::optional<std::string> target = FollowLinks(path);
    if (!target) {
        failure = Failure("follow the link", path);
        return nullptr;
    }
    const std::string draft = *target + ".new." + std::to_string(getpid());
    constexpr mode_t ownersAlone = 0600;
    const Descriptor file(
        open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, ownersAlone));
    if (!file.IsOpen()) {
        failure = Failure("create", draft);
        return nullptr;
    }
    std::unique_ptr<Replacement> replacement(new Replacement(*target, draft));
    if (!TakeOverOwnership(file.Number(), StatusOf(*target))) {
        failure = Failure("give the owner, group and mode of " + *target + " to", draft);
        return nullptr;
    }
    if (!WriteAll(file.Number(), content) || fsync(file.Number()) != 0) {
        failure = Failure("write", draft);
        return nullptr;
    }
    return replacement;
}

Replacement::Replacement(std::string path, std::string draft)
    : path_(std::move(path)), draft_(std::move(draft)) {}

Replacement::~Replacement() {
    unlink(draft_.c_str());  // is not there any more once it has taken its place
}

std::string Replacement::TakePlace() {
    const std::time_t now = std::time(nullptr);
    const std::optional<struct stat> live = StatusOf(path_);
    const std::time_t time = live ? TimeOfReplacement(live->st_mtime, now) : now;
    const std::array<timespec, 2> times = {timespec{NeverRead, 0}, timespec{time, 0}};
    if (utimensat(AT_FDCWD, draft_.c_str(), times.data(), 0) != 0) {
        return Failure("set the time of", draft_);
    }
    const std::optional<struct stat> draft = StatusOf(draft_);
    if (draft) {
        device_ = draft->st_dev;
        inode_ = draft->st_ino;
        time_ = draft->st_mtime;
    }
    if (std::rename(draft_.c_str(), path_.c_str()) != 0) {
        return Failure("replace", path_);
    }
    SyncDirectory(std::filesystem::path(path_).parent_path());
    return "";
}

bool Replacement::IsInPlace() const {
    const std::optional<struct stat> status = StatusOf(path_);
    return status && status->st_dev == device_ && status->st_ino == inode_ &&
           status->st_mtime == time_;
}

bool Replacement::TellsOfReading() const {
    const std::array<timespec, 2> times = {timespec{NeverRead, 0}, timespec{0, UTIME_OMIT}};
    const Descriptor file(open(draft_.c_str(), O_RDONLY | O_CLOEXEC));
    char byte = 0;
    if (!file.IsOpen() || futimens(file.Number(), times.data()) != 0 ||
        read(file.Number(), &byte, 1) != 1) {
        return false;
    }
    const std::optional<struct stat> status = StatusOf(draft_);
    return status && status->st_atime != NeverRead;
}

bool Replacement::WasRead() const {
    const std::optional<struct stat> status = StatusOf(path_);
    return status && status->st_atime != NeverRead;
}

}  // namespace kennly
