#pragma once

#include <string>
#include <vector>

#include "status/Problems.h"
#include "status/Snapshot.h"

namespace kennly {

/// What the verb "status" shows, in whatever form.
struct StatusView {
    Snapshot snapshot;
    std::vector<Problem> problems;
    bool watcherExpected = false;  // the watcher tree is to run as well
};

}  // namespace kennly
