#include "ctl/Time.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace kennly {

std::string Duration(double seconds) {
    struct Unit {
        double seconds;
        const char* name;
    };
    constexpr std::array<Unit, 3> units = {{{86400, "d"}, {3600, "h"}, {60, "min"}}};
    const Unit* const unit = std::find_if(
        units.begin(), units.end(), [&](const Unit& each) { return seconds >= 2 * each.seconds; });
    if (unit != units.end()) {
        return std::to_string(std::llround(std::floor(seconds / unit->seconds))) + " " + unit->name;
    }
    constexpr double shownWithTenths = 10;
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), seconds < shownWithTenths ? "%.1f s" : "%.0f s",
                  seconds);
    return text.data();
}

std::string Moment(std::int64_t secondsSinceEpoch) {
    const auto time = static_cast<std::time_t>(secondsSinceEpoch);
    std::tm parts = {};
    std::array<char, 64> text = {};
    if (localtime_r(&time, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(secondsSinceEpoch);
    }
    return text.data();
}

}  // namespace kennly
