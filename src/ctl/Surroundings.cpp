#include "ctl/Surroundings.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <thread>

#include "main/Descriptor.h"
#include "main/Signals.h"
#include "status/DaemonProcesses.h"
#include "status/ProcFile.h"

namespace kennly {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void NoteInterrupt(int /*signal*/) {
    interrupted = 1;
}

// While it lives, the signals that interrupt are held, and noted only where somebody waits for
// them.
class HeldInterrupts {
public:
    HeldInterrupts() {
        interrupted = 0;
        sigset_t held;
        sigemptyset(&held);
        for (std::size_t i = 0; i < signals_.size(); ++i) {
            sigaction(signals_[i], nullptr, &old_[i]);
            if (old_[i].sa_handler != SIG_IGN) {  // as under nohup
                struct sigaction action = {};
                action.sa_handler = NoteInterrupt;
                sigaction(signals_[i], &action, nullptr);
                sigaddset(&held, signals_[i]);
            }
        }
        sigprocmask(SIG_BLOCK, &held, &oldMask_);
    }
    ~HeldInterrupts() {
        for (std::size_t i = 0; i < signals_.size(); ++i) {
            sigaction(signals_[i], &old_[i], nullptr);
        }
        sigprocmask(SIG_SETMASK, &oldMask_, nullptr);
    }
    HeldInterrupts(const HeldInterrupts&) = delete;
    HeldInterrupts& operator=(const HeldInterrupts&) = delete;

    // Waits until there is something to read. Returns false when an interrupt came first.
    bool AwaitInput(int descriptor) const {
        pollfd waiting = {descriptor, POLLIN, 0};
        while (interrupted == 0) {
            if (ppoll(&waiting, 1, nullptr, &oldMask_) > 0) {
                return true;
            }
        }
        return false;
    }

private:
    static constexpr std::array<int, 4> signals_ = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
    std::array<struct sigaction, signals_.size()> old_ = {};
    sigset_t oldMask_ = {};
};

// ---- what the daemon has

template <class T>
std::vector<T> NumbersIn(const std::string& text) {
    std::istringstream words(text);
    std::vector<T> numbers;
    for (T number = 0; words >> number;) {
        numbers.push_back(number);
    }
    return numbers;
}

mode_t MaskOf(pid_t process) {
    constexpr int octal = 8;
    return static_cast<mode_t>(
        std::strtoul(ReadProcStatus(process, "Umask").c_str(), nullptr, octal));
}

// Nothing when it has ended meanwhile.
std::optional<Inheritance> InheritanceOf(const DaemonProcess& process) {
    constexpr int hexadecimal = 16;
    constexpr std::size_t effective = 1;  // of the real one, this, the saved one, that of files
    const auto users = NumbersIn<uid_t>(ReadProcStatus(process.number, "Uid"));
    const auto groups = NumbersIn<gid_t>(ReadProcStatus(process.number, "Gid"));
    if (users.size() <= effective || groups.size() <= effective) {
        return std::nullopt;
    }
    Inheritance found;
    found.inForeground = process.role == DaemonProcess::Role::Foreground;
    found.ignoredSignals =
        std::strtoull(ReadProcStatus(process.number, "SigIgn").c_str(), nullptr, hexadecimal);
    for (int i = 0; i < RLIM_NLIMITS; ++i) {
        rlimit limit = {};
        if (prlimit(process.number, static_cast<__rlimit_resource>(i), nullptr, &limit) == 0) {
            found.limits[static_cast<std::size_t>(i)] = limit;
        }
    }
    found.niceness = getpriority(PRIO_PROCESS, static_cast<id_t>(process.number));
    found.user = users[effective];
    found.group = groups[effective];
    found.groups = NumbersIn<gid_t>(ReadProcStatus(process.number, "Groups"));
    return found;
}

mode_t OwnMask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

struct Answer {
    int waitStatus;
    int error;
};

// ---- in the process that becomes the command's parent

// As a daemon of that kind arranges them, whatever its starter had ignored; only that its own
// shells ignore, for as long as they run, two signals that it does not.
void IgnoreSignalsOf(const Inheritance& daemon) {
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        const bool isIgnored = (daemon.ignoredSignals >> (signal - 1) & 1) != 0;
        std::signal(signal, isIgnored ? SIG_IGN : SIG_DFL);  // refused for a few
    }
    if (daemon.inForeground) {
        InstallForegroundSignals();
    } else {
        InstallChildSignals();
    }
}

// What needs privileges comes before they are given up.
bool Inherit(const Inheritance& daemon) {
    for (int i = 0; i < RLIM_NLIMITS; ++i) {
        const auto& limit = daemon.limits[static_cast<std::size_t>(i)];
        if (limit && setrlimit(static_cast<__rlimit_resource>(i), &*limit) != 0) {
            return false;
        }
    }
    if (setpriority(PRIO_PROCESS, 0, daemon.niceness) != 0) {
        return false;
    }
    if (daemon.user == geteuid() && daemon.group == getegid()) {
        return true;
    }
    return setgroups(daemon.groups.size(), daemon.groups.data()) == 0 &&
           setresgid(daemon.group, daemon.group, daemon.group) == 0 &&
           setresuid(daemon.user, daemon.user, daemon.user) == 0;
}

// The daemon's commands start where it did, even if that directory has been removed: only the link
// of its process leads there still.
void EnterDirectoryOf(const Surroundings& surroundings) {
    const std::string link = "/proc/" + std::to_string(surroundings.daemon) + "/cwd";
    const bool isThere = surroundings.daemon != 0 && chdir(link.c_str()) == 0;
    if (!isThere && chdir(surroundings.directory.c_str()) != 0) {
        errno = 0;  // the daemon has ended meanwhile as well
    }
}

// Returns false, with errno, when they cannot be had.
bool Enter(const Surroundings& surroundings) {
    setsid();
    EnterDirectoryOf(surroundings);
    if (surroundings.inheritance) {
        IgnoreSignalsOf(*surroundings.inheritance);
        if (!Inherit(*surroundings.inheritance)) {
            return false;
        }
    } else {
        InstallChildSignals();
    }
    ReleaseSignals();
    clearenv();
    for (const std::string& variable : surroundings.environment) {
        const std::size_t equals = variable.find('=');
        if (equals != std::string::npos) {
            setenv(variable.substr(0, equals).c_str(), variable.c_str() + equals + 1, 1);
        }
    }
    umask(surroundings.mask);
    return true;
}

// All but the one, which no command inherits.
void CloseAllBut(int kept) {
    close_range(0, static_cast<unsigned>(kept) - 1, 0);
    close_range(static_cast<unsigned>(kept) + 1, ~0U, 0);
}

// A copy of the descriptor that no command will want for itself, if so many may be open.
int FarFromTheStandardOnes(int descriptor) {
    constexpr int farAway = 100;
    constexpr int nextToThem = 3;
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, farAway);
    return copy >= 0 || errno != EINVAL ? copy : fcntl(descriptor, F_DUPFD_CLOEXEC, nextToThem);
}

[[noreturn]] void RunShellAndAnswer(const std::string& commandLine,
                                    const Surroundings& surroundings, int answerTo) {
    CloseAllBut(answerTo);
    Answer answer = {-1, 0};
    if (Enter(surroundings)) {
        answer.waitStatus = std::system(commandLine.c_str());
    }
    answer.error = errno;
    const bool told = write(answerTo, &answer, sizeof(answer)) == sizeof(answer);
    _exit(told ? 0 : 1);
}

// ---- the end

// Kills the runner and all of its session: parts of it may have process groups of their own, as
// what timeout(1) starts. The runner is not waited for here, as its number is the session's.
void KillSession(pid_t runner) {
    constexpr std::chrono::seconds longestKill(5);  // what waits for a device cannot be killed
    const auto end = std::chrono::steady_clock::now() + longestKill;
    kill(runner, SIGKILL);
    for (bool any = true; any && std::chrono::steady_clock::now() < end;) {
        any = false;
        for (const pid_t process : AllProcesses()) {
            const auto stat = ReadProcStat(process);
            if (stat && stat->session == runner && stat->state != 'Z') {
                any = true;
                kill(process, SIGKILL);
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(any ? 10 : 0));
    }
}

}  // namespace

Surroundings FindSurroundings(bool watcher) {
    Surroundings found;
    for (const DaemonProcess& process : FindDaemonProcesses()) {
        if (!process.RunsJobs(watcher)) {
            continue;
        }
        const auto environment = ReadProcTexts(process.number, "environ");
        const auto directory = ReadProcLink(process.number, "cwd");
        const auto inheritance = InheritanceOf(process);
        if (environment && directory && inheritance) {
            found.daemon = process.number;
            found.inheritance = inheritance;
            found.environment = *environment;
            found.directory = *directory;
            found.mask = MaskOf(process.number);
            return found;
        }
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        found.environment.emplace_back(*variable);
    }
    found.directory = ".";
    found.mask = OwnMask();
    return found;
}

ShellEnd RunInShell(const std::string& commandLine, const Surroundings& surroundings) {
    using Clock = std::chrono::steady_clock;
    ShellEnd end;
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        end.error = errno;
        return end;
    }
    const Descriptor reading(ends[0]);
    std::optional<Descriptor> writing(std::in_place, FarFromTheStandardOnes(ends[1]));
    const int failure = errno;
    close(ends[1]);
    if (!writing->IsOpen()) {
        end.error = failure;
        return end;
    }
    const auto begin = Clock::now();
    const HeldInterrupts interrupts;
    const pid_t runner = fork();
    if (runner == 0) {
        RunShellAndAnswer(commandLine, surroundings, writing->Number());
    }
    if (runner < 0) {
        end.error = errno;
        return end;
    }
    writing.reset();
    Answer answer = {-1, 0};
    end.interrupted = !interrupts.AwaitInput(reading.Number());
    if (end.interrupted) {
        KillSession(runner);
    } else if (read(reading.Number(), &answer, sizeof(answer)) != sizeof(answer)) {
        answer = {-1, ECHILD};  // somebody has killed the runner
    }
    while (waitpid(runner, nullptr, 0) < 0 && errno == EINTR) {
    }
    end.waitStatus = answer.waitStatus;
    end.error = answer.error;
    end.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return end;
}

}  // namespace kennly
