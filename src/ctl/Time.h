#pragma once

#include <cstdint>
#include <string>

namespace kennly {

/// A length of time, as people say it: "0.4 s", "12 s", "3 min", "5 h", "2 d". Any thread may call
/// it.
std::string Duration(double seconds);

/// A moment in local time: "2026-11-22 05:40:00". Any thread may call it.
std::string Moment(std::int64_t secondsSinceEpoch);

}  // namespace kennly
