#pragma once

#include <string>
#include <vector>

namespace kennly::test {

/// Stands in for open(): while `observed` is set, keeps how each file was opened.
///
/// Threads: for tests that open files on one thread.
struct ObservedOpening {
    struct File {
        std::string path;  // as it was asked for
        bool opened;
        bool closesOnExecute;  // from the very start
        int flags;             // as they were asked for
    };

    bool observed = false;
    std::string redirectedTo;  // opened instead of the path asked for, unless empty
    std::vector<File> files;
};
extern ObservedOpening opening;

}  // namespace kennly::test
