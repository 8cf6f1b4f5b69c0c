// Units of the daemon against their floors, by Google Benchmark. The floor of a benchmark has its
// name with "-floor" behind it, and the same argument.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <climits>

#include "units/HandOver.h"
#include "units/Loading.h"
#include "units/Registry.h"

namespace {

using namespace kennly::bench;

template <typename Operation>
void Repeat(benchmark::State& state) {
    Operation operation(state.range(0));
    operation.Once();  // the first load finds no jobs to replace
    for (auto _ : state) {
        if (!operation.Once()) {
            state.SkipWithError("refused");
        }
    }
}

template <typename Worker>
void RepeatHandOver(benchmark::State& state) {
    Worker worker;
    for (auto _ : state) {
        HandOver(worker, static_cast<int>(state.range(0)));
    }
}

// In the daemon, other things that lie above the jobs keep the memory of the old ones from going
// back to the system, from where the next load would have it back page by page.
void KeepFreedMemory() {
    constexpr int LargestOfHeap = 32 * 1024 * 1024;
    mallopt(M_MMAP_THRESHOLD, LargestOfHeap);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
}

}  // namespace

BENCHMARK_TEMPLATE(Repeat, WholeLoad)->Name("load")->Arg(1000)->Arg(10000)->Arg(50000);
BENCHMARK_TEMPLATE(Repeat, ParserAlone)->Name("load-floor")->Arg(1000)->Arg(10000)->Arg(50000);

BENCHMARK_TEMPLATE(Repeat, InAndOut<kennly::TaskRegistry>)->Name("registry")->Arg(1000)->Arg(5000);
BENCHMARK_TEMPLATE(Repeat, InAndOut<LockedMap>)->Name("registry-floor")->Arg(1000)->Arg(5000);

// The worker's processor time counts as well.
BENCHMARK_TEMPLATE(RepeatHandOver, PoolWorker)
    ->Name("pool")
    ->Arg(1)
    ->Arg(1000)
    ->MeasureProcessCPUTime();
BENCHMARK_TEMPLATE(RepeatHandOver, DequeWorker)
    ->Name("pool-floor")
    ->Arg(1)
    ->Arg(1000)
    ->MeasureProcessCPUTime();

int main(int argc, char** argv) {
    KeepFreedMemory();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
