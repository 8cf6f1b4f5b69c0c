#pragma once

#include <string>

namespace kennly::bench {

// Where things lie in a sandbox.

inline const std::string DataDirectory = "/opt/qrv/data/kennly/";
inline const std::string CountFile = DataDirectory + "count";  // a byte for each command that ran
inline const std::string WatchedFile = DataDirectory + "watched";
inline const std::string LooksFile = DataDirectory + "looks";  // how often that was looked at

}  // namespace kennly::bench
