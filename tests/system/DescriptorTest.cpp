#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;

/// Whether a command that the daemon starts finds any of its descriptors open. Each command is a
/// shell that lists what it has itself.
class DescriptorTest : public DaemonTest {
protected:
    void SetUp() override {
        if (RunsUnderSanitizer()) {
            GTEST_SKIP() << "a sanitizer opens pipes of its own, which reach commands";
        }
        DaemonTest::SetUp();
    }

    static constexpr int CommandJobs = 120;
    static constexpr int FileJobs = 40;
    static constexpr std::size_t Checks = 1000;
    static constexpr std::chrono::seconds Limit{150};

    /// A shell command that appends the open descriptors of its shell to a trace. In parentheses:
    /// some shells open the trace themselves for a command that stands alone.
    static std::string Listing(const std::string& trace) {
        return "(ls -l /proc/$$/fd; echo listed) >>" + TracePath(trace);
    }

    static std::string Jobs() {
        std::string jobs;
        for (int i = 0; i < CommandJobs; ++i) {
            jobs += Job("command-" + std::to_string(i),
                        Check("exec 9</dev/null; " + Listing("check") + "; exit 1", "delay=\"1\"") +
                            Remedy("sh -c '" + Listing("remedy") + "; true'", "", "ExecuteAlways"));
        }
        for (int i = 0; i < FileJobs; ++i) {
            jobs += Job("change-" + std::to_string(i),
                        CheckOfType("CheckForFileChange", {ChildHeartbeat}) + Remedy("true"));
        }
        return jobs;
    }

    std::vector<std::string> LinesOf(const std::string& trace) const {
        std::istringstream content(sandbox->ReadFile(TracePath(trace)).value_or(""));
        std::vector<std::string> lines;
        for (std::string line; std::getline(content, line);) {
            lines.push_back(line);
        }
        return lines;
    }
    std::size_t ListingsIn(const std::string& trace) const {
        const std::vector<std::string> lines = LinesOf(trace);
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), "listed"));
    }
    bool WaitForListings(const std::string& trace, std::size_t count) const {
        return WaitUntil([&] { return ListingsIn(trace) >= count; }, Limit);
    }

    /// What was open, as "number -> target". Left out is the configuration file, which the parser's
    /// library opens: a command that starts in the instant of a load may find it open for reading.
    std::vector<std::string> FoundOpenIn(const std::string& trace) const {
        std::vector<std::string> found;
        for (const std::string& line : LinesOf(trace)) {
            const std::size_t arrow = line.find(" -> ");
            if (arrow == std::string::npos) {
                continue;
            }
            const bool readOnly = line.rfind("lr-x", 0) == 0;
            if (!readOnly || line.substr(arrow + 4) != MainConfiguration) {
                found.push_back(line.substr(line.rfind(' ', arrow - 1) + 1));
            }
        }
        return found;
    }
};

TEST_F(DescriptorTest, FindsNoneOfTheDaemonOpenInAnyCommand) {
    Configure(Configuration(Marker("loaded") + Jobs()));
    StartOptions start;
    start.environment = {{"LD_PRELOAD", KENNLY_SLOW_CLOSE}};
    StartDaemon({"-f"}, start);

    for (std::size_t loads = 1; loads <= 3; ++loads) {  // records are written and read meanwhile
        ASSERT_TRUE(WaitForLine(Loaded("loaded"), loads));
        ASSERT_TRUE(WaitForListings("check", Checks * loads / 3));
        fileTime += 10;
        ASSERT_TRUE(loads == 3 || sandbox->SetFileTime(MainConfiguration, fileTime));
    }
    ASSERT_TRUE(WaitForListings("remedy", Checks / 2));

    StopDaemon(Generous);  // each close takes its time
    EXPECT_TRUE(sandbox->FileExists(RecordPath("change-0")));
    // The check has opened its one itself, and a remedy's three are the shell's.
    const std::vector<std::string> inChecks = FoundOpenIn("check");
    EXPECT_THAT(inChecks, Each("9 -> /dev/null"));
    EXPECT_GE(inChecks.size(), Checks);
    const std::vector<std::string> inRemedies = FoundOpenIn("remedy");
    EXPECT_THAT(inRemedies, Each(AnyOf("0 -> /dev/null", "1 -> /dev/null", "2 -> /dev/null")));
    EXPECT_GE(inRemedies.size(), Checks / 2 * 3);
}

}  // namespace kennly::test
