#include "ctl/StatusText.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <optional>

#include "ctl/Time.h"
#include "lint/Wording.h"
#include "status/ProcFile.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

Colour ColourOf(Problem::Level level) {
    switch (level) {
        case Problem::Level::Critical:
            return Colour::Red;
        case Problem::Level::Warning:
            return Colour::Yellow;
        default:
            return Colour::Blue;
    }
}

class TreeText {
public:
    TreeText(const TreeView& view, std::optional<bool> runs, const Output& output)
        : view_(view), runs_(runs), output_(output) {}

    void Write() const {
        const TreeState& tree = view_.tree;
        output_.out << Paint(output_, Colour::Bold, tree.Name()) << ": "
                    << (!runs_   ? "unknown"
                        : *runs_ ? "runs"
                                 : "does not run")
                    << "\n";
        for (const DaemonProcess& parent : tree.parents) {
            Process(parent, tree.parentBeat);
        }
        for (const DaemonProcess& worker : tree.workers) {
            Process(worker, tree.workerBeat);
        }
        for (const DaemonProcess& ended : tree.ended) {
            output_.out << "  child " << ended.number << " has ended\n";
        }
        Configuration();
        for (const JobState& job : view_.jobs) {
            Job(job);
        }
        for (const RunningCommand& command : view_.strangers) {
            output_.out << "  of no known job: ";
            Running(command);
        }
    }

private:
    void Process(const DaemonProcess& process, const HeartbeatFile& beat) const {
        output_.out << "  " << std::left << std::setw(10) << NameOf(process.role) << " "
                    << process.number << ", for " << Duration(SecondsSince(process.startTicks))
                    << ", heartbeat " << BeatText(beat, output_);
        if (process.role != DaemonProcess::Role::Parent) {
            output_.out << ", " << Counted(static_cast<std::size_t>(process.threads), "thread");
        }
        output_.out << "\n";
    }

    void Configuration() const {
        const ConfigState& config = view_.tree.config;
        output_.out << "  " << config.path << ": ";
        if (!config.exists && !config.hidden) {
            output_.out << "missing\n";
        } else if (!config.readable) {
            output_.out << "unknown, as this user may not read it\n";
        } else if (!config.loads) {
            output_.out << "does not load: " << Printable(config.reason) << "\n";
        } else {
            output_.out << Counted(config.jobs.size(), "job") << ", changed "
                        << Moment(config.changed) << Evidence() << "\n";
        }
    }

    std::string Evidence() const {
        const std::optional<bool> newer = view_.tree.config.newerThanLoaded;
        if (view_.tree.workers.empty() || newer == false) {
            return "";
        }
        return Paint(output_, Colour::Yellow,
                     newer.has_value() ? ", newer than what the daemon is known to run"
                                       : ", unknown whether the daemon has taken it up");
    }

    void Job(const JobState& state) const {
        output_.out << "  job " << Paint(output_, Colour::Bold, Printable(state.job->name)) << ": "
                    << state.check << " " << Printable(Quoted(state.subject)) << " every "
                    << state.job->check->delay << " s\n";
        for (const RunningCommand& command : state.checks) {
            output_.out << "    checks: ";
            Running(command);
        }
        for (const RunningCommand& command : state.remedies) {
            output_.out << "    remedy, probably: ";
            Running(command);
        }
        for (const std::string& file : state.blockFiles) {
            output_.out << "    remedy blocked by " << Printable(file) << "\n";
        }
        for (const std::string& file : state.unknownBlockFiles) {
            output_.out << "    remedy blocked by " << Printable(file) << ": unknown, "
                        << WhyUnknown(file) << "\n";
        }
        if (WatchesFile(state.job->check->type)) {
            File(state);
        }
    }

    static const char* WhyUnknown(const std::string& path) {
        return !path.empty() && path.front() == '/'
                   ? "as this user may not look there"
                   : "as the path counts from the daemon's directory, which is not known";
    }

    void File(const JobState& state) const {
        if (!state.file && !state.subject.empty()) {
            output_.out << "    file: unknown, " << WhyUnknown(state.subject) << "\n";
        } else if (state.file && *state.file != state.subject) {
            output_.out << "    file: " << Printable(*state.file) << "\n";
        }
        if (state.job->check->type == CheckTypeFileChange) {
            output_.out << "    time on record: "
                        << (!state.recordKnown ? "unknown"
                            : state.recorded   ? Moment(*state.recorded)
                                               : "none")
                        << "\n";
        }
    }

    void Running(const RunningCommand& command) const {
        output_.out << Printable(Quoted(command.text)) << ", process " << command.number << ", for "
                    << Duration(command.seconds);
        if (command.jobs.size() > 1) {
            output_.out << " (or of another job with the same command)";
        }
        output_.out << "\n";
    }

    const TreeView& view_;
    const std::optional<bool> runs_;
    const Output& output_;
};

const Problem* FindWorst(const std::vector<Problem>& problems) {
    const auto worst =
        std::max_element(problems.begin(), problems.end(),
                         [](const Problem& a, const Problem& b) { return a.level < b.level; });
    return worst != problems.end() && worst->level != Problem::Level::Note ? &*worst : nullptr;
}

// What this user cannot know of a tree that runs or should; empty when it is all there.
std::string UnknownOf(const TreeState& tree) {
    if (tree.parentBeat.hidden || tree.workerBeat.hidden) {
        const HeartbeatFile& hidden = tree.parentBeat.hidden ? tree.parentBeat : tree.workerBeat;
        return hidden.path + " cannot be seen by this user";
    }
    const ConfigState& config = tree.config;
    return config.hidden || (config.exists && !config.readable)
               ? config.path + " cannot be read by this user"
               : "";
}

std::string UnknownOf(const StatusView& view) {
    const Snapshot& snapshot = view.snapshot;
    if (snapshot.processesHidden) {
        return ProcessesHiddenText;
    }
    const std::string ofMain = UnknownOf(snapshot.main.tree);
    const bool watcherCounts = view.watcherExpected || snapshot.watcher.tree.Runs();
    return ofMain.empty() && watcherCounts ? UnknownOf(snapshot.watcher.tree) : ofMain;
}

constexpr int PluginUnknown = 3;

std::string PluginVerdict(int status) {
    constexpr std::array<std::string_view, 4> verdicts = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return std::string(verdicts[static_cast<std::size_t>(status)]);
}

// What follows a bar would be taken for numbers.
std::string WithoutBars(std::string text) {
    std::replace(text.begin(), text.end(), '|', '/');
    return text;
}

}  // namespace

std::string BeatText(const HeartbeatFile& beat, const Output& output) {
    if (!beat.exists) {
        return Paint(output, Colour::Yellow, beat.hidden ? "unknown" : "missing");
    }
    const std::string age =
        beat.age < 0 ? Duration(-beat.age) + " in the future" : Duration(beat.age) + " ago";
    return beat.IsFresh() ? age : Paint(output, Colour::Red, age + " (stale)");
}

void WriteStatus(const StatusView& view, const Output& output) {
    for (const TreeView* tree : {&view.snapshot.main, &view.snapshot.watcher}) {
        TreeText(*tree, view.snapshot.Runs(*tree), output).Write();
    }
    if (view.snapshot.recordsHidden) {
        output.out << "unknown: which records of file times are of no job\n";
    }
    if (view.snapshot.processesHidden) {
        output.out << "unknown: " << ProcessesHiddenText << "\n";
    } else if (view.snapshot.detailsHidden) {
        output.out << "unknown: which programs the daemon's processes are, and what runs for them, "
                      "as this is another user\n";
    }
    for (const Problem& problem : view.problems) {
        output.out << Paint(output, ColourOf(problem.level), NameOf(problem.level)) << ": ["
                   << problem.code << "] " << Printable(problem.text) << "\n";
    }
}

int PluginStatus(const StatusView& view) {
    const Problem::Level worst = WorstOf(view.problems);
    const bool isUnknown = view.snapshot.processesHidden ||
                           (worst == Problem::Level::Note && !UnknownOf(view).empty());
    return isUnknown ? PluginUnknown : static_cast<int>(worst);
}

std::string PluginLine(const StatusView& view) {
    const TreeView& main = view.snapshot.main;
    const int status = PluginStatus(view);
    const Problem* const worst = FindWorst(view.problems);
    std::string line = "KENNLY " + PluginVerdict(status) + " - ";
    if (status == PluginUnknown) {
        line += UnknownOf(view);
    } else if (worst != nullptr) {
        line += WithoutBars(Printable(worst->text));
    } else {
        line += "main tree runs, " + Counted(main.jobs.size(), "job");
    }
    // "U" is for a number that cannot be told.
    line += " | jobs=" + (main.tree.config.loads ? std::to_string(main.jobs.size()) : "U");
    if (main.tree.workerBeat.exists) {
        line += " heartbeat_age=" + std::to_string(main.tree.workerBeat.age) + "s;;" +
                std::to_string(static_cast<int>(StaleSeconds));
    }
    return line;
}

}  // namespace kennly
