#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "storm/Storm.h"
#include "support/ProcessView.h"

namespace kennly::test {

/// Watches what the storm's own program holds on to: a storm that leaks would not last.
class Leftovers {
public:
    /// Expects as many descriptors as when this object was made, and no process of ours.
    void ExpectNone(Figures& figures) const {
        EXPECT_EQ(OpenDescriptors(getpid()).size(), descriptors_) << "of the storm itself";
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process of the storm is left";
        EXPECT_EQ(errno, ECHILD);
        figures.Tell("resident memory of the storm itself", StatusField(getpid(), "VmRSS"));
    }

private:
    const std::size_t descriptors_ = OpenDescriptors(getpid()).size();
};

}  // namespace kennly::test
