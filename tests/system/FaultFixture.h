#pragma once

#include <algorithm>

#include "system/TreeFixture.h"

namespace kennly::test {

// Not in the data directory: that may be full.
inline const std::string FaultsPath = "/dev/faults";
inline const std::string ClockShiftPath = "/dev/clock-shift";

/// The real program, some of whose calls fail for a time.
class FaultTest : public BackgroundTest {
protected:
    /// Starts a daemon whose calls fail as Fail() says; none yet.
    void StartFaultyDaemon() { StartDaemon({"-f"}, Faulty()); }
    /// Starts a tree in which those of the parent fail. Its child executes the program anew.
    void StartTreeWithFaultyParent() { StartTrees({}, MainTree, Faulty()); }

    /// From now on the calls fail for which there is a Fault, and no others.
    void Fail(const std::string& faults) { PutFile(FaultsPath, 0, faults); }
    void FailNoLonger() { ASSERT_TRUE(sandbox->RemoveFile(FaultsPath)); }

    /// A call fails with this error when its path or its command contains the text.
    static std::string Fault(const std::string& call, int error, const std::string& text) {
        return call + " " + std::to_string(error) + " " + text + "\n";
    }

    /// How often it has failed for this text.
    std::size_t FailuresOf(const std::string& call, const std::string& text) const {
        std::istringstream lines(sandbox->ReadFile(FaultsPath + ".fired").value_or(""));
        std::size_t count = 0;
        for (std::string line; std::getline(lines, line);) {
            count += line == call + " " + text ? 1 : 0;
        }
        return count;
    }
    bool WaitForMoreFailures(const std::string& call, const std::string& text,
                             std::size_t count) const {
        const std::size_t expected = FailuresOf(call, text) + count;
        return WaitUntil([&] { return FailuresOf(call, text) >= expected; }, Generous);
    }

    /// Configures three healthy jobs.
    void ConfigureThree(const std::string& name) {
        std::string jobs;
        for (const std::string& job : ThreeOf(name)) {
            jobs += Job(job, Check(Note(job) + "; true", "delay=\"1\"") + Remedy("true"));
        }
        Configure(Configuration(jobs));
    }
    /// Whether all of them have run twice within the limit.
    bool WaitForThree(const std::string& name) const {
        const std::vector<std::string> jobs = ThreeOf(name);
        return std::all_of(jobs.begin(), jobs.end(),
                           [this](const std::string& job) { return WaitForTraces(job, 2); });
    }
    /// Whether none of them has ever run.
    bool NoneOfThree(const std::string& name) const {
        const std::vector<std::string> jobs = ThreeOf(name);
        return std::all_of(jobs.begin(), jobs.end(),
                           [this](const std::string& job) { return TracesOf(job).empty(); });
    }
    /// Expects that a new configuration is taken up, and that all its jobs run.
    void ExpectRecovery() {
        ConfigureThree("good");
        EXPECT_TRUE(WaitForThree("good"));
    }

private:
    static StartOptions Faulty() {
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_FAULTY_CALLS},
                             {"FAULTS", FaultsPath},
                             {"CLOCK_SHIFT", ClockShiftPath}};
        return start;
    }
    static std::vector<std::string> ThreeOf(const std::string& name) {
        return {name + "-a", name + "-b", name + "-c"};
    }
};

}  // namespace kennly::test
