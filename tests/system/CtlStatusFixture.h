#pragma once

#include <algorithm>

#include "system/CtlFixture.h"

namespace kennly::test {

/// What "kennlyctl status" shows of real trees: two jobs in the main one, one in the watcher's.
class CtlStatusFixture : public CtlThreadsTest {
protected:
    void SetUp() override {
        CtlThreadsTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_TRUE(sandbox);
        Configure(Configuration(Healthy("beats")), WatcherConfiguration);
        Configure(Configuration(Healthy("web") + Healthy("mail")));
    }

    /// Starts the main tree, and waits until it is well.
    void StartMainTree() {
        StartTrees({}, MainTree);
        ASSERT_TRUE(WaitForTraces("web", 2));
    }
    /// The same for both.
    void StartBothTrees() {
        StartTrees({"-w"}, BothTrees);
        ASSERT_TRUE(WaitForTraces("web", 2));
        ASSERT_TRUE(WaitForTraces("beats", 2));
    }

    /// Waits until it is one of the problems.
    bool WaitForProblem(const std::string& code) const {
        return WaitForStatus([&](const nlohmann::json& status) {
            const std::vector<std::string> problems = ProblemsIn(status);
            return std::find(problems.begin(), problems.end(), code) != problems.end();
        });
    }
    Answer Plugin(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments = {"status", "--plugin"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Ctl(arguments);
    }
    std::string TextOfStatus() const { return Ctl({"status"}).out; }
};

}  // namespace kennly::test
