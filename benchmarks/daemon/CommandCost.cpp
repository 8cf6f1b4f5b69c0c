#include "daemon/CommandCost.h"

#include "daemon/ProcessorTime.h"

namespace kennly::bench {

namespace {

constexpr int NoSecondCheck = 3600;  // as a delay, in seconds

// The next count in the middle of a round: there, most of its commands run, and the few that come
// late decide nothing.
std::int64_t MiddleOfNextRound(const Site& site, int jobs) {
    return (site.Count() / jobs + 1) * jobs + jobs / 2;
}

}  // namespace

Cost CostOfRounds(const Site& site, pid_t process, int jobs, double seconds) {
    const std::int64_t firstMiddle = MiddleOfNextRound(site, jobs);
    site.AwaitCount(firstMiddle);
    const auto start = Clock::now();
    const double before = ProcessorTime(process);
    const std::int64_t first = site.Count();
    Wait(seconds);
    const std::int64_t lastMiddle = MiddleOfNextRound(site, jobs);
    site.AwaitCount(lastMiddle);
    const double passed = SecondsSince(start);
    const double time = ProcessorTime(process) - before;
    const std::int64_t last = site.Count();  // some have run since the middle
    site.ExpectNoError();
    return {time / static_cast<double>(last - first),
            static_cast<double>(lastMiddle - firstMiddle) / passed};
}

Cost CostOfLoop() {
    constexpr int warmingUp = 100;
    constexpr double seconds = 2;
    const Site site;
    const auto loop = site.StartFloor({"commands", CountedCommand()});
    site.AwaitCount(warmingUp);
    return CostOfRounds(site, loop->Pid(), 1, seconds);
}

std::unique_ptr<test::SandboxProcess> StartPacedThreads(const Site& site, int jobs,
                                                        int pauseSeconds) {
    return site.StartFloor(
        {"paced-commands", std::to_string(jobs), std::to_string(pauseSeconds), CountedCommand()});
}

double SecondsToStart(int jobs) {
    const Site site;
    site.Configure(CommandJobs(jobs, NoSecondCheck));
    const auto start = Clock::now();
    const auto daemon = site.StartDaemon();
    site.AwaitCount(jobs);
    const double seconds = SecondsSince(start);
    site.ExpectNoError();
    return seconds;
}

double SecondsToStartThreads(int jobs) {
    const Site site;
    const auto start = Clock::now();
    const auto threads = StartPacedThreads(site, jobs, NoSecondCheck);
    site.AwaitCount(jobs);
    return SecondsSince(start);
}

std::string CommandJobs(int jobs, int delay) {
    return Configuration(jobs,
                         [delay](int) { return JobText{CommandCheck(CountedCommand(), delay)}; });
}

}  // namespace kennly::bench
