#include <cstdlib>
#include <stdexcept>

#include "daemon/CommandCost.h"
#include "daemon/Measurements.h"
#include "daemon/ProcessorTime.h"
#include "support/ProcessView.h"

namespace kennly::bench {

namespace {

constexpr int Jobs = 1000;
constexpr int Delay = 60;
constexpr int Threads = 3 * Jobs + 1;
constexpr double Settling = 2;  // longer than all commands of a round take

double ProportionalKiB(pid_t process) {
    return std::atof(test::FieldOf(process, "smaps_rollup", "Pss").c_str());
}

int ZombiesIn(const Site& site) {
    int zombies = 0;
    for (const pid_t process : site.Inside().Processes()) {
        zombies += test::StatusField(process, "State").rfind('Z', 0) == 0 ? 1 : 0;
    }
    return zombies;
}

void ExpectThreads(pid_t process) {
    if (test::ThreadCount(process) != Threads) {
        throw std::runtime_error("not as many threads as there should be");
    }
}

// Of which there are no more than the threads, when there is nothing else.
int ThreadsDescriptorsAndZombies(const Site& site, pid_t daemon) {
    ExpectThreads(daemon);
    return Threads + static_cast<int>(test::OpenDescriptors(daemon).size()) + ZombiesIn(site);
}

double MemoryOfSleepers() {
    const Site site;
    const auto floor = site.StartFloor({"sleepers", std::to_string(Threads - 1)});
    Wait(Settling);
    ExpectThreads(floor->Pid());
    return ProportionalKiB(floor->Pid());
}

}  // namespace

void MeasureIdle(const Effort& effort, Figures& figures) {
    Figure time = {"idle time", Jobs, "ms", {}};
    Figure memory = {"idle memory", Jobs, "KiB", {}};
    Figure objects = {"idle objects", Jobs, "", {}};
    for (int round = 0; round < effort.rounds; ++round) {
        const double sleepers = MemoryOfSleepers();
        const Site site;
        site.Configure(CommandJobs(Jobs, Delay));
        const auto daemon = site.StartDaemon();
        site.AwaitCount(Jobs);
        Wait(Settling);
        const double before = ProcessorTime(daemon->Pid());
        memory.rounds.push_back({ProportionalKiB(daemon->Pid()), sleepers});
        objects.rounds.push_back(
            {static_cast<double>(ThreadsDescriptorsAndZombies(site, daemon->Pid())), Threads});
        Wait(Delay - 2 * Settling);  // without looking, which would keep the machine awake
        site.AwaitCount(std::int64_t{2} * Jobs);
        Wait(Settling);
        site.ExpectNoError();
        const double spent = ProcessorTime(daemon->Pid()) - before;
        const Cost floor = CostOfLoop();  // beside the commands that it is for
        time.rounds.push_back({spent * 1e3, floor.seconds * Jobs * 1e3});
    }
    figures.Add(time);
    figures.Add(memory);
    figures.Add(objects);
}

}  // namespace kennly::bench
