// Measures the daemon as a whole, in sandboxes of its own, against floors that are measured in the
// same run; see docs/performance.md.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <vector>

#include "daemon/Figures.h"
#include "daemon/Floors.h"
#include "daemon/Measurements.h"

namespace kennly::bench {

namespace {

const std::map<std::string, void (*)(const Effort&, Figures&)> Measurements = {
    {"commands", MeasureCommandChecks}, {"start", MeasureStart},
    {"files", MeasureFileChecks},       {"idle", MeasureIdle},
    {"detection", MeasureDetection},    {"reload", MeasureReload},
};

// Measures what is named, or everything; writes it to the file `output` unless that is empty.
void Measure(const std::vector<std::string>& names, const Effort& effort,
             const std::string& output) {
    Figures figures;
    for (const auto& [name, measure] : Measurements) {
        if (names.empty() || std::find(names.begin(), names.end(), name) != names.end()) {
            measure(effort, figures);
            if (!output.empty()) {  // what there is by now, should the next one fail
                figures.Write(output);
            }
        }
    }
}

int Run(int argc, char** argv) {
    CLI::App app("Measures the daemon against its floors.");
    bool full = false;
    std::string output;
    std::vector<std::string> names;
    app.add_flag("--full", full, "More rounds, and a hundred reloads");
    app.add_option("--output", output, "The file for the figures, as JSON");
    app.add_option("what", names, "What to measure; everything when nothing is named")
        ->check(CLI::IsMember(Measurements));
    CLI11_PARSE(app, argc, argv);
    Measure(names, full ? FullEffort : ShortEffort, output);
    return 0;
}

}  // namespace

}  // namespace kennly::bench

int main(int argc, char** argv) {
    try {
        if (argc > 2 && std::string(argv[1]) == "floor") {
            return kennly::bench::RunFloor({argv + 2, argv + argc});
        }
        return kennly::bench::Run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "not measured: %s\n", failure.what());
        return 1;
    }
}
