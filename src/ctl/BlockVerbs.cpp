#include "ctl/BlockVerbs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>
#include <vector>

#include "ctl/ExitStatus.h"
#include "ctl/FindJob.h"
#include "ctl/Time.h"
#include "lint/FileContent.h"
#include "main/Descriptor.h"
#include "status/JobState.h"

namespace kennly {

namespace {

// What a file begins with that this program has made.
constexpr const char* Mark = "blocked by kennlyctl";

BlockFiles InForceFor(const FoundJob& found) {
    return LookAtBlockFiles(*found.job->remedy, found.startDirectory);
}

struct Maker {
    std::optional<bool> isOurs;  // nothing when the file cannot be read
    std::string about;           // what there is to tell of it, on one line
};

Maker MakerOf(const std::string& path) {
    struct stat status = {};
    const bool isOther = lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
    const std::optional<std::string> content = isOther ? "" : ReadFile(path);
    if (!content) {
        return {std::nullopt, "unknown by whom, as this user cannot read it"};
    }
    if (content->compare(0, std::strlen(Mark), Mark) != 0) {
        return {false, "made by somebody else"};
    }
    return {true, content->substr(0, content->find('\n'))};
}

// Its block files whose places are known, in their order.
std::vector<std::string> PathsOf(const FoundJob& found) {
    std::vector<std::string> paths;
    for (const std::string& file : BlockFilesOf(*found.job->remedy)) {
        if (const auto path = WholePath(file, found.startDirectory)) {
            paths.push_back(*path);
        }
    }
    return paths;
}

using Jobs = std::vector<FoundJob>;

// Those of `all` but the one that the file at `path` blocks as well.
Jobs OthersBlockedBy(const std::string& path, const FoundJob& blocked, const Jobs& all) {
    Jobs others;
    for (const FoundJob& other : all) {
        const bool isSame =
            other.job->name == blocked.job->name && other.isWatcher == blocked.isWatcher;
        const std::vector<std::string> paths = PathsOf(other);
        if (!isSame && std::find(paths.begin(), paths.end(), path) != paths.end()) {
            others.push_back(other);
        }
    }
    return others;
}

// `what` it does, or did, to them.
void TellWhoElse(const std::string& path, const FoundJob& blocked, const Jobs& all,
                 const char* what, const Output& output) {
    for (const FoundJob& other : OthersBlockedBy(path, blocked, all)) {
        output.out << "it " << what << " job " << Printable(other.job->name)
                   << (other.isWatcher ? " of the watcher tree" : "") << " as well\n";
    }
}

void TellUnknown(const std::string& path, const Output& output) {
    output.err << "kennlyctl: whether there is a file " << Printable(path)
               << (path.front() == '/'
                       ? " is not known, as this user may not look there\n"
                       : " is not known, as it counts from the directory of a daemon that does "
                         "not run, or is another user's\n");
}

// The first of its block files that is no other job's, else the first of those whose places are
// known.
std::optional<std::string> PathToBlock(const FoundJob& found, const Jobs& all,
                                       const Output& output) {
    const std::vector<std::string> paths = PathsOf(found);
    if (paths.empty()) {
        TellUnknown(BlockFilesOf(*found.job->remedy).front(), output);
        return std::nullopt;
    }
    const auto own = std::find_if(paths.begin(), paths.end(), [&](const std::string& path) {
        return OthersBlockedBy(path, found, all).empty();
    });
    return own != paths.end() ? *own : paths.front();
}

bool MakeBlockFile(const std::string& path, const std::string& reason) {
    constexpr mode_t writableByOwner = 0644;
    const Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, writableByOwner));
    if (!file.IsOpen()) {
        return false;
    }
    const std::string content = std::string(Mark) + ", " + Moment(std::time(nullptr)) +
                                (reason.empty() ? "" : ": " + reason) + "\n";
    const ssize_t written = write(file.Number(), content.data(), content.size());
    if (written == static_cast<ssize_t>(content.size())) {
        return true;
    }
    const int error = written < 0 ? errno : ENOSPC;
    unlink(path.c_str());
    errno = error;
    return false;
}

bool Unblock(const std::string& path, bool force, const Output& output) {
    const Maker maker = MakerOf(path);
    if (!force && !maker.isOurs) {
        output.err << "kennlyctl: who has made " << Printable(path)
                   << " is not known, as this user cannot read it\n";
        return false;
    }
    if (!force && !*maker.isOurs) {
        output.err
            << "kennlyctl: " << Printable(path)
            << " has been made by somebody else: remove it with --force if you know what for\n";
        return false;
    }
    if (unlink(path.c_str()) != 0) {
        output.err << "kennlyctl: cannot remove " << Printable(path) << ": " << std::strerror(errno)
                   << "\n";
        return false;
    }
    output.out << "removed " << Printable(path) << "\n";
    return true;
}

void ListBlock(const FoundJob& found, const std::string& file, const std::string& about,
               const Output& output) {
    output.out << Printable(found.job->name) << (found.isWatcher ? " (watcher tree)" : "") << ": "
               << Printable(file) << ", " << Printable(about) << "\n";
}

}  // namespace

int RunBlockVerb(const BlockOptions& options, const Output& output) {
    const FoundJob found = FindJobOrTell(options.job, options.watcher, output);
    if (!found.job) {
        return ExitNoInput;
    }
    const std::vector<std::string> inForce = InForceFor(found).inForce;
    if (!inForce.empty()) {
        output.out << "blocked already, by " << Printable(inForce.front()) << "\n";
        return ExitClean;
    }
    if (BlockFilesOf(*found.job->remedy).empty()) {
        output.err << "kennlyctl: the remedy of job " << Printable(found.job->name)
                   << " has no block file: give it one, blockaction=\"/run/kennly-"
                   << Printable(found.job->name) << ".block\"\n";
        return ExitFindings;
    }
    const Jobs all = FindLiveJobs(false).jobs;
    const std::optional<std::string> path = PathToBlock(found, all, output);
    if (!path) {
        return ExitUnavailable;
    }
    if (!MakeBlockFile(*path, options.reason)) {
        output.err << "kennlyctl: cannot create " << Printable(*path) << ": "
                   << std::strerror(errno) << "\n";
        return ExitCannotCreate;
    }
    output.out << "blocked by " << Printable(*path)
               << ", until kennlyctl unblock; the check goes on\n";
    TellWhoElse(*path, found, all, "blocks", output);
    return ExitClean;
}

int RunUnblockVerb(const BlockOptions& options, const Output& output) {
    const FoundJob found = FindJobOrTell(options.job, options.watcher, output);
    if (!found.job) {
        return ExitNoInput;
    }
    const BlockFiles files = InForceFor(found);
    if (files.inForce.empty() && files.unknown.empty()) {
        output.out << "nothing blocks it\n";
        return ExitClean;
    }
    const Jobs all = FindLiveJobs(false).jobs;
    int status = ExitClean;
    for (const std::string& file : files.inForce) {
        if (Unblock(file, options.force, output)) {
            TellWhoElse(file, found, all, "blocked", output);
        } else {
            status = ExitFindings;
        }
    }
    for (const std::string& file : files.unknown) {
        TellUnknown(file, output);
        status = ExitFindings;
    }
    return status;
}

int RunBlocksVerb(bool watcher, const Output& output) {
    const LiveJobs live = FindLiveJobs(watcher);
    for (const FoundJob& found : live.jobs) {
        const BlockFiles files = InForceFor(found);
        for (const std::string& file : files.inForce) {
            ListBlock(found, file, MakerOf(file).about, output);
        }
        for (const std::string& file : files.unknown) {
            ListBlock(found, file, "unknown whether it is there", output);
        }
    }
    for (const std::string& reason : live.unknown) {
        output.err << "kennlyctl: " << Printable(reason) << "\n";
    }
    return live.status;
}

}  // namespace kennly
