#include "config/Number.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace kennly {

std::int32_t NumberFromText(const char* text) {
    constexpr int decimal = 10;
    // `long` would saturate at limits that differ between word sizes; these 64 bits never do.
    const long long number = std::strtoll(text, nullptr, decimal);
    constexpr long long lowest = std::numeric_limits<std::int32_t>::min();
    constexpr long long highest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(number, lowest, highest));
}

}  // namespace kennly
