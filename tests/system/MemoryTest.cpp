#include <algorithm>

#include "system/DaemonFixture.h"

namespace kennly::test {

/// The program with jobs of all kinds, and with pauses two hundred times shorter.
class MemoryTest : public DaemonTest {
protected:
    static constexpr int JobsOfEachKind = 3;
    static constexpr int JobCount = 7 * JobsOfEachKind;

    void SetUp() override {
        if (RunsUnderSanitizer()) {
            GTEST_SKIP() << "with a sanitizer, what has been freed is kept";
        }
        DaemonTest::SetUp();
    }

    /// One job for each kind of check and what comes of it.
    static std::string JobsOfAllKinds(const std::string& name) {
        const std::string often = "delay=\"10\"";
        const std::vector<std::string> checks = {
            Check("true", often),
            Check("false", often),
            CheckOfType("CheckCommandResult", {}, often),
            CheckOfType("CheckForFileChange", {MainConfiguration}, often),
            CheckOfType("CheckForNoFileChange", {PathOf("old"), "1"}, often),
            CheckOfType("CheckSocketListening", {"localhost", "1"}, often),
            CheckOfType("CheckListeningSocketResponse", {"localhost", "1"}, often)};
        const std::string block = "blockaction=\"" + PathOf("block") + "\"";
        std::string jobs;
        for (const std::string& check : checks) {
            const std::string number = std::to_string(&check - checks.data());
            jobs += Job(name + number, check + Remedy("true", block, "ExecuteAlways"),
                        "maxerrors=\"100\"");
        }
        return jobs;
    }

    static std::string AllJobs() {
        std::string jobs = Marker("marker");
        for (int number = 0; number < JobsOfEachKind; ++number) {
            jobs += JobsOfAllKinds(std::string(1, static_cast<char>('a' + number)));
        }
        return Configuration(jobs);
    }

    void StartWithShortPauses() {
        PutFile(PathOf("old"), 1600000000);
        Configure(AllJobs());
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_FAILING_MEMORY},
                             {"SHORTER_SLEEP", "200"},
                             {"MALLOC_ARENA_MAX", "1"}};  // else it varies with who frees what
        StartDaemon({"-f"}, start);
    }

    /// Replaces the file by one with the same content, each time as soon as the one before has been
    /// loaded, until the jobs of the last one run.
    void Reload(int times) {
        for (int time = 0; time < times; ++time) {
            Configure(AllJobs());
            ASSERT_TRUE(WaitForLoads(++loads)) << "load " << loads;
        }
        ASSERT_TRUE(WaitForThreadsOf(JobCount));
    }

    bool WaitForLoads(std::ptrdiff_t count) const {
        const std::string text = LoadedText("marker");
        return sandbox->WaitForLog(
            [&](const std::vector<LogLine>& lines) {
                return std::count_if(lines.begin(), lines.end(), [&](const LogLine& recorded) {
                           return recorded.text.find(text) != std::string::npos;
                       }) >= count;
            },
            Generous);
    }

    /// The memory that it has taken for itself. To the page, which VmRSS is not with every kernel.
    int OwnKiB() const {
        return std::stoi(FieldOf(daemon->Pid(), "smaps_rollup", "Anonymous")) +
               std::stoi(FieldOf(daemon->Pid(), "smaps_rollup", "Swap"));
    }

    std::ptrdiff_t loads = 1;
};

TEST_F(MemoryTest, ThreadsAndDescriptorsAreTheSameAfterHundredsOfReloads) {
    constexpr int mostKiB = 100;  // half a kilobyte a reload
    StartWithShortPauses();
    ASSERT_TRUE(WaitForLoads(1));
    ASSERT_NO_FATAL_FAILURE(Reload(20));
    const int before = OwnKiB();

    ASSERT_NO_FATAL_FAILURE(Reload(200));

    const int after = OwnKiB();
    std::cout << "    " << before << " KiB before, " << after << " KiB after" << std::endl;
    EXPECT_LE(after, before + mostKiB);
    EXPECT_TRUE(WaitUntil([this] { return HasOnlyTheLogOpen(daemon->Pid()); }, Generous));
    StopDaemon();
}

}  // namespace kennly::test
