#include "main/ChildMain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/TheConfig.h"
#include "job/ProcessJob.h"
#include "main/Heartbeat.h"
#include "main/Log.h"
#include "main/ProcessState.h"
#include "main/Signals.h"
#include "pool/WatchDogThreadPool.h"
#include "support/FailingAllocation.h"
#include "support/RecordedLog.h"
#include "support/RecordedPauses.h"
#include "support/SandboxPolling.h"
#include "support/TemporaryDirectory.h"
#include "unit/main/ForkedProcess.h"

namespace {

// The rhythm of the loop: B for a heartbeat, b for one while the pool is torn down, p for a pause
// of a second, its seconds in brackets for any other.
std::string rhythm;

// Called after the heartbeat with this number, counted from 1.
std::map<int, std::function<void()>> atHeartbeat;
int heartbeats = 0;

// The threads that were asked for, and which of them, counted from 1, cannot be created.
std::atomic<int> threadsAskedFor{0};
std::atomic<int> threadThatFails{0};

std::atomic<int> jobsStarted{0};
std::atomic<int> jobsRunning{0};

// Called each time the main thread asks whether a worker has ended.
std::function<void()> whenJoining;

// The next short sleep of the main thread, as between two such questions, throws. The job named
// "held" ends only then.
thread_local bool sleepThrows = false;
std::atomic<bool> sleepHasThrown{false};

std::optional<kennly::test::FailingOnceAllocation> failingAllocation;

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __real_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue);
int __real_nanosleep(const timespec* duration, timespec* left);
int __wrap_nanosleep(const timespec* duration, timespec* left);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    if (++threadsAskedFor == threadThatFails) {
        return EAGAIN;
    }
    return __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_pthread_tryjoin_np(pthread_t thread, void** exitValue) {
    if (whenJoining) {
        whenJoining();
    }
    return __real_pthread_tryjoin_np(thread, exitValue);
}

int __wrap_nanosleep(const timespec* duration, timespec* left) {
    if (sleepThrows) {
        sleepThrows = false;
        sleepHasThrown = true;
        throw std::runtime_error("from a sleep");
    }
    return __real_nanosleep(duration, left);
}
}

namespace kennly {

void WriteChildHeartbeat() noexcept {
    rhythm += tidyingThreadPool ? 'b' : 'B';
    const auto action = atHeartbeat.find(++heartbeats);
    if (action != atHeartbeat.end()) {
        action->second();
    }
}

// Runs until it is told to end, as the real one does. A job named "stuck" never ends.
void ProcessJob(const std::string& name) {
    test::Note(name + " started");
    ++jobsRunning;
    ++jobsStarted;
    while (!(tidyingThreadPool || closingDown) || name == "stuck" ||
           (name == "held" && !sleepHasThrown)) {
        usleep(1000);
    }
    --jobsRunning;
    if (tidyingThreadPool && !closingDown) {
        test::Note(name + " ended for a reload");
    }
}

}  // namespace kennly

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

constexpr std::size_t FarTooManyPauses = 500;
constexpr char TooMany[] = "watchdog closing down as there have been too many load config errors";

std::string Jobs(const std::vector<std::string>& names, const std::string& attributes = "") {
    std::string xml = "<dog " + attributes + ">";
    for (const std::string& name : names) {
        xml += "<job name='" + name +
               "' enabled='true'><check type='CheckCommandResult'><param value='true'/></check>"
               "<remedy type='Execute'><param value='true'/></remedy></job>";
    }
    return xml + "</dog>";
}

/// In the fork: waits until so many jobs have been started since the loop began.
void AwaitStart(int jobs) {
    if (!WaitUntil([=] { return jobsStarted == jobs; }, std::chrono::seconds(30))) {
        Note("jobs started: " + std::to_string(jobsStarted));
        _exit(94);
    }
}

}  // namespace

class ChildMainTest : public ::testing::Test {
protected:
    /// Gives the configuration file this content and a modification time that it never had.
    void Configure(const std::string& content) {
        const std::string path = directory_.Write("kennly.xml", content);
        const timespec time = {++fileTime_, 0};
        const timespec times[] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    /// What happens in the pause with this number, counted from 1, in the fork.
    void AtPause(std::size_t number, std::function<void()> action) {
        atPause_[number] = std::move(action);
    }

    /// Closes down in the pause with this number.
    void CloseAtPause(std::size_t number) {
        AtPause(number, [] { closingDown = true; });
    }

    /// Runs the loop in a fork that is the child of this process. Among its notes are the rhythm
    /// and what is left of configuration and pool when it exits.
    EndedProcess Run(const std::function<void()>& before = [] {}) {
        return RunForked([&]() -> int {
            Prepare();
            before();
            child_main();
        });
    }

    void Prepare() {
        roleTag = "C ";
        std::snprintf(configFile, sizeof(configFile), "%s", directory_.Path("kennly.xml").c_str());
        WhilePausing([this](std::size_t count, unsigned seconds) { DuringPause(count, seconds); });
        std::atexit([] {
            Note("rhythm: " + rhythm);
            Note(theConfig == nullptr && !GetThreadPool() ? "left: nothing" : "left: something");
        });
    }

    void DuringPause(std::size_t count, unsigned seconds) {
        rhythm += seconds == 1 ? "p" : "(" + std::to_string(seconds) + ")";
        if (count > FarTooManyPauses) {
            Note("the loop never ends: " + rhythm);
            _exit(91);
        }
        const auto action = atPause_.find(count);
        if (action != atPause_.end()) {
            action->second();
        }
    }

    /// What stands after `prefix` in the note that begins with it.
    static std::string NoteOf(const EndedProcess& process, const std::string& prefix) {
        for (const std::string& note : process.notes) {
            if (note.rfind(prefix, 0) == 0) {
                return note.substr(prefix.size());
            }
        }
        return "(no note)";
    }

    static std::string Rhythm(const EndedProcess& process) { return NoteOf(process, "rhythm: "); }
    static std::string Left(const EndedProcess& process) { return NoteOf(process, "left: "); }

    /// All other notes: those of the jobs and of the test itself.
    static std::vector<std::string> OtherNotes(const EndedProcess& process) {
        std::vector<std::string> notes;
        for (const std::string& note : process.notes) {
            if (note.rfind("rhythm: ", 0) != 0 && note.rfind("left: ", 0) != 0) {
                notes.push_back(note);
            }
        }
        return notes;
    }

    /// The pauses between the cycles, in seconds.
    static std::vector<int> Pauses(const EndedProcess& process) {
        std::vector<int> pauses;
        char before = 'B';
        for (const char event : Rhythm(process)) {
            if (event == 'p' && before != 'p') {
                pauses.push_back(0);
            }
            if (event == 'p') {
                ++pauses.back();
            }
            before = event;
        }
        return pauses;
    }

    const TemporaryDirectory directory_;
    time_t fileTime_ = 1000;
    std::map<std::size_t, std::function<void()>> atPause_;
};

TEST_F(ChildMainTest, LooksAgainFiveSecondsAfterALoadAndThenEverySecond) {
    Configure(Jobs({}));
    CloseAtPause(8);

    const EndedProcess process = Run();

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBBpppppBBpBBpBBp");
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, StartsTheJobsOfAnUnchangedFileOnThreeWorkersEach) {
    Configure(Jobs({"web", "db"}));
    AtPause(5, [] {
        AwaitStart(2);
        Note("threads " + std::to_string(threadsAskedFor));
        Note("slots " + std::to_string(FindConfiguredJob("web")->slotBase) + " " +
             std::to_string(FindConfiguredJob("db")->slotBase));
        closingDown = true;
    });

    const EndedProcess process = Run();

    EXPECT_THAT(OtherNotes(process),
                UnorderedElementsAre("web started", "db started", "threads 6", "slots 0 3"));
    EXPECT_EQ(Left(process), "nothing");
}

TEST_F(ChildMainTest, ToleratesTenFailedCyclesTwoSecondsApartButNotEleven) {
    const EndedProcess process = Run();  // there is no file

    EXPECT_TRUE(process.ExitedWith(0));
    std::string elevenCycles = "BB";
    for (int i = 0; i < 10; ++i) {
        elevenCycles += "ppBB";
    }
    EXPECT_EQ(Rhythm(process), elevenCycles);
    EXPECT_THAT(process.lines, ElementsAre(process.Error("C ", TooMany), process.Exit("C ", 0)));
    EXPECT_EQ(Left(process), "nothing");
}

TEST_F(ChildMainTest, CountsAFileThatIsRefusedLikeAMissingOne) {
    Configure("<dog>");

    const EndedProcess process = Run([] { maxLoadErrors = 1; });

    EXPECT_THAT(Pauses(process), ElementsAre(2));
    ASSERT_EQ(process.lines.size(), 6U);
    EXPECT_EQ(process.lines[1], process.Error("C ", "Configuration file parse error"));
    EXPECT_EQ(process.lines[3], process.Error("C ", "Configuration file parse error"));
    EXPECT_EQ(process.lines[4], process.Error("C ", TooMany));
}

TEST_F(ChildMainTest, CountsALookAtTheFileThatRunsOutOfMemoryLikeAMissingFile) {
    Configure(Jobs({}));

    const EndedProcess process = Run([] {
        maxLoadErrors = 1;
        for (const int beforeTheLook : {1, 3}) {
            atHeartbeat[beforeTheLook] = [] {
                failingAllocation.emplace(0);
            };
            atHeartbeat[beforeTheLook + 1] = [] {
                failingAllocation.reset();
            };
        }
    });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBppBB");
    const RecordedLine failure = process.Error("C ", "exception in ReloadConfigIfConfigHasChanged");
    EXPECT_THAT(process.lines,
                ElementsAre(failure, failure, process.Error("C ", TooMany), process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, EndsAtTheFirstFailureWhenNoneIsTolerated) {
    Configure(Jobs({"web"}, "maxloaderrors='0'"));
    AtPause(5, [this] { ASSERT_EQ(unlink(directory_.Path("kennly.xml").c_str()), 0); });

    const EndedProcess process = Run();

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBBpppppBB");
    EXPECT_THAT(process.lines, ElementsAre(process.Error("C ", TooMany), process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, EndsRightAfterALoadThatSetsANegativeLimit) {
    Configure(Jobs({}, "maxloaderrors='-1'"));

    const EndedProcess process = Run();

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBB");
    EXPECT_THAT(process.lines, ElementsAre(process.Error("C ", TooMany), process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, ForgetsFailuresAfterALoad) {
    // Two failures, a load, two failures; one more would be one too many.
    AtPause(4, [this] { Configure(Jobs({})); });
    AtPause(9, [this] { ASSERT_EQ(unlink(directory_.Path("kennly.xml").c_str()), 0); });
    CloseAtPause(13);

    const EndedProcess process = Run([] { maxLoadErrors = 2; });

    EXPECT_THAT(Pauses(process), ElementsAre(2, 2, 5, 2, 2));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, ForgetsFailuresWhenTheFileIsBackUnchanged) {
    Configure(Jobs({}));
    const std::string file = directory_.Path("kennly.xml");
    const std::string away = directory_.Path("away");
    const auto takeAway = [=] {
        ASSERT_EQ(rename(file.c_str(), away.c_str()), 0);
    };
    const auto bringBack = [=] {
        ASSERT_EQ(rename(away.c_str(), file.c_str()), 0);
    };
    AtPause(5, takeAway);
    AtPause(9, bringBack);
    AtPause(10, takeAway);
    CloseAtPause(14);

    const EndedProcess process = Run([] { maxLoadErrors = 2; });

    EXPECT_THAT(Pauses(process), ElementsAre(5, 2, 2, 1, 2, 2));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, KeepsTheJobsRunningWhileTheFileIsMissingUntilThatHasLastedTooLong) {
    Configure(Jobs({"web"}));
    AtPause(5, [this] {
        AwaitStart(1);
        ASSERT_EQ(unlink(directory_.Path("kennly.xml").c_str()), 0);
    });
    AtPause(25, [] {
        Note(std::to_string(jobsRunning) + " running, " +
             (FindConfiguredJob("web") && GetThreadPool() ? "still there" : "gone"));
    });

    const EndedProcess process = Run();

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_THAT(Pauses(process), ElementsAre(5, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2));
    EXPECT_THAT(OtherNotes(process), ElementsAre("web started", "1 running, still there"));
    EXPECT_THAT(process.lines, ElementsAre(process.Error("C ", TooMany), process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, KeepsThePoolAndItsJobsRunningWhenTheFileIsRefused) {
    Configure(Jobs({"web"}));
    std::shared_ptr<WatchDogThreadPool> before;
    AtPause(5, [&] {
        AwaitStart(1);
        before = GetThreadPool();
        Configure("<dog>");
    });
    AtPause(7, [&] {
        Note(std::to_string(jobsRunning) + " running on " +
             (GetThreadPool() == before ? "the same pool" : "another pool"));
        closingDown = true;
    });

    const EndedProcess process = Run();

    EXPECT_EQ(Rhythm(process), "BBBpppppBBpp");
    EXPECT_THAT(OtherNotes(process), ElementsAre("web started", "1 running on the same pool"));
}

TEST_F(ChildMainTest, ReplacesThePoolWhenTheFileHasChanged) {
    Configure(Jobs({"old"}));
    AtPause(5, [this] {
        AwaitStart(1);
        Configure(Jobs({"new", "newer"}));
    });
    AtPause(10, [] {
        AwaitStart(3);
        Note(tidyingThreadPool ? "still tidying" : "not tidying");
        Note("threads " + std::to_string(threadsAskedFor));
        closingDown = true;
    });

    const EndedProcess process = Run();

    EXPECT_EQ(Rhythm(process), "BBBpppppBBbBppppp");
    const std::vector<std::string> notes = OtherNotes(process);
    ASSERT_EQ(notes.size(), 6U);
    EXPECT_EQ(notes[0], "old started");
    EXPECT_EQ(notes[1], "old ended for a reload");
    EXPECT_THAT(std::vector<std::string>(notes.begin() + 2, notes.end()),
                UnorderedElementsAre("new started", "newer started", "not tidying", "threads 9"));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, ReplacesThePoolForAnOlderFileToo) {
    Configure(Jobs({"old"}));
    AtPause(5, [this] {
        fileTime_ = 10;
        Configure(Jobs({"older"}));
    });
    CloseAtPause(10);

    const EndedProcess process = Run();

    EXPECT_EQ(Rhythm(process), "BBBpppppBBbBppppp");
}

TEST_F(ChildMainTest, TearsNothingDownInTheFirstCycle) {
    Configure(Jobs({}));
    std::shared_ptr<WatchDogThreadPool> before;
    AtPause(1, [&] {
        Note(GetThreadPool() == before ? "the same pool" : "another pool");
        closingDown = true;
    });

    const EndedProcess process = Run([&] {
        CreateThreadPool(1);
        before = GetThreadPool();
    });

    EXPECT_EQ(Rhythm(process), "BBBp");
    EXPECT_THAT(OtherNotes(process), ElementsAre("the same pool"));
}

TEST_F(ChildMainTest, TearsDownAPoolThatIsNotThereAfterAFailedFirstCycle) {
    AtPause(2, [this] { Configure(Jobs({"web"})); });
    AtPause(7, [] {
        AwaitStart(1);
        closingDown = true;
    });

    const EndedProcess process = Run();

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBppBBbBppppp");
    EXPECT_THAT(OtherNotes(process), ElementsAre("web started"));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, CountsAFailedRebuildAsAFailedCycle) {
    Configure(Jobs({"web"}));

    const EndedProcess process = Run([] {
        threadThatFails = 2;
        maxLoadErrors = 0;
    });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_THAT(Pauses(process), IsEmpty());
    EXPECT_THAT(process.lines, ElementsAre(process.Error("C ", "Error creating Thread Pool"),
                                           process.Error("C ", TooMany), process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, ForgetsNoFailureForALoadWhoseRebuildFails) {
    Configure("<dog>");
    AtPause(2, [this] {
        Configure(Jobs({"web"}));
        threadThatFails = 2;
    });

    const EndedProcess process = Run([] { maxLoadErrors = 1; });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_THAT(Pauses(process), ElementsAre(2));
    ASSERT_EQ(process.lines.size(), 5U);
    EXPECT_EQ(process.lines[1], process.Error("C ", "Configuration file parse error"));
    EXPECT_EQ(process.lines[2], process.Error("C ", "Error creating Thread Pool"));
    EXPECT_EQ(process.lines[3], process.Error("C ", TooMany));
}

TEST_F(ChildMainTest, CountsATeardownThatFailsAsAFailedCycleAndBuildsNoNewPool) {
    Configure(Jobs({"held"}));
    AtPause(5, [this] {
        AwaitStart(1);
        Configure(Jobs({"web"}, "maxloaderrors='1'"));
    });
    AtPause(6, [this] {
        Note("threads " + std::to_string(threadsAskedFor));
        Configure(Jobs({"web"}));
        threadThatFails = 4;  // so that one failure more follows
    });

    const EndedProcess process = Run([] {
        atHeartbeat[5] = [] {
            sleepThrows = true;
        };
    });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBBpppppBBbbBpBBbbB");
    EXPECT_THAT(OtherNotes(process),
                ElementsAre("held started", "held ended for a reload", "threads 3"));
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("C ", "exception while tidying threadpool!"),
                            process.Error("C ", "Error creating Thread Pool"),
                            process.Error("C ", TooMany), process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, DoesNotRepeatAFailedRebuildUntilTheFileChanges) {
    Configure(Jobs({"web"}, "maxloaderrors='1'"));
    AtPause(1, [] {
        Note(GetThreadPool() || tidyingThreadPool ? "pool left" : "no pool");
        threadThatFails = 2;
    });
    AtPause(3, [this] { Configure(Jobs({"web"})); });  // fails: one failure in a row, not two
    AtPause(5, [] {
        Note("threads " + std::to_string(threadsAskedFor) + ", jobs " +
             std::to_string(jobsStarted));
    });
    AtPause(6, [this] { Configure(Jobs({"web"})); });  // succeeds
    AtPause(7, [] {
        AwaitStart(1);
        closingDown = true;
    });

    const EndedProcess process = Run([] { threadThatFails = 1; });

    // Failed at 1, unchanged twice, failed at 4, unchanged twice, then loaded.
    EXPECT_THAT(Pauses(process), ElementsAre(1, 1, 1, 1, 1, 1, 1));
    EXPECT_THAT(OtherNotes(process), ElementsAre("no pool", "threads 2, jobs 0", "web started"));
    EXPECT_THAT(process.lines, ElementsAre(process.Error("C ", "Error creating Thread Pool"),
                                           process.Error("C ", "Error creating Thread Pool"),
                                           process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, CountsARebuildThatRunsOutOfMemoryAsAFailedCycle) {
    Configure(Jobs({"web"}));
    CloseAtPause(1);  // reached only once every allocation of the rebuild has had its turn
    std::set<std::string> failures;

    EndedProcess process;
    for (std::size_t index = 0; index < 200; ++index) {
        SCOPED_TRACE(index);
        process = Run([index] {
            maxLoadErrors = 0;
            atHeartbeat[2] = [index] {
                failingAllocation.emplace(index);
            };
            atHeartbeat[3] = [] {
                failingAllocation.reset();
            };
        });
        ASSERT_TRUE(process.ExitedWith(0));
        if (process.lines.size() == 1) {
            break;
        }
        ASSERT_EQ(process.lines.size(), 3U);
        EXPECT_EQ(process.lines[1], process.Error("C ", TooMany));
        failures.insert(process.lines[0].text.substr(std::to_string(process.pid).size()));
    }

    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
    EXPECT_THAT(failures, ElementsAre(":C : exception while assigning jobs!\n",
                                      ":C : exception while creating threadpool!\n"));
}

TEST_F(ChildMainTest, EndsWhenAskedBeforeTheFirstCycle) {
    Configure(Jobs({"web"}));

    const EndedProcess process = Run([] { closingDown = true; });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "");
    EXPECT_EQ(Left(process), "nothing");
    EXPECT_THAT(OtherNotes(process), IsEmpty());
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, EndsWhenAskedDuringACycle) {
    Configure(Jobs({}));

    const EndedProcess process = Run([] {
        atHeartbeat[3] = [] {
            closingDown = true;
        };
    });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBB");
}

TEST_F(ChildMainTest, DoesNotBlameTheFileForAnEndThatWasAskedFor) {
    const EndedProcess process = Run([] {
        maxLoadErrors = 0;
        atHeartbeat[2] = [] {
            closingDown = true;
        };  // at the end of a cycle that has failed
    });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, EndsWithinASecondWhenASignalArrivesDuringAPause) {
    Configure(Jobs({}));
    AtPause(2, [] { raise(SIGTERM); });

    const EndedProcess process = Run([] { InstallChildSignals(); });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBBpp");
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, WritesNoHeartbeatOnceTheLastSecondOfAPauseHasClosedIt) {
    Configure(Jobs({}));
    CloseAtPause(5);

    const EndedProcess process = Run();

    EXPECT_EQ(Rhythm(process), "BBBppppp");
}

TEST_F(ChildMainTest, DoesNotWaitForARunningJobWhenItEnds) {
    Configure(Jobs({"stuck"}));
    AtPause(1, [] {
        AwaitStart(1);
        closingDown = true;
    });

    const EndedProcess process = Run();

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Left(process), "nothing");
}

TEST_F(ChildMainTest, BuildsNoNewPoolWhenAShutdownCutsTheTeardownOfTheOldOneShort) {
    Configure(Jobs({"stuck"}));
    AtPause(5, [this] {
        AwaitStart(1);
        Configure(Jobs({"stuck", "db"}));
        // Comes while the worker of the stuck job is being joined, which would never end.
        whenJoining = [] {
            raise(SIGTERM);
        };
    });

    const EndedProcess process = Run([] {
        InstallChildSignals();
        std::atexit([] { Note("threads " + std::to_string(threadsAskedFor)); });
    });

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBBpppppBBbB");
    EXPECT_THAT(OtherNotes(process), ElementsAre("stuck started", "threads 3"));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 0)));
    EXPECT_EQ(Left(process), "nothing");
}

TEST_F(ChildMainTest, EndsInOrderAfterAnExceptionInTheLoop) {
    Configure(Jobs({"stuck"}));
    AtPause(3, [] {
        AwaitStart(1);
        throw std::runtime_error("unforeseen");
    });

    const EndedProcess process = Run();

    EXPECT_TRUE(process.ExitedWith(0));
    EXPECT_EQ(Rhythm(process), "BBBppp");
    EXPECT_EQ(Left(process), "nothing");
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("C ", "exception in child loop"), process.Exit("C ", 0)));
}

TEST_F(ChildMainTest, FailsWhenThereIsNoMemoryForTheConfiguration) {
    Configure(Jobs({}));

    const EndedProcess process = RunForked([this]() -> int {
        Prepare();
        const FailingOnceAllocation failing(0);
        child_main();
    });

    EXPECT_TRUE(process.ExitedWith(1));
    EXPECT_EQ(Rhythm(process), "");
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("C ", "exception while new-ing DogConfig!"),
                            process.Exit("C ", 1)));
}

/// Runs the loop in a fork whose parent, a process of its own, is killed during pause 3.
class OrphanedChildMainTest : public ChildMainTest {
protected:
    EndedProcess RunOrphaned() {
        AtPause(3, [] {
            const pid_t parent = getppid();
            kill(parent, SIGKILL);
            if (!WaitUntil([=] { return kill(parent, 0) != 0; }, std::chrono::seconds(30))) {
                _exit(92);
            }
        });
        return RunForked([this]() -> int {
            prctl(PR_SET_CHILD_SUBREAPER, 1);
            const pid_t parent = fork();
            if (parent == 0) {
                if (fork() == 0) {
                    Prepare();
                    child_main();
                }
                for (;;) {
                    pause();
                }
            }
            waitpid(parent, nullptr, 0);
            int status = 0;
            wait(&status);
            _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 93);
        });
    }
};

TEST_F(OrphanedChildMainTest, EndsAChildWhoseParentHasDied) {
    Configure(Jobs({"web"}));

    const EndedProcess process = RunOrphaned();

    EXPECT_TRUE(process.ExitedWith(0)) << process.waitStatus;
    EXPECT_EQ(Rhythm(process), "BBBppppp");
    ASSERT_EQ(process.lines.size(), 1U);
    EXPECT_THAT(process.lines[0].text, ::testing::EndsWith(":C  exit(0)"));
}

TEST_F(OrphanedChildMainTest, LetsAForegroundProcessOutliveWhoeverStartedIt) {
    Configure(Jobs({"web"}));
    CloseAtPause(7);
    foregroundMode = true;

    const EndedProcess process = RunOrphaned();
    foregroundMode = false;

    EXPECT_TRUE(process.ExitedWith(0)) << process.waitStatus;
    EXPECT_EQ(Rhythm(process), "BBBpppppBBpBBp");
}

}  // namespace kennly::test
