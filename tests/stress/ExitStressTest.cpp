#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "action/ProcessAction.h"
#include "config/TheConfig.h"
#include "job/ProcessJob.h"
#include "job/ResultCode.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "pool/JobQueue.h"
#include "pool/TaskQueue.h"
#include "pool/TaskRegistry.h"
#include "pool/WatchDogThreadPool.h"
#include "stress/Stress.h"
#include "support/Dice.h"
#include "support/TemporaryDirectory.h"
#include "sync/Pause.h"
#include "watch/ProcessWatch.h"

namespace {

constexpr std::uint32_t JobCount = 3;

// Besides those that run, so that their destruction takes its time.
constexpr int OtherJobCount = 300;

std::atomic<int> checksOfJobsFound{0};
std::atomic<int> remediesOfJobsFound{0};
std::atomic<int> linesLogged{0};

// Makes the line, but spares the machine's own log.
void FormatLine(const char* format, va_list arguments) {
    char line[256];
    std::vsnprintf(line, sizeof(line), format, arguments);
    ++linesLogged;
}

}  // namespace

// The log, by whichever name the build calls it.
extern "C" {

void __wrap_syslog(int priority, const char* format, ...);
void __wrap___syslog_chk(int priority, int flag, const char* format, ...);

void __wrap_syslog(int /*priority*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FormatLine(format, arguments);
    va_end(arguments);
}

void __wrap___syslog_chk(int /*priority*/, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FormatLine(format, arguments);
    va_end(arguments);
}
}

// Everything here takes no notice of a shutdown, as a command does that has
// long to go: it runs until the process has ended.
namespace kennly {

namespace {

// What the real steps do apart from running a command.
void LookUpAndLog(const std::string& jobName, std::atomic<int>& found) {
    const JobHandle job = FindConfiguredJob(jobName);
    if (!job) {
        LogError("not found", jobName.c_str());
        return;
    }
    LogError("found", job->name.c_str(), job->check->jobName.c_str());
    if (job->name != jobName || job->check->jobName != jobName) {
        std::_Exit(EXIT_FAILURE);  // it is not the job any more
    }
    ++found;
}

}  // namespace

void Pause(unsigned /*seconds*/) {
    std::this_thread::yield();
}

std::int32_t ProcessWatch(const std::string& jobName) {
    LookUpAndLog(jobName, checksOfJobsFound);
    return ResultFailed;
}

std::int32_t ProcessAction(const std::string& jobName) {
    LookUpAndLog(jobName, remediesOfJobsFound);
    return ResultHealthy;
}

void ProcessJob(const std::string& name) {
    for (const auto slot = static_cast<std::uint32_t>(3 * (name[0] - 'a'));;) {
        FindConfiguredJob(name);
        const auto check = QueueWatch(slot + 1, name);
        WaitForTasks(WatchRegistry());
        const auto remedy = QueueAction(slot + 2, name);
        WaitForTasks(ActionRegistry());
        if (const auto registry = JobRegistry()) {
            registry->Register(name + " again");
            registry->Unregister(name + " again");
        }
    }
}

}  // namespace kennly

namespace kennly::test {

namespace {

std::string NameOf(std::uint32_t job) {
    return std::string(1, static_cast<char>('a' + job));
}

void WriteConfiguration(const TemporaryDirectory& directory) {
    const auto element = [](const std::string& name) {
        return "<job name='" + name +
               "' enabled='true'><check type='CheckCommandResult'/><remedy type='Execute'/></job>";
    };
    std::string jobs;
    for (int i = 0; i < OtherJobCount; ++i) {
        jobs += element("other" + std::to_string(i));
    }
    for (std::uint32_t i = 0; i < JobCount; ++i) {
        jobs += element(NameOf(i));
    }
    const std::string path = directory.Write("kennly.xml", "<dog>" + jobs + "</dog>");
    std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
}

// What the child does: it starts its jobs, is asked to shut down and exits
// while they run.
[[noreturn]] void RunAndExit(std::uint32_t moment) {
    mallopt(M_PERTURB, 0xA5);  // what is used after it was freed shows
    CreateTheConfig();
    if (!theConfig->Load() || !CreateThreadPool(3 * JobCount)) {
        std::_Exit(EXIT_FAILURE);
    }
    for (std::uint32_t i = 0; i < JobCount; ++i) {
        QueueJob(3 * i, NameOf(i));
    }
    if (!SpinUntil([] { return checksOfJobsFound > 0 && remediesOfJobsFound > 0; }) ||
        linesLogged == 0) {
        std::_Exit(EXIT_FAILURE);
    }
    Spin(moment);
    closingDown = true;
    TidyThreadPool();
    DestroyTheConfig();
    LogExit(EXIT_SUCCESS);
}

// The raw wait status of the child; -1, with the child killed, when it does not
// end in time.
int StatusOf(pid_t child) {
    int status = 0;
    pid_t ended = 0;
    SpinUntil([&] {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        ended = waitpid(child, &status, WNOHANG);
        return ended != 0;
    });
    if (ended == child) {
        return status;
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
}

}  // namespace

TEST(ExitStressTest, AProcessThatExitsWhilePoolThreadsRunEndsWithItsOwnStatus) {
    constexpr int rounds = 300;
    const TemporaryDirectory directory;
    WriteConfiguration(directory);
    const Figures figures;
    Dice dice(Seed);
    for (int round = 0; round < rounds && !::testing::Test::HasFailure(); ++round) {
        const std::uint32_t moment = dice.UpTo(20000);
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            RunAndExit(moment);
        }
        ASSERT_GT(child, 0);
        EXPECT_EQ(StatusOf(child), 0) << "round " << round;
    }
    figures.Print("%d processes exited while their jobs ran", rounds);
}

}  // namespace kennly::test
