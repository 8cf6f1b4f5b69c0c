#pragma once

#include <string>
#include <vector>

namespace kennly {

/// A line that the daemon would send to the system log, without the process id and the role.
struct DaemonLine {
    bool isError = false;  // priority LOG_ERR, else LOG_DEBUG
    std::string text;
};

/// What the daemon's own units have had to say in this process since the last call, in order.
///
/// The source of this unit defines the operations of main/Log in the place of those that write to
/// the system log: a program that links it sends nothing there. Any thread may call this one.
std::vector<DaemonLine> TakeDaemonLines();

}  // namespace kennly
