#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <regex>
#include <utility>

#include "support/Lanes.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

namespace {

constexpr int Loads = 2;  // of a run in which nothing fails

const std::string ReportPath = PathOf("allocations");

std::string TraceOf(const std::string& job) {
    return PathOf("ran-" + job);
}

/// The names of the jobs of a load, one for each kind of check. A change is noticed once, what the
/// others are about at each look.
std::vector<std::string> JobsOf(int load) {
    const std::string number = std::to_string(load);
    return {"command" + number, "change" + number, "stale" + number};
}

void Remove(const std::string& job, std::vector<std::string>& jobs) {
    jobs.erase(std::remove(jobs.begin(), jobs.end(), job), jobs.end());
}

/// Each of the jobs fails at once and again every few seconds, and its remedy leaves a trace.
std::string ConfigurationOf(int load) {
    const std::string often = "delay=\"5\"";
    const std::vector<std::string> names = JobsOf(load);
    const std::string watched = PathOf("watched");
    const auto remedy = [](const std::string& name, const std::string& type) {
        return Remedy("touch " + TraceOf(name), "", type);
    };
    return Configuration(
        Job(names[0], Check("false", often) + remedy(names[0], "Execute"), "maxerrors=\"100\"") +
        Job(names[1],
            CheckOfType("CheckForFileChange", {watched}, often) + remedy(names[1], "Execute")) +
        Job(names[2], CheckOfType("CheckForNoFileChange", {watched, "1"}, often) +
                          remedy(names[2], "ExecuteAlways")));
}

/// What the program may log when memory runs out, without the beginning of the line.
const std::regex& KnownTexts() {
    static const std::regex texts(
        "[a-z]+[0-9] check failed - running remedy: touch \\S+|"
        "config file failed to load, error: Failed to open file|"
        "Configuration file parse error|"
        "exception while loading config|"
        "exception in ReloadConfigIfConfigHasChanged|"
        "check error - DogCheckCommandWatch::DoWatch\\(\\) catch\\(\\.\\.\\.\\)!! [a-z]+[0-9]|"
        "Exception while processing check for job: [a-z]+[0-9]|"
        "Exception processing remedy for job [a-z]+[0-9]|"
        "Exception in ProcessJob for job: [a-z]+[0-9]|"
        "Error creating Thread Pool|"
        "exception while (creating threadpool|tidying threadpool|assigning jobs)!|"
        "exception while new-ing DogConfig!|"
        "exception in parent_main or child_main!|"
        "exception while parsing arguments!");
    return texts;
}

/// Lines as the program writes them, and the one of a C library that has no memory for a line.
bool IsKnown(const LogLine& line) {
    static const std::regex shape("[0-9]+:(?:  |\\?\\?): (.*)\n");
    static const std::regex exit("[0-9]+:   exit\\([01]\\)");
    static const std::regex lost("out of memory \\[[0-9]+\\]");
    std::smatch parts;
    if (std::regex_match(line.text, parts, shape)) {
        const std::string text = parts[1];
        return std::regex_match(text, KnownTexts());
    }
    return std::regex_match(line.text, exit) || std::regex_match(line.text, lost);
}

/// What a failure costs, as the lines tell that follow it, the least first.
enum class Cost {
    Unknown,   // no line: at most one cycle of one job
    OneLine,   // for which the C library had no memory
    OneCycle,  // of the job that is named
    OneJob,    // the one that is named, until the next load
    OneLoad,   // which is made again
    AllJobs,   // until the next load
    Program
};

struct CostOfLine {
    Cost cost;
    const char* text;  // a part of the line
};
constexpr CostOfLine CostOfLines[] = {
    {Cost::OneLine, "out of memory ["},
    {Cost::OneCycle, "check error - "},
    {Cost::OneCycle, "Exception while processing check for job: "},
    {Cost::OneCycle, "Exception processing remedy for job "},
    {Cost::OneJob, "Exception in ProcessJob for job: "},
    {Cost::OneLoad, "config file failed to load"},
    {Cost::OneLoad, "Configuration file parse error"},
    {Cost::OneLoad, "exception while loading config"},
    {Cost::OneLoad, "exception in ReloadConfigIfConfigHasChanged"},
    {Cost::AllJobs, "Error creating Thread Pool"},
    {Cost::AllJobs, "exception while creating threadpool!"},
    {Cost::AllJobs, "exception while tidying threadpool!"},
    {Cost::AllJobs, "exception while assigning jobs!"},
    {Cost::Program, "exception while new-ing DogConfig!"},
    {Cost::Program, "exception in parent_main or child_main!"},
    {Cost::Program, "exception while parsing arguments!"},
};

Cost CostToldBy(const std::string& line) {
    for (const CostOfLine& row : CostOfLines) {
        if (line.find(row.text) != std::string::npos) {
            return row.cost;
        }
    }
    return Cost::Unknown;
}

/// The job that a line ends with.
std::string JobNamedBy(const std::string& line) {
    const std::size_t end = line.find_last_not_of('\n') + 1;
    const std::size_t begin = line.rfind(' ', end) + 1;
    return line.substr(begin, end - begin);
}

/// What became of the runs.
struct Counts {
    std::atomic<int> runs{0};
    std::atomic<int> failures{0};  // that came about
    std::map<Cost, int> byCost;    // of these; guarded by lock
    std::mutex lock;

    void Add(Cost cost) {
        const std::lock_guard<std::mutex> guard(lock);
        ++failures;
        ++byCost[cost];
    }
};

}  // namespace

/// Runs of the program from its start over two loads to its end, with pauses twenty times shorter.
class AllocationFailureTest : public DaemonTest {
public:
    void SetUp() override {
        if (RunsUnderSanitizer()) {
            GTEST_SKIP() << "a sanitizer brings an allocator of its own";
        }
        DaemonTest::SetUp();
        fileTime = 1700000000;
    }

    /// A run in which the allocation with that number fails, from 1, or none. Returns how many
    /// there have been, 0 when the program has not come to its orderly end.
    long Run(long failing, Counts& counts) {
        PutFile(PathOf("watched"), 1600000000);
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_FAILING_MEMORY},
                             {"FAILING_ALLOCATION", std::to_string(failing)},
                             {"ALLOCATION_REPORT", ReportPath},
                             {"SHORTER_SLEEP", "20"}};
        Configure(ConfigurationOf(0));
        StartDaemon({"-f"}, start);
        LoadUntilAllIsWell();
        const bool endedItself = HasEnded();
        if (endedItself) {
            ExpectDocumentedEnd();
        } else {
            daemon->Signal(SIGTERM);
            EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
            EXPECT_TRUE(WaitForLastLine("exit(0)"));
        }
        ExpectKnownLines();
        Count(counts);
        return Allocations();
    }

private:
    /// Makes at least as many loads as belong to a run, and after one during which an allocation
    /// has failed one more, in which all jobs have to run.
    void LoadUntilAllIsWell() {
        bool failedBefore = false;
        for (int load = 0;; ++load) {
            bool failedNow = false;
            const auto isOver = [&] {
                failedNow = failedBefore != AllocationFailed();
                return HasEnded() || HaveRun(failedNow ? SurvivorsOf(load) : JobsOf(load));
            };
            const bool over = WaitUntil(isOver, Generous) && (!failedNow || GoOn(load));
            EXPECT_TRUE(over) << "not all jobs of load " << load << " run";
            if (HasEnded() || !over || (load + 1 >= Loads && !failedNow)) {
                return;
            }
            failedBefore = failedBefore || failedNow;
            Configure(ConfigurationOf(load + 1));
        }
    }

    /// The jobs of a load that have to run although an allocation has failed meanwhile. One that
    /// has lost a cycle runs in the next, unless what it is about was a change.
    std::vector<std::string> SurvivorsOf(int load) const {
        const auto [cost, job] = Told();
        if (cost >= Cost::AllJobs) {
            return {};
        }
        std::vector<std::string> jobs = JobsOf(load);
        const std::string change = jobs[1];
        const bool lostChange = cost == Cost::Unknown || (cost == Cost::OneCycle && job == change);
        const std::string lost = cost == Cost::OneJob ? job : lostChange ? change : "";
        Remove(lost, jobs);
        return jobs;
    }

    /// Whether the jobs run that fail again and again, and not only have run before the failure.
    bool GoOn(int load) {
        if (Told().first >= Cost::AllJobs) {
            return true;  // until the next load they do not
        }
        std::vector<std::string> jobs = SurvivorsOf(load);
        Remove(JobsOf(load)[1], jobs);
        for (const std::string& job : jobs) {
            sandbox->RemoveFile(TraceOf(job));
        }
        return WaitUntil([&] { return HasEnded() || HaveRun(jobs); }, Generous);
    }

    /// The greatest cost that a line tells of, and the last word of that line.
    std::pair<Cost, std::string> Told() const {
        std::pair<Cost, std::string> told(Cost::Unknown, "");
        for (const LogLine& line : sandbox->Log()) {
            told = std::max(told, {CostToldBy(line.text), JobNamedBy(line.text)});
        }
        return told;
    }

    bool HasEnded() { return !daemon->Running(); }

    std::string Report() const { return sandbox->ReadFile(ReportPath).value_or(""); }

    bool AllocationFailed() const { return Report().find("failed") != std::string::npos; }

    long Allocations() const {
        const std::string label = "allocations: ";
        const std::string report = Report();
        const std::size_t begin = report.find(label);
        return begin != std::string::npos ? std::stol(report.substr(begin + label.size())) : 0;
    }

    bool HaveRun(const std::vector<std::string>& jobs) const {
        return std::all_of(jobs.begin(), jobs.end(), [this](const std::string& job) {
            return sandbox->FileExists(TraceOf(job));
        });
    }

    bool HasLine(const std::string& part) const {
        const std::vector<LogLine> lines = sandbox->Log();
        return std::any_of(lines.begin(), lines.end(), [&part](const LogLine& line) {
            return line.text.find(part) != std::string::npos;
        });
    }

    /// Waits for the last line of an orderly end, or for the one that stands in its place.
    bool WaitForLastLine(const std::string& part) const {
        return WaitUntil([&] { return HasLine(part) || HasLine("out of memory ["); }, Generous);
    }

    /// Memory that is missing ends the program before its first load alone, with a line about it.
    void ExpectDocumentedEnd() {
        const int status = EndOfDaemon().value_or(-1);
        ASSERT_TRUE(WIFEXITED(status)) << "ended with the wait status " << status;
        EXPECT_EQ(WEXITSTATUS(status), 1);
        EXPECT_TRUE(WaitUntil([&] { return Told().first == Cost::Program; }, Generous));
    }

    void ExpectKnownLines() const {
        for (const LogLine& line : sandbox->Log()) {
            EXPECT_TRUE(IsKnown(line)) << line.text;
        }
    }

    void Count(Counts& counts) const {
        ++counts.runs;
        if (AllocationFailed()) {
            counts.Add(Told().first);
        }
    }
};

namespace {

void Print(Counts& counts) {
    std::cout << "    runs: " << counts.runs << "\n    failures: " << counts.failures
              << "\n    without a line: " << counts.byCost[Cost::Unknown]
              << "\n    that took one line: " << counts.byCost[Cost::OneLine]
              << "\n    that took a job one cycle: " << counts.byCost[Cost::OneCycle]
              << "\n    that stopped one job until the next load: " << counts.byCost[Cost::OneJob]
              << "\n    after which a load was made again: " << counts.byCost[Cost::OneLoad]
              << "\n    that stopped all jobs until the next load: " << counts.byCost[Cost::AllJobs]
              << "\n    that ended the program: " << counts.byCost[Cost::Program] << std::endl;
}

/// Runs with each of so many allocations failing, several at once: they mostly wait.
void Sweep(long allocations) {
    Counts counts;
    std::atomic<long> last{0};
    RunInLanes<AllocationFailureTest>(10, [&](AllocationFailureTest& lane, int) {
        for (long failing = ++last; failing <= allocations && !::testing::Test::HasFailure();
             failing = ++last) {
            SCOPED_TRACE("allocation " + std::to_string(failing));
            lane.SetUp();
            lane.Run(failing, counts);
        }
    });
    EXPECT_GT(counts.failures, allocations / 2);
    Print(counts);
}

}  // namespace

TEST_F(AllocationFailureTest, OfAnyIsSurvivedAndTheNextLoadIsWhole) {
    Counts counts;
    const long all = Run(0, counts);
    ASSERT_GT(all, 0);
    std::cout << "    allocations: " << all << std::endl;

    Sweep(all);
}

}  // namespace kennly::test
