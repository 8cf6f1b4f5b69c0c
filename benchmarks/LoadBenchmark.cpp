// Loading a configuration against the floor that nobody can go below: TinyXML's own LoadFile of the
// same file. Ends with the ratio for 10,000 jobs and the growth from 1,000 to 50,000.

#include <benchmark/benchmark.h>
#include <tinyxml.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>

#include "config/DogConfig.h"
#include "main/ProcessState.h"
#include "support/TemporaryDirectory.h"

namespace {

using kennly::test::TemporaryDirectory;

std::string ConfigurationOf(std::int64_t jobs) {
    std::ostringstream text;
    text << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kennly maxloaderrors=\"5\">\n";
    for (std::int64_t i = 0; i < jobs; ++i) {
        text << "  <job name=\"service-" << i << "\" enabled=\"true\" maxerrors=\"3\">\n"
             << "    <check type=\"CheckCommandResult\" delay=\"30\">\n"
             << "      <param value=\"systemctl is-active service-" << i << "\"/>\n"
             << "    </check>\n"
             << "    <remedy type=\"Execute\" delay=\"5\" blockaction=\"/run/maintenance\">\n"
             << "      <param value=\"systemctl restart service-" << i << "\"/>\n"
             << "    </remedy>\n"
             << "  </job>\n";
    }
    text << "</kennly>\n";
    return text.str();
}

// One file a size, made once.
std::string FileOf(std::int64_t jobs) {
    static const TemporaryDirectory directory;
    static std::map<std::int64_t, std::string> files;
    std::string& path = files[jobs];
    if (path.empty()) {
        path = directory.Write("jobs-" + std::to_string(jobs) + ".xml", ConfigurationOf(jobs));
    }
    return path;
}

void ParserAlone(benchmark::State& state) {
    const std::string path = FileOf(state.range(0));
    for (auto _ : state) {
        TiXmlDocument document(path.c_str());
        if (!document.LoadFile()) {
            state.SkipWithError("the parser has refused the file");
        }
        benchmark::DoNotOptimize(document.FirstChildElement());
    }
    state.SetComplexityN(state.range(0));
}

void Load(benchmark::State& state) {
    std::snprintf(kennly::configFile, sizeof(kennly::configFile), "%s",
                  FileOf(state.range(0)).c_str());
    kennly::DogConfig config;
    for (auto _ : state) {
        if (!config.Load()) {
            state.SkipWithError("the loader has refused the file");
        }
    }
    if (config.Jobs().size() != static_cast<std::size_t>(state.range(0))) {
        state.SkipWithError("jobs are missing");
    }
    state.SetComplexityN(state.range(0));
}

// Prints as usual and keeps the processor time of each size.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                times_[run.run_name.function_name][std::stoll(run.run_name.args)] =
                    run.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    double Time(const std::string& name, std::int64_t jobs) { return times_[name][jobs]; }

private:
    std::map<std::string, std::map<std::int64_t, double>> times_;
};

void Configure() {
    for (const std::int64_t jobs : {1000, 10000, 50000}) {
        for (auto* const one : {benchmark::RegisterBenchmark("parser", ParserAlone),
                                benchmark::RegisterBenchmark("load", Load)}) {
            one->Arg(jobs)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    Configure();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const std::int64_t jobs : {1000, 10000, 50000}) {
        const double load = reporter.Time("load", jobs);
        std::printf("%6lld jobs: %.3f times the parser alone, %.2f us a job\n",
                    static_cast<long long>(jobs), load / reporter.Time("parser", jobs),
                    load * 1000 / static_cast<double>(jobs));
    }
    return 0;
}
