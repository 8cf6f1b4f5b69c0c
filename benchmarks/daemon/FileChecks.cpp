#include <stdexcept>

#include "daemon/Measurements.h"
#include "daemon/ProcessorTime.h"
#include "daemon/SharedCount.h"
#include "daemon/Site.h"

namespace kennly::bench {

namespace {

std::string FileJobs(int jobs) {
    return Configuration(jobs, [](int) {
        return JobText{R"(<check type="CheckForNoFileChange" delay="1"><param value=")" +
                       WatchedFile + R"("/><param value="1000000"/></check>)"};
    });
}

void AwaitLooks(const SharedCount& looks, std::int64_t count) {
    const auto start = Clock::now();
    while (looks.Value() < count) {
        if (SecondsSince(start) > LongestWaitSeconds) {
            throw std::runtime_error("the file is not looked at");
        }
        Wait(0.01);
    }
}

// What one look takes, in seconds of processor time.
struct LookCost {
    double all = 0;
    double workers = 0;  // without the first thread
};

// Half a second behind a round of looks: a measurement begins and ends at the same place of a
// round.
void AwaitRounds(const SharedCount& looks, std::int64_t jobs, std::int64_t rounds) {
    AwaitLooks(looks, (looks.Value() / jobs + rounds) * jobs);
    Wait(0.5);
}

LookCost CostOfLooks(const Site& site, pid_t process, int jobs, int rounds) {
    const SharedCount looks(site.Inside().PathInside(LooksFile));
    AwaitRounds(looks, jobs, 2);  // the start is over then
    const std::int64_t first = looks.Value();
    const LookCost before = {OwnProcessorTime(process), ProcessorTimeOfWorkers(process)};
    AwaitRounds(looks, jobs, rounds);
    const auto count = static_cast<double>(looks.Value() - first);
    const LookCost after = {OwnProcessorTime(process), ProcessorTimeOfWorkers(process)};
    site.ExpectNoError();
    return {(after.all - before.all) / count, (after.workers - before.workers) / count};
}

LookCost CostInDaemon(int jobs, int rounds) {
    const Site site;
    site.WriteFile(WatchedFile, "");
    site.Configure(FileJobs(jobs));
    const auto daemon = site.StartDaemon(KENNLY_COUNTED_STAT);
    return CostOfLooks(site, daemon->Pid(), jobs, rounds);
}

LookCost CostInPacedPairs(int jobs, int rounds) {
    const Site site;
    site.WriteFile(WatchedFile, "");
    const auto floor = site.StartFloor({"paced-looks", std::to_string(jobs)});
    return CostOfLooks(site, floor->Pid(), jobs, rounds);
}

LookCost CostInOnePair() {
    const Site site;
    site.WriteFile(WatchedFile, "");
    const auto floor = site.StartFloor({"looks"});
    return CostOfLooks(site, floor->Pid(), 1000, 20);
}

void MeasureWith(int jobs, int rounds, const Effort& effort, Figures& figures) {
    Figure bare = {"file check", jobs, "us", {}};
    Figure paced = {"file check, paced", jobs, "us", {}};
    for (int round = 0; round < effort.rounds; ++round) {
        const LookCost daemon = CostInDaemon(jobs, rounds);
        bare.rounds.push_back({daemon.all * 1e6, CostInOnePair().all * 1e6});
        paced.rounds.push_back(
            {daemon.workers * 1e6, CostInPacedPairs(jobs, rounds).workers * 1e6});
    }
    figures.Add(bare);
    figures.Add(paced);
}

}  // namespace

void MeasureFileChecks(const Effort& effort, Figures& figures) {
    if (effort.full) {
        MeasureWith(10, 10, effort, figures);
        MeasureWith(100, 5, effort, figures);
    }
    MeasureWith(1000, 2, effort, figures);
    MeasureWith(5000, 2, effort, figures);
}

}  // namespace kennly::bench
