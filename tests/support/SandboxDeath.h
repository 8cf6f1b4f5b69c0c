#pragma once

#include <sys/types.h>

namespace kennly::test {

/// The end of a process that had lost its parent, as the sandbox's first process was told of it.
struct Death {
    pid_t number;  // as the process saw it itself
    int status;    // the raw wait status, for WIFEXITED and the like
};

}  // namespace kennly::test
