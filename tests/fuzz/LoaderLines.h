#pragma once

#include <string>
#include <vector>

#include "support/RecordedLog.h"

namespace kennly::test {

/// What has been logged since the last call, in order, without process id, role and newline. Ends
/// the process, as a finding, at a line whose begin or end is not what every line has.
std::vector<RecordedLine> TakeLines();

/// Whether loading a file may log this line: one of the texts that the README lists, at its
/// priority, and of the reasons for a failed load one that the parser or the program can give. That
/// something threw is not among them: there is memory enough for every file of the fuzzer.
bool MayBeLogged(const RecordedLine& line);

/// Ends the process with a message; the fuzzer keeps the input.
[[noreturn]] void Found(const std::string& what);

}  // namespace kennly::test
