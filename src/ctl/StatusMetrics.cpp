#include "ctl/StatusMetrics.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <sstream>

#include "ctl/Output.h"

namespace kennly {

namespace {

// The value of a label. Nobody takes a text in which a single byte is no UTF-8, so that such bytes
// are shown as on a terminal.
std::string Escaped(const std::string& value) {
    std::string escaped;
    for (const char c : Printable(value)) {
        if (c == '\\' || c == '"') {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

bool IsMissing(const ConfigState& config) {
    return !config.exists && !config.hidden;
}

const char* Label(const TreeState& tree) {
    return tree.isWatcher ? "watcher" : "main";
}

using Number = std::optional<double>;
constexpr Number Unknown = std::nullopt;

class Metrics {
public:
    explicit Metrics(const StatusView& view) : view_(view) { text_.precision(15); }

    std::string Write() {
        Trees("kennly_up", "Whether the tree runs.",
              [this](const TreeView& tree) { return NumberOf(view_.snapshot.Runs(tree)); });
        Heartbeats();
        Processes();
        Threads();
        Configurations();
        Jobs();
        Problems();
        return text_.str();
    }

private:
    void Begin(const char* name, const char* help) {
        text_ << "# HELP " << name << " " << help << "\n# TYPE " << name << " gauge\n";
    }

    template <class F>
    void EachTree(F write) {
        write(view_.snapshot.main);
        write(view_.snapshot.watcher);
    }

    static Number NumberOf(std::optional<bool> value) {
        return value ? Number(*value ? 1 : 0) : Unknown;
    }

    // A number that is unknown is left out, as all that reads this format expects.
    void Trees(const char* name, const char* help,
               const std::function<Number(const TreeView&)>& value) {
        Begin(name, help);
        EachTree([&](const TreeView& view) {
            if (const Number number = value(view)) {
                text_ << name << "{tree=\"" << Label(view.tree) << "\"} " << *number << "\n";
            }
        });
    }

    // By the roles of the heartbeats, so that one that is left over can be told from one that a
    // process no longer refreshes.
    void Processes() {
        Begin("kennly_processes",
              "Processes of the tree; what runs the jobs is a child, in the foreground too.");
        EachTree([&](const TreeView& view) {
            if (view_.snapshot.Runs(view)) {
                Processes(view.tree, "parent", view.tree.parents.size());
                Processes(view.tree, "child", view.tree.workers.size());
            }
        });
    }

    void Processes(const TreeState& tree, const char* role, std::size_t count) {
        text_ << "kennly_processes{tree=\"" << Label(tree) << "\",role=\"" << role << "\"} "
              << count << "\n";
    }

    void Heartbeats() {
        Begin("kennly_heartbeat_age_seconds", "Age of the heartbeat files that there are.");
        EachTree([&](const TreeView& view) {
            Heartbeat(view.tree, "parent", view.tree.parentBeat);
            Heartbeat(view.tree, "child", view.tree.workerBeat);
        });
    }

    void Heartbeat(const TreeState& tree, const char* role, const HeartbeatFile& beat) {
        if (beat.exists) {
            text_ << "kennly_heartbeat_age_seconds{tree=\"" << Label(tree) << "\",role=\"" << role
                  << "\"} " << beat.age << "\n";
        }
    }

    void Threads() {
        Trees("kennly_threads", "Threads of the process that runs the jobs.",
              [](const TreeView& view) {
                  const auto& workers = view.tree.workers;
                  return workers.empty() ? Unknown : Number(workers.front().threads);
              });
        Trees("kennly_threads_expected", "Threads that it has when all is well.",
              [](const TreeView& view) {
                  return view.tree.workers.empty() || !view.tree.config.loads
                             ? Unknown
                             : Number(view.tree.config.Threads());
              });
    }

    void Configurations() {
        Trees("kennly_config_loads", "Whether the configuration, as its file stands, loads.",
              [](const TreeView& view) {
                  const ConfigState& config = view.tree.config;
                  const bool isMissed = IsMissing(config) && view.tree.Runs();
                  return config.readable || isMissed ? Number(config.loads ? 1 : 0) : Unknown;
              });
        Trees("kennly_config_newer_than_loaded",
              "Whether the configuration has changed since the daemon is known to have loaded it.",
              [](const TreeView& view) { return NumberOf(view.tree.config.newerThanLoaded); });
        Trees("kennly_jobs", "Jobs in the configuration as its file stands.",
              [](const TreeView& view) {
                  const ConfigState& config = view.tree.config;
                  const bool isKnown = config.readable || IsMissing(config);
                  return isKnown ? Number(static_cast<double>(view.jobs.size())) : Unknown;
              });
    }

    void Jobs() {
        Begin(
            "kennly_job_check_running_seconds",
            "How long the check of the job has been running, where no other job has its command.");
        EachJob([&](const TreeState& tree, const JobState& job) {
            double longest = -1;
            for (const RunningCommand& command : job.checks) {
                const bool isAnothersPerhaps = command.jobs.size() > 1;
                longest = isAnothersPerhaps ? longest : std::max(longest, command.seconds);
            }
            if (longest >= 0) {
                Job("kennly_job_check_running_seconds", tree, job, longest);
            }
        });
        Begin("kennly_job_blocked", "Block files in force for the job.");
        EachJob([&](const TreeState& tree, const JobState& job) {
            if (job.unknownBlockFiles.empty() || !job.blockFiles.empty()) {
                Job("kennly_job_blocked", tree, job, static_cast<double>(job.blockFiles.size()));
            }
        });
    }

    template <class F>
    void EachJob(F write) {
        EachTree([&](const TreeView& view) {
            for (const JobState& job : view.jobs) {
                write(view.tree, job);
            }
        });
    }

    void Job(const char* name, const TreeState& tree, const JobState& job, double value) {
        text_ << name << "{tree=\"" << Label(tree) << "\",job_name=\"" << Escaped(job.job->name)
              << "\"} " << value << "\n";
    }

    void Problems() {
        std::map<std::string, int> counts;
        for (const Problem& problem : view_.problems) {
            ++counts[std::string("code=\"") + problem.code + "\",level=\"" + NameOf(problem.level) +
                     "\""];
        }
        Begin("kennly_problems", "What is wrong, by its code.");
        for (const auto& [labels, count] : counts) {
            text_ << "kennly_problems{" << labels << "} " << count << "\n";
        }
    }

    const StatusView& view_;
    std::ostringstream text_;
};

}  // namespace

std::string MetricsOf(const StatusView& view) {
    return Metrics(view).Write();
}

}  // namespace kennly
