#include <algorithm>
#include <random>
#include <vector>

#include "daemon/CommandCost.h"
#include "daemon/Measurements.h"
#include "daemon/Site.h"

namespace kennly::bench {

namespace {

constexpr int Delay = 1;
constexpr double PauseAfterLoad = 5;  // in which the daemon does not look at the configuration

std::string CountOf(int generation) {
    return CountFile + "-" + std::to_string(generation);
}

std::string JobsOf(int generation, int jobs) {
    return Configuration(jobs, [generation](int) {
        return JobText{CommandCheck(CountedCommand(CountOf(generation)), Delay)};
    });
}

double MedianOfStarts(int jobs, int count) {
    std::vector<double> starts(static_cast<std::size_t>(count));
    for (double& start : starts) {
        start = SecondsToStart(jobs);
    }
    std::sort(starts.begin(), starts.end());
    return starts[starts.size() / 2];
}

// From a change of the configuration to the end of the last new job's first check, in seconds.
double SecondsToReload(const Site& site, int generation, int jobs) {
    const std::string text = JobsOf(generation, jobs);
    const auto start = Clock::now();
    site.Configure(text);
    site.AwaitCount(jobs, CountOf(generation));
    return SecondsSince(start);
}

// One daemon, loaded so many times in a row. It is to take no longer than the pause and the polls
// that the running jobs end with, and what a start takes.
void MeasureReloadsOf(int jobs, int reloads, const Effort& effort, Figures& figures) {
    std::mt19937 random(std::random_device{}());
    std::uniform_real_distribution<double> pause(0, 1);
    const double floor = Delay + 2 + MedianOfStarts(jobs, effort.rounds);
    const Site site;
    site.Configure(JobsOf(0, jobs));
    const auto daemon = site.StartDaemon();
    site.AwaitCount(jobs, CountOf(0));
    Figure figure = {"reload", jobs, "s", {}};
    for (int generation = 1; generation <= reloads; ++generation) {
        Wait(PauseAfterLoad + pause(random));
        figure.rounds.push_back({SecondsToReload(site, generation, jobs), floor});
    }
    site.ExpectNoError();
    figures.Add(figure);
}

}  // namespace

void MeasureReload(const Effort& effort, Figures& figures) {
    MeasureReloadsOf(1000, effort.reloads, effort, figures);
    MeasureReloadsOf(5000, effort.largeReloads, effort, figures);
}

}  // namespace kennly::bench
