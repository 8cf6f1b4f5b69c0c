#include "daemon/CommandCost.h"
#include "daemon/Measurements.h"

namespace kennly::bench {

void MeasureStart(const Effort& effort, Figures& figures) {
    for (const int jobs : {1000, 5000}) {
        Figure figure = {"start", jobs, "s", {}};
        Figure besideThreads = {"start, threads", jobs, "s", {}};
        for (int round = 0; round < effort.rounds; ++round) {
            const Cost floor = CostOfLoop();
            const double seconds = SecondsToStart(jobs);
            figure.rounds.push_back({seconds, jobs / floor.perSecond});
            if (effort.full) {
                besideThreads.rounds.push_back({seconds, SecondsToStartThreads(jobs)});
            }
        }
        figures.Add(figure);
        if (effort.full) {
            figures.Add(besideThreads);
        }
    }
}

}  // namespace kennly::bench
