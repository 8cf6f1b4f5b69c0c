#include "ctl/ApplyVerb.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "ctl/ChangeLock.h"
#include "ctl/CheckVerb.h"
#include "ctl/ExitStatus.h"
#include "ctl/HeldSignals.h"
#include "ctl/Replacement.h"
#include "ctl/StatusText.h"
#include "ctl/UptakeWatch.h"
#include "lint/DaemonVerdict.h"
#include "lint/FileContent.h"
#include "lint/Wording.h"
#include "main/Paths.h"
#include "status/DaemonLog.h"
#include "status/DaemonProcesses.h"
#include "status/HeartbeatFile.h"
#include "status/ProcFile.h"

namespace kennly {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<DaemonProcess> FindWorkers(bool watcher) {
    std::vector<DaemonProcess> workers = FindDaemonProcesses();
    workers.erase(std::remove_if(workers.begin(), workers.end(),
                                 [watcher](const DaemonProcess& process) {
                                     return !process.RunsJobs(watcher);
                                 }),
                  workers.end());
    return workers;
}

// What is checked is what will be in force, whatever becomes of the file that it was copied from.
int CheckDraft(const Replacement& draft, const ApplyOptions& options, const Output& output) {
    CheckOptions check;
    check.file = draft.DraftPath();
    check.shownAs = options.file;
    check.watcher = options.watcher;
    check.quiet = true;
    return RunCheckVerb(check, output);
}

int Refuse(const std::string& live, const std::string& why, int status, const Output& output) {
    output.err << "kennlyctl: " << Printable(why) << "; " << live << " stays as it is\n";
    return status;
}

// Whether the file has been read; empty where nobody can know.
std::function<bool()> ReadingOf(const Replacement& file) {
    if (!file.TellsOfReading()) {
        return nullptr;
    }
    return [&file] {
        return file.WasRead();
    };
}

// All by which it can be seen from outside how a worker takes up a new configuration.
struct Evidence {
    Evidence(const DaemonProcess& observed, const Replacement& file, bool isOnlyOne)
        : worker(observed),
          name(isOnlyOne ? "the daemon" : "process " + std::to_string(observed.number)),
          uptake(observed.number, ReadingOf(file)),
          log(DaemonLogPath) {}

    HeartbeatFile Heartbeat() const {
        return LookAtHeartbeat(worker.isWatcher ? WatcherChildHeartbeatPath : ChildHeartbeatPath);
    }

    DaemonProcess worker;
    std::string name;
    UptakeWatch uptake;
    DaemonLog log;
};

void TellLog(const Evidence& evidence, const Output& output) {
    const auto texts = evidence.log.NewTexts(evidence.worker.number);
    if (!texts) {
        output.err << "kennlyctl: what it has logged is unknown, as " << DaemonLogPath
                   << " cannot be read\n";
        return;
    }
    for (const std::string& text : *texts) {
        output.out << evidence.name << " has logged: " << Printable(text) << "\n";
    }
}

void TellUptake(const Evidence& evidence, std::size_t jobs, const Output& output) {
    TellLog(evidence, output);
    output.out << evidence.name << " has taken it up: " << Counted(jobs, "job") << ", "
               << Counted(ThreadsOf(evidence.worker.number).size(), "thread") << ", heartbeat "
               << BeatText(evidence.Heartbeat(), output) << std::endl;
}

int TellEnd(const Evidence& evidence, const Output& output) {
    TellLog(evidence, output);
    output.err << "kennlyctl: the daemon's process " << evidence.worker.number
               << " has ended meanwhile\n";
    return ExitFindings;
}

void TellTimeout(const Evidence& evidence, std::chrono::seconds limit, const Output& output) {
    TellLog(evidence, output);
    output.err << "kennlyctl: " << evidence.name << " has not taken it up within " << limit.count()
               << " s, "
               << (evidence.Heartbeat().IsFresh()
                       ? "though it beats"
                       : "and does not beat: it waits for running checks and pauses to "
                         "end, or hangs")
               << "; kennlyctl status tells more\n";
}

int TellReplaced(const std::string& path, const Output& output) {
    output.err << "kennlyctl: " << Printable(path)
               << " has been replaced by another file meanwhile: whether this one was ever in "
                  "force is not known\n";
    return ExitFindings;
}

// Why a file cannot be read.
std::string TextOf(int error) {
    return error == EINVAL ? "it is no regular file" : std::strerror(error);
}

void TellReading(const Output& output) {
    output.out << "it has been read, and waits for running checks and pauses to end" << std::endl;
}

// Looks at each that has not done with it, and takes out those that have.
int AwaitUptake(const Replacement& file, std::list<Evidence>& pending, std::size_t jobs,
                std::chrono::seconds limit, const Output& output) {
    using State = UptakeWatch::State;
    constexpr std::chrono::seconds worthTelling(3);
    const auto begin = Clock::now();
    int status = ExitClean;
    for (bool told = false; !pending.empty() && Clock::now() - begin < limit;) {
        bool isRead = false;
        if (!file.IsInPlace()) {
            return TellReplaced(file.Path(), output);
        }
        pending.remove_if([&](Evidence& evidence) {
            const State state = evidence.uptake.Look(jobs);
            if (state == State::Gone) {
                status = TellEnd(evidence, output);
            } else if (state == State::TakenUp) {
                TellUptake(evidence, jobs, output);
            }
            isRead = isRead || state == State::Read;
            return state == State::Gone || state == State::TakenUp;
        });
        if (!told && isRead && Clock::now() - begin > worthTelling) {
            TellReading(output);
            told = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(pending.empty() ? 0 : 100));
    }
    for (const Evidence& evidence : pending) {
        TellTimeout(evidence, limit, output);
    }
    return pending.empty() ? status : ExitFindings;
}

void TellThatNoneRuns(const Output& output) {
    if (AreProcessesHidden()) {
        output.out << "it is not known whether a daemon runs that would take it up: "
                   << ProcessesHiddenText << "\n";
    } else {
        output.out << "no daemon runs that would take it up: it loads it when it starts\n";
    }
}

}  // namespace

int RunApplyVerb(const ApplyOptions& options, const Output& output) {
    const std::string live = options.watcher ? WatcherConfigPath : MainConfigPath;
    const std::optional<std::string> content = ReadFile(options.file);
    if (!content) {
        output.err << "kennlyctl: cannot read " << Printable(options.file) << ": " << TextOf(errno)
                   << "\n";
        return ExitNoInput;
    }
    std::string failure;
    std::optional<HeldSignals> uninterrupted(std::in_place);  // or the draft would be left behind
    const std::unique_ptr<Replacement> draft = Replacement::Prepare(live, *content, failure);
    if (!draft) {
        return Refuse(live, failure, ExitCannotCreate, output);
    }
    const int verdict = CheckDraft(*draft, options, output);
    if (verdict != ExitClean) {
        return Refuse(live, "refused", verdict, output);
    }
    if (uninterrupted->HaveCome()) {
        return Refuse(live, "interrupted", ExitFindings, output);
    }
    const std::size_t jobs = AskDaemon(draft->DraftPath()).jobs.size();
    const std::vector<DaemonProcess> workers = FindWorkers(options.watcher);
    std::list<Evidence> evidence;
    const bool isOnly = workers.size() == 1;
    for (const DaemonProcess& worker : workers) {
        // cppcheck-suppress useStlAlgorithm ; evidence neither moves nor is copied
        evidence.emplace_back(worker, *draft, isOnly);
    }
    {
        const ChangeLock locked;  // two that look for another second would find the same
        failure = draft->TakePlace();
    }
    uninterrupted.reset();
    if (!failure.empty()) {
        return Refuse(live, failure, ExitCannotCreate, output);
    }
    output.out << live << " is replaced" << std::endl;
    if (evidence.empty()) {
        TellThatNoneRuns(output);
        return ExitClean;
    }
    if (evidence.size() > 1) {
        output.out << evidence.size()
                   << " processes run the jobs of this tree; kennlyctl status tells "
                      "more"
                   << std::endl;
    }
    return AwaitUptake(*draft, evidence, jobs, std::chrono::seconds(options.waitSeconds), output);
}

}  // namespace kennly
