#pragma once

#include <string>
#include <vector>

namespace kennly::test {

/// One line as it would have reached the system log, without process id, role and newline.
struct LoaderLine {
    int priority = 0;
    std::string text;
};

bool operator==(const LoaderLine& a, const LoaderLine& b);

/// What has been logged since the last call, in order; the stand-in of syslog fills it. That ends
/// the process, as a finding, at a line whose begin or end is not what every line has.
std::vector<LoaderLine> TakeLines();

/// Whether loading a file may log this line: one of the texts that the README lists, at its
/// priority, and of the reasons for a failed load one that the parser or the program can give.
bool MayBeLogged(const LoaderLine& line);

/// Whether this line tells that something threw.
bool TellsOfAnException(const LoaderLine& line);

/// Ends the process with a message; the fuzzer keeps the input.
[[noreturn]] void Found(const std::string& what);

}  // namespace kennly::test
