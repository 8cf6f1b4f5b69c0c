#include "daemon/Figures.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kennly::bench {

namespace {

// In ascending order.
template <typename Value>
std::vector<double> OfRounds(const Figure& figure, Value value) {
    std::vector<double> values;
    for (const Round& round : figure.rounds) {
        values.push_back(value(round));
    }
    std::sort(values.begin(), values.end());
    return values;
}

double Median(const std::vector<double>& ascending) {
    return ascending.at(ascending.size() / 2);
}

nlohmann::json ToJson(const Figure& figure) {
    nlohmann::json rounds = nlohmann::json::array();
    for (const Round& round : figure.rounds) {
        rounds.push_back({{"measured", round.measured}, {"floor", round.floor}});
    }
    return {{"name", figure.name},
            {"jobs", figure.jobs},
            {"unit", figure.unit},
            {"rounds", std::move(rounds)}};
}

}  // namespace

void Figures::Add(const Figure& figure) {
    const auto measured = OfRounds(figure, [](const Round& round) { return round.measured; });
    const auto floors = OfRounds(figure, [](const Round& round) { return round.floor; });
    const auto ratios =
        OfRounds(figure, [](const Round& round) { return round.measured / round.floor; });
    std::printf("%-22s %5d jobs: %9.2f %-3s  floor %9.2f  ratio %.3f (%.3f to %.3f)\n",
                figure.name.c_str(), figure.jobs, Median(measured), figure.unit.c_str(),
                Median(floors), Median(ratios), ratios.front(), ratios.back());
    std::fflush(stdout);
    figures_.push_back(figure);
}

void Figures::Write(const std::string& path) const {
    nlohmann::json all = nlohmann::json::array();
    for (const Figure& figure : figures_) {
        all.push_back(ToJson(figure));
    }
    std::ofstream file(path);
    file << all.dump(1) << "\n";
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace kennly::bench
