#include "support/SandboxNamespaces.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>
#include <vector>

#include "support/SandboxFork.h"

namespace kennly::test {
namespace {

constexpr const char* DataDirectory = "/opt/qrv/data/kennly";
constexpr const char* DeviceDirectory = "/dev";
constexpr const char* CoverOptions = "mode=0755,size=32m";  // small enough to be filled

/// An entry of a covered directory that is to be visible in the cover.
struct Entry {
    std::string name;
    std::string path;        // absolute
    mode_t type = 0;         // S_IFDIR, S_IFLNK, or anything else for a file
    std::string linkTarget;  // of a symbolic link
};

/// A directory to be covered, what shows through, and the directories to be made in the cover.
struct Cover {
    std::string directory;
    std::vector<Entry> entries;
    std::vector<std::string> newDirectories;  // parents first
};

/// All that the keeper needs, made ready before the fork: after it, nothing may allocate.
struct Plan {
    std::vector<Cover> covers;
    std::string userMap;
    std::string groupMap;
    sockaddr_un logAddress = {};
    int logSocket = -1;
    int nullDevice = -1;
    int report = -1;
    int lifeline = -1;
    int deaths = -1;
    std::vector<int> kept;
    std::vector<int> keptByFirst;
};

/// What the keeper tells of its work, in one record.
struct Report {
    pid_t firstProcess;
    int userNamespace;
    int error;  // 0: all is well
    char step[48];
    char subject[256];
};

// ---- before the fork

bool IsDirectory(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool Examine(const std::string& directory, const std::string& name, Entry& entry) {
    entry.name = name;
    entry.path = directory + "/" + name;
    struct stat status = {};
    if (lstat(entry.path.c_str(), &status) != 0) {
        return false;  // gone since it was listed
    }
    entry.type = status.st_mode & S_IFMT;
    if (entry.type == S_IFLNK) {
        char target[PATH_MAX];
        const ssize_t length = readlink(entry.path.c_str(), target, sizeof target);
        if (length < 0) {
            return false;
        }
        entry.linkTarget.assign(target, static_cast<std::size_t>(length));
    }
    return true;
}

std::vector<std::string> NamesIn(const std::string& directory) {
    std::vector<std::string> names;
    DIR* const stream = opendir(directory.c_str());
    if (stream == nullptr) {
        return names;
    }
    while (const dirent* const found = readdir(stream)) {
        const std::string name = found->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    closedir(stream);
    return names;
}

Cover CoverOf(const std::string& directory, const std::vector<std::string>& visibleNames) {
    Cover cover;
    cover.directory = directory;
    for (const std::string& name : visibleNames) {
        Entry entry;
        if (Examine(directory, name, entry)) {
            cover.entries.push_back(std::move(entry));
        }
    }
    return cover;
}

Cover CoverForData() {
    const std::string data = DataDirectory;
    std::string existing = data;
    while (!existing.empty() && !IsDirectory(existing)) {
        existing.erase(existing.rfind('/'));
    }
    // Where the data directory itself exists it is covered whole: its files are the machine's.
    Cover cover = existing == data ? CoverOf(data, {}) : CoverOf(existing, NamesIn(existing));
    for (std::size_t end = existing.size(); end < data.size();) {
        end = std::min(data.find('/', end + 1), data.size());
        cover.newDirectories.push_back(data.substr(0, end));
    }
    for (const char* const name : {"/config", "/config/filetimes", "/heartbeats"}) {
        cover.newDirectories.push_back(data + name);
    }
    return cover;
}

bool MakePlan(int logSocket, Plan& plan, std::string& error) {
    plan.covers.push_back(CoverForData());
    if (plan.covers.back().directory.empty()) {
        error = "no directory above " + std::string(DataDirectory) + " exists but the root";
        return false;
    }
    plan.covers.push_back(
        CoverOf(DeviceDirectory, {"null", "zero", "full", "random", "urandom", "tty", "pts", "shm",
                                  "fd", "stdin", "stdout", "stderr"}));
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    plan.userMap = user + " " + user + " 1";
    plan.groupMap = group + " " + group + " 1";
    plan.logAddress.sun_family = AF_UNIX;
    std::strncpy(plan.logAddress.sun_path, LogSocketPath, sizeof plan.logAddress.sun_path - 1);
    plan.logSocket = logSocket;
    return true;
}

/// The descriptors between us and the keeper.
struct Channels {
    Descriptor reportRead;
    Descriptor reportWrite;
    Descriptor lifelineOurs;
    Descriptor lifelineKeepers;
    Descriptor deaths;
    Descriptor nullDevice;
};

bool OpenChannels(Channels& channels) {
    int ends[2];
    // Sockets and not a pipe: writing to one whose keeper is gone can be done without a SIGPIPE.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return false;
    }
    channels.lifelineOurs = Descriptor(ends[0]);
    channels.lifelineKeepers = Descriptor(ends[1]);
    channels.nullDevice = Descriptor(open("/dev/null", O_RDWR | O_CLOEXEC));
    channels.deaths = Descriptor(memfd_create("sandbox-deaths", MFD_CLOEXEC));
    return channels.nullDevice.IsOpen() && channels.deaths.IsOpen() &&
           MakePipe(channels.reportRead, channels.reportWrite);
}

void UseChannels(const Channels& channels, Plan& plan) {
    plan.report = channels.reportWrite.Get();
    plan.lifeline = channels.lifelineKeepers.Get();
    plan.nullDevice = channels.nullDevice.Get();
    plan.deaths = channels.deaths.Get();
    plan.kept = {plan.logSocket, plan.report, plan.lifeline, plan.nullDevice, plan.deaths};
    std::sort(plan.kept.begin(), plan.kept.end());
    plan.keptByFirst = {plan.deaths};
}

// ---- in the keeper: only calls that are safe in a signal handler

[[noreturn]] void Refuse(const Plan& plan, const char* step, const char* subject) {
    Report report = {};
    report.error = errno;
    std::strncpy(report.step, step, sizeof report.step - 1);
    std::strncpy(report.subject, subject, sizeof report.subject - 1);
    WriteRecord(plan.report, &report, sizeof report);
    _exit(1);
}

void WriteMap(const Plan& plan, const char* file, const char* text) {
    const int descriptor = open(file, O_WRONLY | O_CLOEXEC);
    if (descriptor < 0 || !WriteRecord(descriptor, text, std::strlen(text))) {
        Refuse(plan, "cannot write", file);
    }
    close(descriptor);
}

/// Returns whether it took a user namespace.
bool EnterNamespaces(const Plan& plan) {
    constexpr int Wanted = CLONE_NEWNS | CLONE_NEWPID;
    if (unshare(Wanted) == 0) {
        return false;
    }
    if (unshare(Wanted | CLONE_NEWUSER) != 0) {
        Refuse(plan, "cannot make namespaces", "as this user; the kernel refuses");
    }
    WriteMap(plan, "/proc/self/setgroups", "deny");
    WriteMap(plan, "/proc/self/uid_map", plan.userMap.c_str());
    WriteMap(plan, "/proc/self/gid_map", plan.groupMap.c_str());
    return true;
}

/// Makes what the entry is bound to, or the link itself.
bool MakePlace(const Entry& entry) {
    if (entry.type == S_IFLNK) {
        return symlink(entry.linkTarget.c_str(), entry.path.c_str()) == 0;
    }
    if (entry.type == S_IFDIR) {
        return mkdir(entry.path.c_str(), 0755) == 0;
    }
    const int descriptor = open(entry.path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    return descriptor >= 0 && close(descriptor) == 0;
}

void ShowThrough(const Plan& plan, const Entry& entry) {
    if (!MakePlace(entry)) {
        Refuse(plan, "cannot make", entry.path.c_str());
    }
    if (entry.type == S_IFLNK) {
        return;
    }
    // The name alone still means the covered directory, where this process stands.
    if (mount(entry.name.c_str(), entry.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 &&
        errno != ENOENT) {
        Refuse(plan, "cannot bind", entry.path.c_str());
    }
}

void PutCover(const Plan& plan, const Cover& cover) {
    const char* const directory = cover.directory.c_str();
    if (chdir(directory) != 0) {
        Refuse(plan, "cannot enter", directory);
    }
    if (mount("tmpfs", directory, "tmpfs", MS_NOSUID | MS_NODEV, CoverOptions) != 0) {
        Refuse(plan, "cannot cover", directory);
    }
    for (const Entry& entry : cover.entries) {
        ShowThrough(plan, entry);
    }
    for (const std::string& made : cover.newDirectories) {
        if (mkdir(made.c_str(), 0755) != 0 && errno != EEXIST) {
            Refuse(plan, "cannot make", made.c_str());
        }
    }
}

void BindLogSocket(const Plan& plan) {
    const auto* const address = reinterpret_cast<const sockaddr*>(&plan.logAddress);
    if (bind(plan.logSocket, address, sizeof plan.logAddress) != 0 ||
        chmod(LogSocketPath, 0666) != 0) {
        Refuse(plan, "cannot bind the log socket to", LogSocketPath);
    }
}

/// Reaps whatever ends without a parent. All signals are blocked: none can get lost.
[[noreturn]] void ReapForEver(int deaths) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGCHLD);
    for (;;) {
        Death death = {};
        while ((death.number = waitpid(-1, &death.status, WNOHANG)) > 0) {
            WriteRecord(deaths, &death, sizeof death);
        }
        int any = 0;
        sigwait(&ends, &any);
    }
}

[[noreturn]] void BeFirstProcess(const Plan& plan) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, "sandbox-first");
    // Refused in a user namespace that sees only parts of the old one: then the old one must do.
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    signal(SIGCHLD, SIG_DFL);  // were it ignored, the kernel would reap and tell nobody
    KeepOnly(plan.keptByFirst, plan.nullDevice);  // the keeper waits for its pipe to close
    ReapForEver(plan.deaths);
}

pid_t StartFirstProcess(const Plan& plan) {
    Descriptor readyRead;
    Descriptor readyWrite;
    if (!MakePipe(readyRead, readyWrite)) {
        Refuse(plan, "cannot make", "a pipe");
    }
    const pid_t first = fork();
    if (first == 0) {
        BeFirstProcess(plan);
    }
    if (first < 0) {
        Refuse(plan, "cannot start", "the first process");
    }
    readyWrite.Close();
    char nothing = 0;
    ReadRecord(readyRead.Get(), &nothing, 1);
    return first;
}

[[noreturn]] void BeKeeper(const Plan& plan) {
    KeepOnly(plan.kept, plan.nullDevice);
    prctl(PR_SET_NAME, "sandbox-keeper");
    prctl(PR_SET_DUMPABLE, 1);  // else a process that changed its user may not write its own maps
    umask(0);
    const bool userNamespace = EnterNamespaces(plan);
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        Refuse(plan, "cannot make private", "the mounts");
    }
    for (const Cover& cover : plan.covers) {
        PutCover(plan, cover);
    }
    if (chdir("/") != 0) {
        Refuse(plan, "cannot enter", "/");
    }
    BindLogSocket(plan);
    close(plan.logSocket);
    Report report = {};
    report.userNamespace = userNamespace ? 1 : 0;
    report.firstProcess = StartFirstProcess(plan);
    WriteRecord(plan.report, &report, sizeof report);
    close(plan.report);
    char nothing = 0;
    ReadRecord(plan.lifeline, &nothing, 1);
    kill(report.firstProcess, SIGKILL);
    WaitForChild(report.firstProcess);
    _exit(0);
}

// ---- after the fork

Descriptor OpenNamespace(pid_t process, const char* name) {
    const std::string path = "/proc/" + std::to_string(process) + "/ns/" + name;
    return Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

}  // namespace

std::unique_ptr<SandboxNamespaces> SandboxNamespaces::Create(int logSocket, std::string& error) {
    Plan plan;
    if (!MakePlan(logSocket, plan, error)) {
        return nullptr;
    }
    Channels channels;
    if (!OpenChannels(channels)) {
        error = std::string("cannot prepare a sandbox: ") + std::strerror(errno);
        return nullptr;
    }
    UseChannels(channels, plan);
    const pid_t keeper = ForkWithSignalsBlocked();
    if (keeper == 0) {
        BeKeeper(plan);
    }
    if (keeper < 0) {
        error = std::string("cannot fork: ") + std::strerror(errno);
        return nullptr;
    }
    channels.reportWrite.Close();
    std::unique_ptr<SandboxNamespaces> made(new SandboxNamespaces(
        keeper, std::move(channels.lifelineOurs), std::move(channels.deaths)));
    return made->AwaitSetup(channels.reportRead.Get(), error) ? std::move(made) : nullptr;
}

SandboxNamespaces::SandboxNamespaces(pid_t keeper, Descriptor lifeline, Descriptor deaths)
    : keeper_(keeper), lifeline_(std::move(lifeline)), deaths_(std::move(deaths)) {}

SandboxNamespaces::~SandboxNamespaces() {
    // Speak before closing: another process forked from ours may hold our end open.
    send(lifeline_.Get(), "", 1, MSG_NOSIGNAL);
    lifeline_.Close();
    WaitForChild(keeper_);
}

std::vector<Death> SandboxNamespaces::Deaths() const {
    std::vector<Death> deaths;
    Death death = {};
    // Each at its own place: the position in the file is shared with the writer.
    while (pread(deaths_.Get(), &death, sizeof death,
                 static_cast<off_t>(deaths.size() * sizeof death)) == sizeof death) {
        deaths.push_back(death);
    }
    return deaths;
}

bool SandboxNamespaces::AwaitSetup(int report, std::string& error) {
    Report told = {};
    if (!ReadRecord(report, &told, sizeof told)) {
        error = "cannot make a sandbox: its keeper ended early";
        return false;
    }
    if (told.error != 0) {
        error = "cannot make a sandbox: " + std::string(told.step) + " " + told.subject + ": " +
                std::strerror(told.error);
        return false;
    }
    firstProcess_ = told.firstProcess;
    return OpenNamespaces(told.userNamespace != 0, error);
}

bool SandboxNamespaces::OpenNamespaces(bool withUserNamespace, std::string& error) {
    mountNamespace_ = OpenNamespace(firstProcess_, "mnt");
    processNamespace_ = OpenNamespace(firstProcess_, "pid");
    if (withUserNamespace) {
        userNamespace_ = OpenNamespace(firstProcess_, "user");
    }
    const std::string root = "/proc/" + std::to_string(firstProcess_) + "/root";
    rootDirectory_ = Descriptor(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!mountNamespace_.IsOpen() || !processNamespace_.IsOpen() || !rootDirectory_.IsOpen() ||
        withUserNamespace != userNamespace_.IsOpen()) {
        error = std::string("cannot reach the sandbox's namespaces: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace kennly::test
