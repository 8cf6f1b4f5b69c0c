#pragma once

#include <string>
#include <vector>

#include "status/Snapshot.h"

namespace kennly {

/// Something about the running daemon that it never reports itself.
struct Problem {
    enum class Level { Note, Warning, Critical };

    Level level = Level::Warning;
    std::string code;  // lower case with hyphens; never changes its meaning
    std::string text;  // one line: what is wrong, and what to do
};

/// "note", "warning" or "critical". Any thread may call it.
const char* NameOf(Problem::Level level);

/// The worst level; Note when there is no problem. Any thread may call it.
Problem::Level WorstOf(const std::vector<Problem>& problems);

/// What is wrong at the moment of the snapshot. Some of it is wrong only if it lasts: processes
/// that start and end, and threads of a reload, look like this for an instant. `watcherExpected`: a
/// watcher tree that does not run is one of them. Any thread may call it.
std::vector<Problem> FindProblems(const Snapshot& snapshot, bool watcherExpected);

/// Those of `now` that `before` has too, by their codes and trees. Any thread may call it.
std::vector<Problem> ThatLast(const std::vector<Problem>& before, const std::vector<Problem>& now);

}  // namespace kennly
