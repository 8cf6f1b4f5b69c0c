#include <sys/resource.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <sstream>

#include "sync/ThreadStack.h"
#include "system/FaultFixture.h"

namespace kennly::test {

using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

struct Mapping {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::string permissions;
    std::string name;
    int usedKiB = 0;  // the kernel gives out what is used by the page

    std::uint64_t Size() const { return end - begin; }
};

std::vector<Mapping> MappingsOf(pid_t process) {
    std::istringstream lines(ProcessFile(process, "smaps"));
    std::vector<Mapping> mappings;
    for (std::string line; std::getline(lines, line);) {
        Mapping mapping;
        std::istringstream fields(line);
        std::string skipped;
        if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64, &mapping.begin, &mapping.end) == 2) {
            fields >> skipped >> mapping.permissions >> skipped >> skipped >> skipped >>
                mapping.name;
            mappings.push_back(mapping);
        } else if (line.rfind("Rss:", 0) == 0) {
            fields >> skipped >> mappings.back().usedKiB;
        }
    }
    return mappings;
}

bool IsStack(const Mapping& mapping, const Mapping& below) {
    return mapping.permissions == "rw-p" && mapping.name.empty() &&
           mapping.Size() == ThreadStackBytes && below.end == mapping.begin &&
           below.permissions == "---p";
}

/// The KiB used of each stack of a worker's size that has a guard below it.
std::vector<int> UsedStacksKiB(pid_t process) {
    const std::vector<Mapping> mappings = MappingsOf(process);
    std::vector<int> used;
    for (std::size_t index = 1; index < mappings.size(); ++index) {
        if (IsStack(mappings[index], mappings[index - 1])) {
            used.push_back(mappings[index].usedKiB);
        }
    }
    return used;
}

}  // namespace

/// The stacks of the daemon's workers, as the kernel maps them.
class ThreadStackTest : public FaultTest {
protected:
    void SetUp() override {
        if (RunsUnderSanitizer()) {
            GTEST_SKIP() << "a sanitizer has stacks of its own size, and uses more of them";
        }
        ASSERT_NO_FATAL_FAILURE(FaultTest::SetUp());
    }
};

TEST_F(ThreadStackTest, IsManyTimesWhatAnyWorkerUses) {
    const std::string text(3000, 'x');
    const std::string name(200, 'n');
    const std::string blocked = "blockaction=\"/none\" blockaction2=\"/none\" blockaction3=\"/\"";
    const std::vector<std::string> jobs = {
        Job("fails" + name, Check("false " + text, "delay=\"1\"") + Remedy("true " + text)),
        Job("blocked" + name, Check("false", "delay=\"1\"") + Remedy(text, blocked)),
        Job("lost" + name, Check("lost " + text, "delay=\"1\"") + Remedy("true")),
        Job("two" + name, CheckOfType("CheckCommandResult", {text, text}) + Remedy("true")),
        Job("empty" + name, CheckOfType("CheckCommandResult", {""}) + Remedy("true")),
        Job("changes" + name,
            CheckOfType("CheckForFileChange", {ChildHeartbeat}) + Remedy("true " + text)),
        Job("stale" + name,
            CheckOfType("CheckForNoFileChange", {"/etc/passwd", "1"}) + Remedy("true " + text)),
        Job("socket" + name, CheckOfType("CheckSocketListening", {text}) + Remedy("true")),
        Beside(),
    };
    std::string all;
    for (const std::string& job : jobs) {
        all += job;
    }
    Configure(Configuration(all));
    Fail(Fault("system", EAGAIN, "lost"));
    StartFaultyDaemon();
    for (const char* const job : {"fails", "changes", "stale"}) {
        EXPECT_TRUE(WaitForLine(RemedyRuns(job + name, "true " + text)));
    }
    const std::string error = "check error - DogCheckCommandWatch::DoWatch() ";
    EXPECT_TRUE(WaitForLine(
        Error("check error - system command  returned -1!! lost" + name + " lost " + text +
              " 1>/dev/null 2>/dev/null unknown error: " + std::to_string(EAGAIN))));
    EXPECT_TRUE(WaitForLine(Error(error + "not one parameter!! two" + name)));
    EXPECT_TRUE(WaitForLine(Error(error + "no command!! empty" + name)));
    EXPECT_TRUE(WaitForMoreTraces("beside", 4));

    const std::vector<int> used = UsedStacksKiB(daemon->Pid());

    ASSERT_THAT(used, SizeIs(3 * jobs.size()));
    const int deepest = *std::max_element(used.begin(), used.end());
    std::cout << "    " << deepest << " KiB used of " << ThreadStackBytes / 1024 << std::endl;
    EXPECT_GT(deepest, 0);
    // The kernel may put a signal on top of it.
    const auto signal = static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ));
    EXPECT_GE(ThreadStackBytes, 8 * (static_cast<std::size_t>(deepest) * 1024 + signal));
    StopDaemon();
}

TEST_F(ThreadStackTest, IsTheSameWithAnyLimitAndCommandsInheritTheLimit) {
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_STACK, &limit), 0);
    if (limit.rlim_max != RLIM_INFINITY) {
        GTEST_SKIP() << "the limit on stacks cannot be chosen here";
    }
    for (const std::string kiB : {"1024", "65536", "unlimited"}) {
        SCOPED_TRACE(kiB);
        SetUp();
        Configure(Configuration(
            Job("web", Check(Reporting("ulimit -s", "check") + "; exit 1", "delay=\"600\"") +
                           Remedy("sh -c '" + Reporting("ulimit -s", "remedy") + "'"))));

        daemon = sandbox->Start({"sh", "-c", "ulimit -s " + kiB + "; exec " KENNLY_PROGRAM " -f"});

        EXPECT_EQ(ReportOf("check"), kiB + "\nend\n");
        EXPECT_EQ(ReportOf("remedy"), kiB + "\nend\n");
        EXPECT_THAT(UsedStacksKiB(daemon->Pid()), SizeIs(3));
        number = NumberInside(daemon->Pid());
        StopDaemon();
    }
}

TEST_F(ThreadStackTest, ThatIsRefusedChangesNothingElse) {
    Configure(Configuration(Beside()));
    StartOptions start;
    start.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {"REFUSED_STACK", "1"}};

    StartDaemon({"-f"}, start);

    EXPECT_TRUE(WaitForTraces("beside", 2));
    EXPECT_THAT(UsedStacksKiB(daemon->Pid()), IsEmpty());
    StopDaemon();
}

}  // namespace kennly::test
