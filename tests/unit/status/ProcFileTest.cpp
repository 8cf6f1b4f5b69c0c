#include "status/ProcFile.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <thread>

#include "support/Deadline.h"
#include "support/Sanitizers.h"
#include "unit/status/PlainProcess.h"

namespace kennly::test {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr pid_t NoProcess = 1 << 30;  // above what any kernel gives

TEST(ProcFileTest, ReadsWhatTheKernelTellsOfAProcess) {
    const StandInProgram program;
    const PlainProcess process(program.path, {"one", "", "two words", "-Z"});

    EXPECT_THAT(ReadProcFile(process.Number(), "status").value_or(""), HasSubstr("Name:\tkennly"));
    EXPECT_EQ(ReadProcLink(process.Number(), "exe"), program.path);
    EXPECT_THAT(ReadProcTexts(process.Number(), "cmdline").value(),
                ElementsAre("one", "", "two words", "-Z"));
}

TEST(ProcFileTest, HasNothingOfAProcessThatIsNotThere) {
    EXPECT_EQ(ReadProcFile(NoProcess, "status"), std::nullopt);
    EXPECT_EQ(ReadProcLink(NoProcess, "exe"), std::nullopt);
    EXPECT_EQ(ReadProcTexts(NoProcess, "cmdline"), std::nullopt);
    EXPECT_FALSE(ReadProcStat(NoProcess));
    EXPECT_FALSE(ReadThreadStat(getpid(), NoProcess));
    EXPECT_THAT(ThreadsOf(NoProcess), IsEmpty());
    EXPECT_EQ(ReadProcFile(getpid(), "task"), std::nullopt);  // which is a directory
}

TEST(ProcFileTest, ListsProcessesAndThreadsInOrder) {
    const StandInProgram program;
    const PlainProcess process(program.path, program.With({}));
    process.Ask({"threads", "3"});

    const std::vector<pid_t> all = AllProcesses();
    EXPECT_THAT(all, Contains(process.Number()));
    EXPECT_THAT(all, Contains(getpid()));
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    const std::vector<pid_t> threads = ThreadsOf(process.Number());
    EXPECT_THAT(threads, SizeIs(4));
    EXPECT_THAT(threads, Contains(process.Number()));
    EXPECT_TRUE(std::is_sorted(threads.begin(), threads.end()));
    EXPECT_EQ(ReadProcStat(process.Number())->threads, 4);
}

TEST(ProcFileTest, ReadsANameThatLooksLikeTheRestOfTheLine) {
    for (const char* const name : {"a) Z (b c", ")", "(", "a 1 2 3", "tab\tnewline\n"}) {
        SCOPED_TRACE(name);
        const StandInProgram program(name);
        const PlainProcess process(program.path, program.With({}));

        const auto stat = ReadProcStat(process.Number());

        ASSERT_TRUE(stat);
        EXPECT_EQ(stat->name, name);
        EXPECT_EQ(stat->parent, getpid());
        EXPECT_EQ(stat->session, getsid(0));
        EXPECT_EQ(stat->threads, 1);
        EXPECT_NE(stat->state, 'Z');
    }
}

TEST(ProcFileTest, KnowsTheStateOfWhatHasEnded) {
    const StandInProgram program;
    const PlainProcess process(program.path, program.With({}));
    process.EndUnreaped();
    ASSERT_TRUE(ReadProcStat(process.Number()));
    EXPECT_EQ(ReadProcStat(process.Number())->state, 'Z');
}

TEST(ProcFileTest, CountsTheTimeSinceAStart) {
    timespec begin = {};
    clock_gettime(CLOCK_BOOTTIME, &begin);
    const StandInProgram program;
    const PlainProcess process(program.path, program.With({}));
    const auto stat = ReadProcStat(process.Number());
    ASSERT_TRUE(stat);

    const double seconds = SecondsSince(stat->startTicks);

    timespec end = {};
    clock_gettime(CLOCK_BOOTTIME, &end);
    const double rounding = 0.011;
    EXPECT_GE(seconds, 0);
    EXPECT_LE(seconds, static_cast<double>(end.tv_sec - begin.tv_sec) +
                           static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e9 + rounding);
    EXPECT_EQ(SecondsSince(stat->startTicks + 1'000'000), 0);  // never negative
    EXPECT_NEAR(SecondsSince(0), static_cast<double>(end.tv_sec), 60);
}

TEST(ProcFileTest, KnowsTheStartOfEachThread) {
    const StandInProgram program;
    const PlainProcess process(program.path, program.With({}));
    // In ticks of a hundredth of a second, until one has passed.
    std::uint64_t later = 0;
    const std::uint64_t start = ReadProcStat(process.Number())->startTicks;
    while (later <= start) {
        process.Ask({"threads", "1"});
        const std::vector<pid_t> threads = ThreadsOf(process.Number());
        ASSERT_THAT(threads, SizeIs(2));
        const pid_t other = threads[0] == process.Number() ? threads[1] : threads[0];
        ASSERT_TRUE(ReadThreadStat(process.Number(), other));
        later = ReadThreadStat(process.Number(), other)->startTicks;
    }
    EXPECT_EQ(ReadThreadStat(process.Number(), process.Number())->startTicks, start);
}

TEST(ProcFileTest, ReadsAFieldOfTheStatus) {
    EXPECT_EQ(std::stoi(ReadProcStatus(getpid(), "Pid")), getpid());
    EXPECT_EQ(std::stoi(ReadProcStatus(getpid(), "PPid")), getppid());
    EXPECT_EQ(ReadProcStatus(getpid(), "Pi"), "") << "the beginning of a name";
    EXPECT_EQ(ReadProcStatus(NoProcess, "Pid"), "");
}

/// A thread that pauses until it is told to end.
class PausingThread {
public:
    PausingThread() : thread_([this] { Run(); }) {}
    ~PausingThread() {
        isToEnd_ = true;
        thread_.join();
    }
    PausingThread(const PausingThread&) = delete;
    PausingThread& operator=(const PausingThread&) = delete;

    /// Whether the kernel says so of it.
    bool IsKnownToPause() const {
        Deadline limit(std::chrono::seconds(10));
        for (std::string function; !limit.HasPassed();) {
            std::ifstream("/proc/self/task/" + std::to_string(number_) + "/wchan") >> function;
            if (function.find("nanosleep") != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

private:
    void Run() {
        number_ = gettid();
        while (!isToEnd_) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
    }

    std::atomic<pid_t> number_{0};
    std::atomic<bool> isToEnd_{false};
    std::thread thread_;
};

TEST(ProcFileTest, CountsThreadsInPause) {
    if (WithThreadSanitizer) {
        GTEST_SKIP() << "the thread sanitizer adds a thread, which pauses";
    }
    std::promise<void> end;
    std::thread waiting([&end] { end.get_future().wait(); });  // which is no pause
    {
        const PausingThread one;
        const PausingThread another;
        if (one.IsKnownToPause() && another.IsKnownToPause()) {
            Deadline limit(std::chrono::seconds(60));
            while (ThreadsInPause(getpid()) != 2 && !limit.HasPassed()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
            EXPECT_EQ(ThreadsInPause(getpid()), 2);
        } else {
            EXPECT_EQ(ThreadsInPause(getpid()), std::nullopt);
        }
    }
    EXPECT_EQ(ThreadsInPause(getpid()).value_or(0), 0);
    EXPECT_EQ(ThreadsInPause(NoProcess), std::nullopt);
    end.set_value();
    waiting.join();
}

}  // namespace kennly::test
