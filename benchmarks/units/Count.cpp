// Uses one unit so many times and does nothing else, so that an instruction counter can tell what
// it takes: kennly-bench-count UNIT TIMES.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include "units/HandOver.h"
#include "units/Loading.h"
#include "units/Registry.h"

namespace {

using namespace kennly::bench;

constexpr int Jobs = 1000;

template <typename Operation>
bool Repeat(int times) {
    Operation operation(Jobs);
    bool succeeded = true;
    for (int i = 0; i < times; ++i) {
        succeeded = operation.Once() && succeeded;
    }
    return succeeded;
}

template <typename Worker>
bool RepeatHandOver(int times) {
    Worker worker;
    for (int i = 0; i < times; ++i) {
        HandOver(worker, 1);
    }
    return true;
}

const std::map<std::string, std::function<bool(int)>> Units = {
    {"load", Repeat<WholeLoad>},
    {"load-floor", Repeat<ParserAlone>},
    {"registry", Repeat<InAndOut<kennly::TaskRegistry>>},
    {"registry-floor", Repeat<InAndOut<LockedMap>>},
    {"pool", RepeatHandOver<PoolWorker>},
    {"pool-floor", RepeatHandOver<DequeWorker>},
};

}  // namespace

int main(int argc, char** argv) {
    const auto unit = argc == 3 ? Units.find(argv[1]) : Units.end();
    if (unit == Units.end()) {
        std::fprintf(stderr, "usage: kennly-bench-count UNIT TIMES\n");
        return 2;
    }
    return unit->second(std::atoi(argv[2])) ? 0 : 1;
}
