#include "ctl/Verbs.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "ctl/ApplyVerb.h"
#include "ctl/BlockVerbs.h"
#include "ctl/CheckVerb.h"
#include "ctl/ExitStatus.h"
#include "ctl/StartVerb.h"
#include "ctl/StatusVerb.h"
#include "ctl/StopVerb.h"
#include "ctl/TestVerb.h"

namespace kennly {

namespace {

constexpr int LongestWait = 604800;  // a week, in seconds

// The verbs, each with its options; the one that is named leaves behind what is to be run.
class Verbs {
public:
    explicit Verbs(const Output& output) : output_(output) {
        app_.require_subcommand(1);
        app_.set_version_flag("--version", std::string("kennlyctl ") + KENNLY_VERSION);
        AddCheck();
        AddApply();
        AddStatus();
        AddTest();
        AddBlocks();
        AddStartAndStop();
    }

    int Run(int argumentCount, const char* const* arguments) {
        try {
            app_.parse(argumentCount, arguments);
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() != 0) {
                output_.err << "kennlyctl: " << Printable(Complaint(error)) << "\n";
                return ExitUsage;
            }
            app_.exit(error, output_.out, output_.err);  // help, or the version
            return AfterWriting(ExitClean);
        }
        return AfterWriting(run_());
    }

private:
    std::string Complaint(const CLI::ParseError& error) const {
        const std::vector<CLI::App*> verbs = app_.get_subcommands();
        const std::vector<std::string> rest = app_.remaining();
        if (!verbs.empty()) {
            return std::string(error.what()) + ": see kennlyctl " + verbs.front()->get_name() +
                   " --help";
        }
        return (rest.empty() ? "which verb" : "there is no verb " + rest.front()) +
               ": see kennlyctl --help";
    }

    // An answer that is cut short, as on a full disk, must not pass for one.
    int AfterWriting(int status) {
        output_.out.flush();
        if (output_.out) {
            return status;
        }
        output_.err << "kennlyctl: cannot write to standard output\n";
        return ExitCannotCreate;
    }

    static void AddWatcherFlag(CLI::App& verb, bool& watcher) {
        verb.add_flag("-W,--watcher", watcher, "Of the watcher tree (dogdog.xml)");
    }

    void AddCheck() {
        CLI::App& verb = *app_.add_subcommand(
            "check", "Say what the daemon makes of a configuration, and what it does not say");
        verb.add_option("FILE", check_.file, "A configuration; else the live one");
        AddWatcherFlag(verb, check_.watcher);
        CLI::Option& json = *verb.add_flag("--json", check_.json, "Write JSON");
        verb.add_flag("--strict", check_.strict, "Exit with 1 for warnings too");
        verb.add_flag("--as-daemon", check_.asDaemon,
                      "Only what the daemon would log, word by word")
            ->excludes(&json);
        verb.add_flag("--quiet", check_.quiet, "Neither notes nor a summary");
        verb.callback([this] {
            run_ = [this] {
                return RunCheckVerb(check_, output_);
            };
        });
    }

    void AddApply() {
        CLI::App& verb =
            *app_.add_subcommand("apply", "Put a configuration in force, if it is without errors");
        verb.add_option("FILE", apply_.file, "The configuration")->required();
        AddWatcherFlag(verb, apply_.watcher);
        verb.add_option("--wait", apply_.waitSeconds, "Seconds for the daemon to take it up")
            ->check(CLI::Range(0, LongestWait))
            ->capture_default_str();
        verb.callback([this] {
            run_ = [this] {
                return RunApplyVerb(apply_, output_);
            };
        });
    }

    void AddStatus() {
        CLI::App& verb =
            *app_.add_subcommand("status", "Show both trees, their jobs, what is wrong");
        CLI::Option_group& format = *verb.add_option_group("Format");
        const auto add = [&](const char* flag, StatusOptions::Format value, const char* help) {
            format.add_flag_callback(
                flag, [this, value] { status_.format = value; }, help);
        };
        add("--json", StatusOptions::Format::Json, "Write JSON");
        add("--plugin", StatusOptions::Format::Plugin, "One line and 0, 1, 2 or 3, for monitoring");
        add("--prometheus", StatusOptions::Format::Prometheus, "Metrics as text");
        format.add_flag("--watch", status_.repeat, "Again each second");
        format.require_option(0, 1);
        verb.add_flag("-W,--watcher", status_.watcher, "The watcher tree is to run as well");
        verb.callback([this] {
            run_ = [this] {
                return RunStatusVerb(status_, output_);
            };
        });
    }

    void AddTest() {
        CLI::App& verb =
            *app_.add_subcommand("test", "Run the check of a job once, as the daemon would");
        verb.add_option("JOB", test_.job, "Its name")->required();
        AddWatcherFlag(verb, test_.watcher);
        verb.add_flag("--remedy", test_.remedy, "The remedy instead");
        verb.add_flag("--dry-run", test_.dryRun, "Only write what would be run");
        verb.callback([this] {
            run_ = [this] {
                return RunTestVerb(test_, output_);
            };
        });
    }

    void AddBlocks() {
        CLI::App& block = *app_.add_subcommand("block", "Keep the remedy of a job from running");
        block.add_option("JOB", block_.job, "Its name")->required();
        AddWatcherFlag(block, block_.watcher);
        block.add_option("--reason", block_.reason, "Why, for whoever asks for the blocks");
        block.callback([this] {
            run_ = [this] {
                return RunBlockVerb(block_, output_);
            };
        });

        CLI::App& unblock = *app_.add_subcommand("unblock", "Let the remedy of a job run again");
        unblock.add_option("JOB", block_.job, "Its name")->required();
        AddWatcherFlag(unblock, block_.watcher);
        unblock.add_flag("--force", block_.force, "Also remove files that others have made");
        unblock.callback([this] {
            run_ = [this] {
                return RunUnblockVerb(block_, output_);
            };
        });

        CLI::App& blocks = *app_.add_subcommand("blocks", "List what blocks which remedy");
        AddWatcherFlag(blocks, block_.watcher);
        blocks.callback([this] {
            run_ = [this] {
                return RunBlocksVerb(block_.watcher, output_);
            };
        });
    }

    void AddStartAndStop() {
        CLI::App& start =
            *app_.add_subcommand("start", "Start both trees in the background, the main one first");
        const auto add = [&](const char* flag, StartOptions::Trees value, const char* help) {
            return start.add_flag_callback(
                flag, [this, value] { start_.trees = value; }, help);
        };
        add("--main", StartOptions::Trees::Main, "The main tree alone")
            ->excludes(add("-W,--watcher", StartOptions::Trees::Watcher, "The watcher tree alone"));
        start.add_option("--program", start_.program, "The daemon's program, by its absolute path")
            ->capture_default_str();
        start.callback([this] {
            run_ = [this] {
                return RunStartVerb(start_, output_);
            };
        });

        CLI::App& stop = *app_.add_subcommand("stop", "End both trees, the main one first");
        AddWatcherFlag(stop, stop_.watcherOnly);
        stop.callback([this] {
            run_ = [this] {
                return RunStopVerb(stop_, output_);
            };
        });
    }

    const Output& output_;
    CLI::App app_{"Looks after kennly, the supervision daemon: what it keeps to itself",
                  "kennlyctl"};
    std::function<int()> run_;
    CheckOptions check_;
    ApplyOptions apply_;
    StatusOptions status_;
    TestOptions test_;
    BlockOptions block_;
    StartOptions start_{KENNLY_PROGRAM_PATH, StartOptions::Trees::Both};
    StopOptions stop_;
};

}  // namespace

int RunKennlyctl(int argumentCount, const char* const* arguments, const Output& output) {
    try {
        return Verbs(output).Run(argumentCount, arguments);
    } catch (const std::exception& exception) {
        output.err << "kennlyctl: " << exception.what() << "\n";
    } catch (...) {
        output.err << "kennlyctl: an unknown exception\n";
    }
    return ExitSoftware;
}

}  // namespace kennly
