#include "daemon/CommandCost.h"
#include "daemon/Measurements.h"

namespace kennly::bench {

namespace {

constexpr int Delay = 1;

Cost CostOfDaemon(int jobs, double seconds) {
    const Site site;
    site.Configure(CommandJobs(jobs, Delay));
    const auto daemon = site.StartDaemon();
    site.AwaitCount(jobs);  // the start is not what is measured
    return CostOfRounds(site, daemon->Pid(), jobs, seconds);
}

// Of threads that do nothing but pause and run the command.
Cost CostOfPacedThreads(int jobs, double seconds) {
    const Site site;
    const auto threads = StartPacedThreads(site, jobs, Delay + 1);  // the poll takes a second
    site.AwaitCount(jobs);
    return CostOfRounds(site, threads->Pid(), jobs, seconds);
}

void MeasureWith(int jobs, double seconds, const Effort& effort, Figures& figures) {
    Figure time = {"command check", jobs, "us", {}};
    Figure pacedTime = {"command check, paced", jobs, "us", {}};
    const bool isBusy = jobs > 1000;  // the commands of a round take longer than its pauses
    Figure rate = {isBusy ? "check capacity" : "check rate", jobs, "1/s", {}};
    for (int round = 0; round < effort.rounds; ++round) {
        const Cost floor = CostOfLoop();
        const Cost daemon = CostOfDaemon(jobs, seconds);
        time.rounds.push_back({daemon.seconds * 1e6, floor.seconds * 1e6});
        if (effort.full) {
            const Cost paced = CostOfPacedThreads(jobs, seconds);
            pacedTime.rounds.push_back({daemon.seconds * 1e6, paced.seconds * 1e6});
        }
        constexpr double cycleSeconds = 2;  // a pause and a poll
        rate.rounds.push_back({daemon.perSecond, isBusy ? floor.perSecond : jobs / cycleSeconds});
    }
    figures.Add(time);
    if (effort.full) {
        figures.Add(pacedTime);
    }
    figures.Add(rate);
}

}  // namespace

void MeasureCommandChecks(const Effort& effort, Figures& figures) {
    if (effort
            .full) {  // long, because the kernel tells the commands' time in hundredths of a second
        MeasureWith(10, 40, effort, figures);
    }
    MeasureWith(100, 8, effort, figures);
    MeasureWith(1000, 9, effort, figures);
    MeasureWith(5000, 11, effort, figures);
}

}  // namespace kennly::bench
