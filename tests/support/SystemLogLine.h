#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace kennly::test {

/// One message to the system log, as its datagram said it.
///
/// `facility` and `severity` are the values of the macros (LOG_LOCAL4, LOG_ERR), both -1 when the
/// datagram has no valid priority. `identity` is the part before the colon, without a process
/// number in brackets; empty when there is none. `text` is all that follows, byte for byte, with
/// the newline at its end if the datagram had one.
struct LogLine {
    int facility = -1;
    int severity = -1;
    std::string identity;
    std::string text;
    std::chrono::steady_clock::time_point arrival;
    std::chrono::system_clock::time_point wallArrival;
};

/// Takes a datagram apart: "<priority>Mmm dd hh:mm:ss identity[pid]: text".
///
/// Each of priority, time, identity and process number may be missing or malformed; what cannot be
/// read as one of them stays in the text. Leaves both arrival times alone.
LogLine ParseLogLine(std::string_view datagram);

/// One printable line for each message, with its time in seconds since the first one.
///
/// Bytes outside printable ASCII, and the backslash, are written as escapes.
std::string DescribeLog(const std::vector<LogLine>& lines);

}  // namespace kennly::test
