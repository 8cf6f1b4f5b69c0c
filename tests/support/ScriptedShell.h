#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kennly::test {

/// Stands in for system(): records each command line and, while `scripted` is set, returns `result`
/// with errno at `error` instead of running it. Calls `whenCalled` before either.
///
/// Threads: for tests that run commands on one thread.
struct ScriptedShell {
    bool scripted = false;
    int result = 0;
    int error = 0;
    std::vector<std::string> commandLines;
    std::function<void()> whenCalled;
};
extern ScriptedShell shell;

}  // namespace kennly::test
