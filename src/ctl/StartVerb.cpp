#include "ctl/StartVerb.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "ctl/ChangeLock.h"
#include "ctl/ExitStatus.h"
#include "status/ProcFile.h"
#include "status/TreeState.h"

namespace kennly {

namespace {

constexpr std::chrono::seconds LongestStart(15);

std::string Numbers(const TreeState& tree) {
    std::string text;
    for (const auto* const processes : {&tree.parents, &tree.workers}) {
        for (const DaemonProcess& process : *processes) {
            text.append(text.empty() ? "" : ", ")
                .append(NameOf(process.role))
                .append(" ")
                .append(std::to_string(process.number));
        }
    }
    return text;
}

// A heartbeat that was there before the process is another one's.
bool Beats(const std::vector<DaemonProcess>& processes, const HeartbeatFile& beat) {
    return !processes.empty() && beat.exists &&
           beat.age < SecondsSince(processes.front().startTicks);
}

bool Works(const TreeState& tree) {
    return Beats(tree.workers, tree.workerBeat) && Beats(tree.parents, tree.parentBeat);
}

bool RunsInForeground(const TreeState& tree) {
    return !tree.workers.empty() && tree.workers.front().role == DaemonProcess::Role::Foreground;
}

bool IsHalf(const TreeState& tree) {
    return tree.parents.empty() != tree.workers.empty() && !RunsInForeground(tree);
}

TreeState Look(bool watcher) {
    return LookAtTree(watcher, FindDaemonProcesses());
}

// Returns an empty text, or why the program's first process did not end well.
std::string RunFirstProcess(const std::string& program, const std::string& option) {
    constexpr unsigned firstOther = 3;  // behind the standard ones
    std::string path = program;
    std::string text = option;
    char* const arguments[] = {path.data(), text.empty() ? nullptr : text.data(), nullptr};
    close_range(firstOther, ~0U, CLOSE_RANGE_CLOEXEC);  // or all its commands would have them
    pid_t process = 0;
    const int error = posix_spawn(&process, path.c_str(), nullptr, nullptr, arguments, environ);
    if (error != 0) {
        return std::strerror(error);
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ""
                                                         : "it ended with a failure; see its log";
}

// Returns whether there is no more than one of them.
bool IsOne(const TreeState& tree, const Output& output) {
    if (tree.parents.size() <= 1 && tree.workers.size() <= 1) {
        return true;
    }
    output.err << "kennlyctl: the " << tree.Name() << " runs more than once, " << Numbers(tree)
               << ", and so does each of its jobs: end all with kennlyctl stop, and start anew\n";
    return false;
}

// The tree once it is as wanted, or as it is when the time is up.
TreeState LookUntil(bool (*isWanted)(const TreeState&), bool watcher, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    TreeState tree = Look(watcher);
    while (!isWanted(tree) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        tree = Look(watcher);
    }
    return tree;
}

// Processes that are just starting, or ending, look like half a tree.
TreeState LookWhole(bool watcher) {
    constexpr std::chrono::seconds longestHalf(5);
    return LookUntil([](const TreeState& tree) { return !IsHalf(tree); }, watcher, longestHalf);
}

bool AwaitTree(bool watcher, const Output& output) {
    const TreeState tree = LookUntil(Works, watcher, LongestStart);
    if (!Works(tree)) {
        output.err << "kennlyctl: the " << tree.Name() << " does not beat after "
                   << LongestStart.count() << " s; kennlyctl status tells what there is of it\n";
        return false;
    }
    if (!IsOne(tree, output)) {
        return false;
    }
    output.out << tree.Name() << ": started, " << Numbers(tree) << "\n";
    if (!tree.config.exists) {
        output.out << "but " << tree.config.path << " is missing: it ends when that stays so\n";
    } else if (tree.config.readable && !tree.config.loads) {
        output.out << "but " << tree.config.path << " does not load: kennlyctl check tells why\n";
    }
    return true;
}

// The tree, unless it runs already.
int Start(const TreeState& tree, const std::string& program, const Output& output) {
    if (IsHalf(tree)) {
        output.err << "kennlyctl: only half of the " << tree.Name() << " runs, " << Numbers(tree)
                   << ": end it with kennlyctl stop, and start anew\n";
        return ExitFindings;
    }
    if (!IsOne(tree, output)) {
        return ExitFindings;
    }
    if (tree.Runs()) {
        output.out << tree.Name() << ": runs already, " << Numbers(tree) << "\n";
        return ExitClean;
    }
    if (AreProcessesHidden()) {
        output.err << "kennlyctl: " << ProcessesHiddenText << ", so the " << tree.Name()
                   << " may run already: it is not started\n";
        return ExitNoPermission;
    }
    const std::string failure = RunFirstProcess(program, tree.isWatcher ? "-W" : "");
    if (!failure.empty()) {
        output.err << "kennlyctl: cannot start " << Printable(program) << ": " << failure << "\n";
        return ExitSystem;
    }
    return AwaitTree(tree.isWatcher, output) ? ExitClean : ExitFindings;
}

// By default a watcher tree belongs to a main tree in the background, if it has a configuration.
bool WantsWatcher(const StartOptions& options, const TreeState& main, const TreeState& watcher,
                  const Output& output) {
    if (options.trees != StartOptions::Trees::Both || watcher.Runs()) {
        return options.trees != StartOptions::Trees::Main;
    }
    if (!watcher.config.exists) {
        output.out << watcher.Name() << ": is not started, as " << watcher.config.path
                   << " is missing\n";
        return false;
    }
    if (RunsInForeground(main)) {
        output.out << watcher.Name()
                   << ": is not started, as the main tree runs in the foreground\n";
        return false;
    }
    return true;
}

// Returns an empty text, or what is wrong with the path of the program.
std::string FaultOf(const std::string& path) {
    struct stat status = {};
    if (path.empty() || path.front() != '/') {
        return "is no program by an absolute path";
    }
    if (stat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? "is not there"
                               : std::string("cannot be looked at: ") + std::strerror(errno);
    }
    if (!S_ISREG(status.st_mode) || access(path.c_str(), X_OK) != 0) {
        return "is no program by an absolute path";
    }
    if (path.substr(path.rfind('/') + 1) != DaemonProgramName) {
        return std::string("is not called ") + DaemonProgramName +
               ", by which name the daemon's processes are found";
    }
    return "";
}

}  // namespace

int RunStartVerb(const StartOptions& options, const Output& output) {
    const std::string fault = FaultOf(options.program);
    if (!fault.empty()) {
        output.err << "kennlyctl: " << Printable(options.program) << " " << fault << "\n";
        return ExitNoInput;
    }
    const ChangeLock locked;  // two that look at once would each start one
    const TreeState main = LookWhole(false);
    const TreeState watcher = LookWhole(true);
    std::vector<const TreeState*> wanted;
    if (options.trees != StartOptions::Trees::Watcher) {
        wanted.push_back(&main);
    }
    if (WantsWatcher(options, main, watcher, output)) {
        wanted.push_back(&watcher);
    }
    for (const TreeState* const tree : wanted) {
        const int status = Start(*tree, options.program, output);
        if (status != ExitClean) {
            return status;
        }
    }
    return ExitClean;
}

}  // namespace kennly
