#include <pthread.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <set>
#include <sstream>
#include <thread>

#include "sync/ThreadStack.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::SizeIs;

namespace {

// Ends when the mutex is given free.
void* WaitForMutex(void* mutex) {
    auto* const held = static_cast<pthread_mutex_t*>(mutex);
    pthread_mutex_lock(held);
    pthread_mutex_unlock(held);
    return nullptr;
}

constexpr std::size_t LittleStackBytes = std::size_t{64} * 1024;

/// Whether this machine lets one process have so many threads at once, with stacks of that size.
bool AllowsThreads(std::size_t count, std::size_t stackBytes = LittleStackBytes) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
    pthread_mutex_t held = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&held);
    std::vector<pthread_t> threads;
    pthread_t thread = {};
    while (threads.size() < count &&
           pthread_create(&thread, &attributes, WaitForMutex, &held) == 0) {
        threads.push_back(thread);
    }
    pthread_mutex_unlock(&held);
    for (const pthread_t started : threads) {
        pthread_join(started, nullptr);
    }
    pthread_attr_destroy(&attributes);
    return threads.size() == count;
}

/// What the kernel says about the number of threads.
std::string ThreadLimits() {
    constexpr std::array files = {"/proc/sys/kernel/threads-max", "/proc/sys/kernel/pid_max",
                                  "/proc/sys/vm/max_map_count", "/sys/fs/cgroup/pids.max",
                                  "/sys/fs/cgroup/pids/pids.max"};
    std::string limits;
    for (const char* const path : files) {
        std::ifstream file(path);
        std::string value;
        if (file >> value) {
            limits += std::string(limits.empty() ? "" : ", ") + path + " " + value;
        }
    }
    return limits;
}

/// The processor time that all threads of a process have used, in seconds.
double ProcessorSeconds(pid_t process) {
    clockid_t clock = 0;
    timespec used = {};
    EXPECT_EQ(clock_getcpuclockid(process, &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &used), 0);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

}  // namespace

/// The program with more jobs than anyone has.
class ScaleTest : public DaemonTest {
protected:
    static constexpr std::chrono::seconds Limit{120};

    /// Jobs whose checks append their names to `file`.
    static std::string Jobs(int count, const std::string& file) {
        std::string jobs;
        for (int number = 0; number < count; ++number) {
            const std::string name = "job" + std::to_string(number);
            const std::string check = "echo " + name + " >>" + file + "; true";
            jobs += Job(name, Check(check, "delay=\"20\"") + Remedy("true"));
        }
        return jobs;
    }

    /// The names that checks have written to the file so far.
    std::set<std::string> NamesIn(const std::string& file) const {
        std::istringstream content(sandbox->ReadFile(file).value_or(""));
        std::set<std::string> names;
        for (std::string name; std::getline(content, name) && !content.eof();) {
            names.insert(name);
        }
        return names;
    }

    bool WaitForNames(int count, const std::string& file) const {
        return WaitUntil([&] { return NamesIn(file).size() == static_cast<std::size_t>(count); },
                         Limit);
    }
};

/// What there is too little of.
enum class Scarce { AddressSpace, ThreadsOfItsUser, AddressesOf32Bits };

constexpr bool Has32Bits = sizeof(void*) == 4;

/// The program with more jobs than it finds room for. It is restricted to some hundred threads;
/// where addresses have 32 bits, it is tried unrestricted too.
class FewThreadsTest : public ScaleTest, public ::testing::WithParamInterface<Scarce> {
protected:
    void SetUp() override {
        if (RunsUnderSanitizer()) {
            GTEST_SKIP() << "a sanitizer does not find room itself";
        }
        ASSERT_NO_FATAL_FAILURE(ScaleTest::SetUp());
        if (NeedsAnotherUser() && sandbox->HasUserNamespace()) {
            GTEST_SKIP() << "only root can have the program run as another user";
        }
        if (IsUnrestricted() && !AllowsThreads(3 * TooManyFor32Bits)) {
            GTEST_SKIP() << "other limits come first: " << ThreadLimits();
        }
    }

    void StartWithLittleRoom() {
        daemon = sandbox->Start(Command());
        number = NumberInside(daemon->Pid());
    }

    void ConfigureTooManyJobs() {
        constexpr int tooManyForRestricted = 200;
        Configure(Configuration(
            Jobs(IsUnrestricted() ? TooManyFor32Bits : tooManyForRestricted, "/dev/null")));
    }

    void ExpectFailedPool(std::size_t time) {
        ASSERT_TRUE(WaitForLine(Error("Error creating Thread Pool"), time, Limit));
        if (IsUnrestricted()) {  // then no other limit was it: hardly any address was left
            constexpr double kiBPerGiB = 1024 * 1024;
            EXPECT_GT(std::stod(StatusField(daemon->Pid(), "VmPeak")), 2.9 * kiBPerGiB);
        }
    }

    static std::string FewJobs(const std::string& trace) {
        return Configuration(
            Job("few", Check(Note(trace) + "; true", "delay=\"1\"") + Remedy("true")));
    }

    void ExpectNoJobRuns() {
        EXPECT_TRUE(WaitForThreadsOf(0, Limit));
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
    }

    void ExpectFewJobsRun(const std::string& trace) {
        EXPECT_TRUE(WaitForTraces(trace, 2));
        EXPECT_TRUE(WaitForThreadsOf(1, Limit));
    }

private:
    static constexpr int TooManyFor32Bits = 6000;

    static bool IsUnrestricted() { return GetParam() == Scarce::AddressesOf32Bits; }
    static bool NeedsAnotherUser() { return GetParam() == Scarce::ThreadsOfItsUser; }

    std::vector<std::string> Command() const {
        switch (GetParam()) {
            case Scarce::AddressSpace:
                return {"sh", "-c", "ulimit -v 100000; exec " KENNLY_PROGRAM " -f"};
            case Scarce::ThreadsOfItsUser:
                return AsUserWithFewThreads();
            case Scarce::AddressesOf32Bits:
                break;
        }
        return {KENNLY_PROGRAM, "-f"};
    }

    /// The kernel counts the threads of a user wherever they are, and counts none of root's: this
    /// user is no one's but the sandbox's, whatever else runs on the machine. The program is a
    /// copy, because where it was built nobody else may be let in.
    std::vector<std::string> AsUserWithFewThreads() const {
        const auto user = static_cast<uid_t>(20000 + sandbox->FirstProcess() % 40000);
        const std::string id = std::to_string(user);
        const std::string program = PathOf("kennly");
        std::filesystem::copy_file(KENNLY_PROGRAM, sandbox->PathInside(program));
        for (const std::string& path :
             {DataDirectory, PathOf("config/filetimes"), PathOf("heartbeats"), program}) {
            EXPECT_EQ(chown(sandbox->PathInside(path).c_str(), user, user), 0) << path;
        }
        return {"prlimit",       "--nproc=40",     "setpriv", "--reuid=" + id,
                "--regid=" + id, "--clear-groups", program,   "-f"};
    }
};

TEST_P(FewThreadsTest, TooManyJobsAreReportedAndFewerStillRun) {
    ConfigureTooManyJobs();
    StartWithLittleRoom();

    ASSERT_NO_FATAL_FAILURE(ExpectFailedPool(1));

    ExpectNoJobRuns();
    Configure(FewJobs("few"));
    ExpectFewJobsRun("few");
    StopDaemon();
    EXPECT_THAT(Lines(), ElementsAre(Error("Error creating Thread Pool"), Exit(0)));
}

TEST_P(FewThreadsTest, TooManyJobsAtAReloadAreReportedEachTimeAndFewerRunAgain) {
    Configure(FewJobs("before"));
    StartWithLittleRoom();
    ExpectFewJobsRun("before");
    for (const std::size_t time : {std::size_t{1}, std::size_t{2}}) {
        ConfigureTooManyJobs();

        ASSERT_NO_FATAL_FAILURE(ExpectFailedPool(time));

        ExpectNoJobRuns();
        const std::string trace = "after" + std::to_string(time);
        Configure(FewJobs(trace));
        ExpectFewJobsRun(trace);
    }
    StopDaemon();
    EXPECT_THAT(ArrivalsOf(Error("Error creating Thread Pool")), SizeIs(2));
    EXPECT_THAT(Lines(), SizeIs(3));
}

std::vector<Scarce> WhatMayBeScarce() {
    std::vector<Scarce> all = {Scarce::AddressSpace, Scarce::ThreadsOfItsUser};
    if (Has32Bits) {
        all.push_back(Scarce::AddressesOf32Bits);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Because, FewThreadsTest, ::testing::ValuesIn(WhatMayBeScarce()),
                         [](const auto& scarce) -> std::string {
                             switch (scarce.param) {
                                 case Scarce::AddressSpace:
                                     return "AddressSpaceIsScarce";
                                 case Scarce::ThreadsOfItsUser:
                                     return "ItsUserMayHaveFewThreads";
                                 case Scarce::AddressesOf32Bits:
                                     break;
                             }
                             return "AddressesHave32Bits";
                         });

struct Size {
    int commands;  // jobs that check by a command
    int files;     // jobs that look at a file

    int Jobs() const { return commands + files; }
};

/// So many jobs, which are then replaced by so many others.
struct Scale {
    Size before;
    Size after;
};

class ManyJobsTest : public ScaleTest, public ::testing::WithParamInterface<Scale> {
protected:
    static const Size& Before() { return GetParam().before; }
    static const Size& After() { return GetParam().after; }

    /// Whether there is room for the threads of so many jobs in a process of this word size, and
    /// for so many threads on this machine.
    static bool HasRoomFor(int jobs, int threads) {
        return AllowsThreads(static_cast<std::size_t>(3 * jobs), ThreadStackBytes) &&
               AllowsThreads(static_cast<std::size_t>(threads));
    }

    /// The commands of these jobs leave their names in the file `name`.
    static std::string JobsOf(const Size& size, const std::string& name) {
        return FileJobs(size.files, name) + Jobs(size.commands, PathOf(name));
    }

    /// Jobs that look at a file and fail at its first sight. Their remedies are held back, so that
    /// none of them ever needs a shell.
    static std::string FileJobs(int count, const std::string& name) {
        const std::string blocked = "blockaction=\"" + MainConfiguration + "\"";
        std::string jobs;
        for (int number = 0; number < count; ++number) {
            jobs += Job(name + std::to_string(number),
                        CheckOfType("CheckForFileChange", {MainConfiguration}, "delay=\"20\"") +
                            Remedy("true", blocked));
        }
        return jobs;
    }

    bool WaitForJobs(const Size& size, const std::string& name) const {
        return WaitForNames(size.commands, PathOf(name)) && WaitForThreadsOf(size.Jobs(), Limit);
    }

    /// The number of jobs that have looked at their file, as the records tell that they leave at
    /// their end. Removes these: the sandbox has no room for those of many more jobs.
    int TakeRecords() const {
        int count = 0;
        const std::string path = sandbox->PathInside(DataDirectory + "/config/filetimes");
        for (const auto& record : std::filesystem::directory_iterator(path)) {
            count += std::filesystem::remove(record.path()) ? 1 : 0;
        }
        return count;
    }

    /// Waits until hardly anything runs for a second.
    bool WaitUntilIdle() const {
        return WaitUntil([this] { return ShareOfACore(std::chrono::seconds(1)) < 0.1; }, Limit);
    }

    double ShareOfACore(std::chrono::seconds duration) const {
        const auto begin = Clock::now();
        const double before = ProcessorSeconds(daemon->Pid());
        std::this_thread::sleep_for(duration);
        const double used = ProcessorSeconds(daemon->Pid()) - before;
        return used / SecondsBetween(begin, Clock::now());
    }

    static void PrintSecondsSince(Clock::time_point begin, const std::string& step) {
        std::cout << std::fixed << std::setprecision(1) << "    " << step << ": "
                  << SecondsBetween(begin, Clock::now()) << " s" << std::endl;
    }

    // The bounds are far off: what breaks them is a defect.
    void MeasureAndPrint() const {
        const int jobs = Before().Jobs();
        const double resident = ResidentKiB(daemon->Pid());
        const double reserved = std::stod(StatusField(daemon->Pid(), "VmSize"));
        const double share = ShareOfACore(std::chrono::seconds(10));
        std::cout << std::fixed << std::setprecision(1) << "    " << jobs
                  << " jobs: " << resident / 1024 << " MB resident, " << resident / jobs
                  << " kB a job; " << reserved / 1024 << " MB virtual, " << reserved / 1024 / jobs
                  << " MB a job; idle " << std::setprecision(4) << share * 100 << " % of one core"
                  << std::endl;
        EXPECT_LT(resident / jobs, 200);
        EXPECT_LT(share, 0.05);
    }
};

TEST_P(ManyJobsTest, RunTheirChecksAreReplacedAndEnd) {
    const int count = Before().Jobs();
    const int room = 3 * count + 2 * Before().commands + 500;  // shells, and others' processes
    if (RunsUnderSanitizer() && count > 1000) {
        GTEST_SKIP() << "a sanitizer does not know so many threads";
    }
    if (count > 1000 && !HasRoomFor(count, room)) {  // a thousand is an ordinary day
        GTEST_SKIP() << "no room for " << room << " threads: " << ThreadLimits();
    }
    Configure(Configuration(JobsOf(Before(), "first")));
    StartDaemon();
    ASSERT_TRUE(WaitForJobs(Before(), "first"));
    PrintSecondsSince(started, "load");
    ASSERT_TRUE(WaitUntilIdle());
    if (!RunsUnderSanitizer()) {
        MeasureAndPrint();
    }

    const auto changed = Clock::now();
    Configure(Configuration(JobsOf(After(), "second")));

    ASSERT_TRUE(WaitForJobs(After(), "second"));
    PrintSecondsSince(changed, "reload");
    EXPECT_EQ(TakeRecords(), Before().files);
    ASSERT_TRUE(WaitUntilIdle());
    const auto asked = Clock::now();
    ASSERT_TRUE(daemon->Signal(SIGTERM));
    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
    PrintSecondsSince(asked, "end");
    EXPECT_EQ(TakeRecords(), After().files);
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

// Most of the many jobs look at a file: a thousand shells that start at once are what a machine
// bears, and five thousand would measure the shells.
INSTANTIATE_TEST_SUITE_P(OfEachSize, ManyJobsTest,
                         ::testing::Values(Scale{{100, 0}, {100, 0}}, Scale{{1000, 0}, {10, 0}},
                                           Scale{{500, 4500}, {500, 4500}}),
                         [](const auto& scale) {
                             return std::to_string(scale.param.before.Jobs()) + "Jobs";
                         });

}  // namespace kennly::test
