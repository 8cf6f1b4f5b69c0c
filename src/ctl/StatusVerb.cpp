#include "ctl/StatusVerb.h"

#include <chrono>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include "ctl/ExitStatus.h"
#include "ctl/StatusJson.h"
#include "ctl/StatusMetrics.h"
#include "ctl/StatusText.h"
#include "status/Problems.h"

namespace kennly {

namespace {

constexpr std::chrono::seconds BetweenLooks(1);

// Looks once more when something is wrong: it may be over in a moment.
StatusView LookAround(bool watcherExpected) {
    StatusView view;
    view.watcherExpected = watcherExpected;
    view.snapshot = TakeSnapshot();
    view.problems = FindProblems(view.snapshot, watcherExpected);
    if (WorstOf(view.problems) == Problem::Level::Note) {
        return view;
    }
    std::this_thread::sleep_for(BetweenLooks);
    view.snapshot = TakeSnapshot();
    view.problems = ThatLast(view.problems, FindProblems(view.snapshot, watcherExpected));
    return view;
}

int StatusOf(const StatusView& view) {
    const std::optional<bool> runs = view.snapshot.Runs(view.snapshot.main);
    if (!runs) {
        return ExitNoPermission;
    }
    if (!*runs) {
        return ExitUnavailable;
    }
    return WorstOf(view.problems) == Problem::Level::Note ? ExitClean : ExitFindings;
}

int Repeat(const StatusOptions& options, const Output& output) {
    std::vector<Problem> before;  // a look ago, as each look is the second one to the one before
    for (bool isFirst = true;; isFirst = false) {
        StatusView view;
        view.watcherExpected = options.watcher;
        view.snapshot = TakeSnapshot();
        const std::vector<Problem> now = FindProblems(view.snapshot, options.watcher);
        view.problems = ThatLast(before, now);
        const bool isUndecided = isFirst && !now.empty();
        before = now;
        std::ostringstream screen;
        WriteStatus(view, {screen, output.err, output.coloured});
        screen << (isUndecided ? "what is wrong is not known yet: looking once more\n" : "");
        const char* const clearScreen = "\033[H\033[2J";
        output.out << (output.isTerminal ? clearScreen : "") << screen.str() << std::flush;
        if (!output.out) {  // nobody reads it any more
            return ExitClean;
        }
        std::this_thread::sleep_for(BetweenLooks);
    }
}

}  // namespace

int RunStatusVerb(const StatusOptions& options, const Output& output) {
    if (options.repeat) {
        return Repeat(options, output);
    }
    const StatusView view = LookAround(options.watcher);
    switch (options.format) {
        case StatusOptions::Format::Plugin:
            output.out << PluginLine(view) << "\n";
            return PluginStatus(view);
        case StatusOptions::Format::Prometheus:
            output.out << MetricsOf(view);
            return ExitClean;
        case StatusOptions::Format::Json:
            output.out << TextOf(AsJson(view)) << "\n";
            return StatusOf(view);
        default:
            WriteStatus(view, output);
            return StatusOf(view);
    }
}

}  // namespace kennly
