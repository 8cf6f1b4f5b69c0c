#include "daemon/Figures.h"

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace kennly::bench {

namespace {

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
    std::printf("%s, %d jobs\n", figure.name.c_str(), figure.jobs);
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
