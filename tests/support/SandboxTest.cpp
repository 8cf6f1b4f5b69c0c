#include "support/Sandbox.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <sstream>
#include <thread>

extern "C" {  // which this header of glibc 2.36 leaves to its users
#include <sys/pidfd.h>
}

#include <gtest/gtest.h>

#include "support/SandboxFork.h"
#include "support/SandboxPolling.h"

namespace kennly::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds Generous(20000);
constexpr const char* DataDirectory = "/opt/qrv/data/kennly";

// What this program does when it runs inside a sandbox.
constexpr const char* LogOnceFlag = "--log-once";
constexpr const char* LogManyFlag = "--log-many";
constexpr const char* DescribeStartFlag = "--describe-start";
constexpr int ManyLines = 500;

std::string ThisProgram() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

int LogOnce() {
    openlog("kennly", LOG_CONS, LOG_LOCAL4);
    syslog(LOG_ERR, "%d: %s : %s\n", 123, "first", "second: third");
    closelog();
    openlog("other", LOG_PID, LOG_DAEMON);
    syslog(LOG_DEBUG, "no newline");
    syslog(LOG_INFO, "%s", std::string(7000, 'x').c_str());
    return 0;
}

int LogMany() {
    openlog("kennly", LOG_CONS, LOG_LOCAL4);
    for (int number = 0; number < ManyLines; ++number) {
        syslog(LOG_ERR, "%d", number);
    }
    return 0;
}

/// Writes the open descriptors, the ignored and the blocked signals, as found at the start.
int DescribeStart(const char* path) {
    std::ostringstream text;
    for (int number = 0; number < 1024; ++number) {
        if (fcntl(number, F_GETFD) >= 0) {
            text << "open " << number << "\n";
        }
    }
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    for (int number = 1; number <= SIGRTMAX; ++number) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
            text << "ignored " << number << "\n";
        }
        if (sigismember(&mask, number) == 1) {
            text << "blocked " << number << "\n";
        }
    }
    std::ofstream(path) << text.str();
    return 0;
}

/// A running process. Its number would not do to tell when it has ended: another process or thread
/// may have that number soon after, on a machine that starts many.
class RunningProcess {
public:
    explicit RunningProcess(pid_t number) : number_(number), handle_(pidfd_open(number, 0)) {
        EXPECT_TRUE(handle_.IsOpen()) << number;
    }

    pid_t Number() const { return number_; }
    bool HasEnded() const {
        pollfd end = {handle_.Get(), POLLIN, 0};
        return poll(&end, 1, 0) == 1 && (end.revents & POLLIN) != 0;
    }

private:
    pid_t number_;
    Descriptor handle_;
};

std::size_t CountOf(const char* directory) {
    const auto entries = std::filesystem::directory_iterator(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::string ContentOf(const char* path) {
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

class SandboxTest : public testing::Test {
protected:
    void SetUp() override {
        std::string error;
        sandbox_ = Sandbox::Create(error);
        ASSERT_TRUE(sandbox_) << error;
    }

    /// Runs a command to its end. Returns the raw wait status, -1 when it did not end.
    int Run(const std::vector<std::string>& command, const StartOptions& options = {}) {
        return sandbox_->Start(command, options)->WaitForEnd(Generous).value_or(-1);
    }

    bool WaitForLines(std::size_t count) {
        return sandbox_->WaitForLog(
            [count](const std::vector<LogLine>& log) { return log.size() >= count; }, Generous);
    }

    std::unique_ptr<Sandbox> sandbox_;
};

TEST_F(SandboxTest, RecordsPriorityIdentityAndTextByteForByte) {
    const auto before = std::chrono::steady_clock::now();

    ASSERT_EQ(Run({ThisProgram(), LogOnceFlag}), 0);

    ASSERT_TRUE(WaitForLines(3)) << DescribeLog(sandbox_->Log());
    const std::vector<LogLine> log = sandbox_->Log();
    ASSERT_EQ(log.size(), 3U);
    EXPECT_EQ(log[0].facility, LOG_LOCAL4);
    EXPECT_EQ(log[0].severity, LOG_ERR);
    EXPECT_EQ(log[0].identity, "kennly");
    EXPECT_EQ(log[0].text, "123: first : second: third\n");
    EXPECT_EQ(log[1].facility, LOG_DAEMON);
    EXPECT_EQ(log[1].severity, LOG_DEBUG);
    EXPECT_EQ(log[1].identity, "other");
    EXPECT_EQ(log[1].text, "no newline");
    EXPECT_EQ(log[2].text, std::string(7000, 'x'));
    EXPECT_GE(log[0].arrival, before);
    EXPECT_LE(log[2].arrival, std::chrono::steady_clock::now());
}

TEST_F(SandboxTest, KeepsTheOrderOfManyLinesAndTellsTheListenerOfEach) {
    std::atomic<int> told{0};
    sandbox_->OnLine([&told](const LogLine&) { ++told; });

    ASSERT_EQ(Run({ThisProgram(), LogManyFlag}), 0);

    ASSERT_TRUE(WaitForLines(ManyLines));
    const std::vector<LogLine> log = sandbox_->Log();
    for (std::size_t index = 0; index < log.size(); ++index) {
        EXPECT_EQ(log[index].text, std::to_string(index));
    }
    EXPECT_TRUE(WaitUntil([&told] { return told == ManyLines; }, Generous));
    sandbox_->OnLine({});
}

TEST_F(SandboxTest, GivesUpWaitingForALineThatDoesNotCome) {
    EXPECT_FALSE(
        sandbox_->WaitForLog([](const auto& log) { return !log.empty(); }, milliseconds(30)));
}

/// A second thread. Of a process that has but one, the thread sanitizer gives each copy another,
/// and then it cannot enter a sandbox.
class Bystander {
public:
    Bystander() : thread_([this] { end_.get_future().wait(); }) {}
    ~Bystander() {
        end_.set_value();
        thread_.join();
    }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

private:
    std::promise<void> end_;
    std::thread thread_;
};

TEST_F(SandboxTest, KeepsLinesForALogThatIsReadAgain) {
    const Bystander bystander;
    sandbox_->StopReadingLog();
    ASSERT_EQ(Run({ThisProgram(), LogOnceFlag}), 0);
    EXPECT_TRUE(sandbox_->Log().empty());

    sandbox_->ReadLogAgain();

    EXPECT_TRUE(WaitForLines(3)) << DescribeLog(sandbox_->Log());
}

TEST_F(SandboxTest, LosesLinesWhileThereIsNoLog) {
    const Bystander bystander;
    sandbox_->EndLog();
    ASSERT_EQ(Run({ThisProgram(), LogOnceFlag}), 0);

    ASSERT_TRUE(sandbox_->BeginLogAgain());

    ASSERT_EQ(Run({ThisProgram(), LogOnceFlag}), 0);
    EXPECT_TRUE(WaitForLines(3));
    EXPECT_EQ(sandbox_->Log().size(), 3U) << DescribeLog(sandbox_->Log());
}

TEST_F(SandboxTest, HasThePrivateDirectoriesWithTheirModes) {
    for (const char* const name : {"", "/config", "/config/filetimes", "/heartbeats"}) {
        SCOPED_TRACE(name);
        struct stat status = {};
        ASSERT_EQ(stat(sandbox_->PathInside(std::string(DataDirectory) + name).c_str(), &status),
                  0);
        EXPECT_TRUE(S_ISDIR(status.st_mode));
        EXPECT_EQ(status.st_mode & 07777, 0755U);
        EXPECT_EQ(CountOf(sandbox_->PathInside(std::string(DataDirectory) + "/heartbeats").c_str()),
                  0U);
    }
}

TEST_F(SandboxTest, ShowsTheTestWhatACommandWroteAndNothingToTheMachine) {
    const std::string path = std::string(DataDirectory) + "/config/made-by-sandbox-test";

    ASSERT_EQ(Run({"sh", "-c", "echo inside > " + path}), 0);

    EXPECT_EQ(sandbox_->ReadFile(path).value_or("none"), "inside\n");
    EXPECT_TRUE(sandbox_->FileExists(path));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(sandbox_->RemoveFile(path));
    EXPECT_FALSE(sandbox_->FileExists(path));
    EXPECT_FALSE(sandbox_->ReadFile(path));
}

TEST_F(SandboxTest, WritesFilesAndTheirTimes) {
    const std::string path = std::string(DataDirectory) + "/config/file";

    ASSERT_TRUE(sandbox_->WriteFile(path, "a longer content"));
    ASSERT_TRUE(sandbox_->WriteFile(path, "short"));
    ASSERT_TRUE(sandbox_->SetFileTime(path, 1000000000));

    EXPECT_EQ(sandbox_->ReadFile(path).value_or("none"), "short");
    auto process = sandbox_->Start({"stat", "-c", "%Y", path}, [] {
        StartOptions options;
        options.captureOutput = true;
        return options;
    }());
    ASSERT_TRUE(process->WaitForEnd(Generous));
    EXPECT_EQ(process->OutputText(), "1000000000\n");
    EXPECT_FALSE(sandbox_->WriteFile("/opt/qrv/data/kennly/missing/file", ""));
}

TEST_F(SandboxTest, KeepsTheOtherEntriesOfCoveredDirectories) {
    for (const auto& entry : std::filesystem::directory_iterator("/opt")) {
        const std::string inside = sandbox_->PathInside(entry.path());
        EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(inside))) << inside;
    }
    EXPECT_EQ(Run({"sh", "-c", "test -c /dev/null && test -S /dev/log && echo x > /dev/null"}), 0);
}

TEST_F(SandboxTest, NumbersProcessesInAProcOfItsOwn) {
    if (sandbox_->HasUserNamespace()) {
        GTEST_SKIP() << "a user namespace may have to do with the machine's proc";
    }
    EXPECT_EQ(Run({"sh", "-c", "test -d /proc/$$ && test \"$(cat /proc/1/comm)\" = sandbox-first"}),
              0);
}

TEST_F(SandboxTest, StartsCommandsWithDescriptorsAndSignalsAsAsked) {
    const std::string path = std::string(DataDirectory) + "/start";
    const std::vector<std::string> command = {ThisProgram(), DescribeStartFlag, path};
    StartOptions options;
    ASSERT_EQ(Run(command, options), 0);
    EXPECT_EQ(sandbox_->ReadFile(path).value_or("none"), "open 0\nopen 1\nopen 2\n");

    options.closedDescriptors = {0, 2};
    options.ignoredSignals = {SIGHUP, SIGCHLD};
    options.blockedSignals = {SIGTERM};
    options.captureError = true;
    ASSERT_EQ(Run(command, options), 0);

    EXPECT_EQ(sandbox_->ReadFile(path).value_or("none"),
              "open 1\nignored 1\nblocked 15\nignored 17\n");
}

TEST_F(SandboxTest, StartsCommandsWithEnvironmentAndDirectoryAsAsked) {
    StartOptions options;
    options.environment = {{"SANDBOX_TEST", "a value"}, {"HOME", "/nowhere"}};
    options.workingDirectory = DataDirectory;
    options.captureOutput = true;

    auto process =
        sandbox_->Start({"sh", "-c", "echo $SANDBOX_TEST $HOME $(pwd) $(umask)"}, options);

    ASSERT_EQ(process->WaitForEnd(Generous).value_or(-1), 0);
    EXPECT_EQ(process->OutputText(), "a value /nowhere /opt/qrv/data/kennly 0022\n");
    EXPECT_EQ(process->ErrorText(), "");
}

TEST_F(SandboxTest, KeepsOutputAndErrorApartAndCompleteHoweverLong) {
    StartOptions options;
    options.captureOutput = true;
    options.captureError = true;

    auto process = sandbox_->Start(
        {"sh", "-c", "head -c 3000000 /dev/zero; echo wrong >&2; echo again > /dev/stderr"},
        options);

    ASSERT_EQ(process->WaitForEnd(Generous).value_or(-1), 0);
    EXPECT_EQ(process->OutputText().size(), 3000000U);
    EXPECT_EQ(process->ErrorText(), "wrong\nagain\n");
}

TEST_F(SandboxTest, ReportsExitStatusAndKillingSignal) {
    const int exited = Run({"sh", "-c", "exit 7"});
    EXPECT_TRUE(WIFEXITED(exited) && WEXITSTATUS(exited) == 7) << exited;

    auto process = sandbox_->Start({"sleep", "1000"});
    EXPECT_TRUE(process->Running());
    EXPECT_FALSE(process->WaitForEnd(milliseconds(20)));
    EXPECT_TRUE(process->Signal(SIGTERM));
    const int killed = process->WaitForEnd(Generous).value_or(-1);
    EXPECT_TRUE(WIFSIGNALED(killed) && WTERMSIG(killed) == SIGTERM) << killed;
    EXPECT_EQ(process->WaitForEnd(milliseconds(0)).value_or(-1), killed);
    EXPECT_FALSE(process->Running());
    EXPECT_FALSE(process->Signal(SIGTERM));
}

TEST_F(SandboxTest, ThrowsForACommandThatCannotBeStarted) {
    EXPECT_THROW(sandbox_->Start({"/no/such/program"}), std::runtime_error);
    EXPECT_THROW(sandbox_->Start({"no-such-program"}), std::runtime_error);
    EXPECT_THROW(sandbox_->Start({}), std::runtime_error);
    StartOptions options;
    options.workingDirectory = "/no/such/directory";
    EXPECT_THROW(sandbox_->Start({"true"}, options), std::runtime_error);
    EXPECT_EQ(Run({"true"}), 0);
}

TEST_F(SandboxTest, ListsProcessesAndReapsOrphans) {
    auto process = sandbox_->Start({"sleep", "1000"});
    EXPECT_EQ(sandbox_->Processes(), std::vector<pid_t>{process->Pid()});

    ASSERT_EQ(Run({"sh", "-c", "sleep 1001 & true"}), 0);

    const std::vector<pid_t> processes = sandbox_->Processes();
    ASSERT_EQ(processes.size(), 2U);
    const pid_t orphan = processes[processes[0] == process->Pid() ? 1 : 0];
    ASSERT_EQ(kill(orphan, SIGTERM), 0);
    EXPECT_TRUE(WaitUntil([this] { return sandbox_->Processes().size() == 1; }, Generous));
}

TEST_F(SandboxTest, TellsHowOrphansHaveEnded) {
    const std::string path = std::string(DataDirectory) + "/";
    const std::string waits = "(until [ -e " + path + "go ]; do sleep 0.01; done; exit 7)";
    ASSERT_EQ(Run({"sh", "-c", waits + " & echo $! >" + path + "exiting"}), 0);
    ASSERT_EQ(Run({"sh", "-c", "sleep 1001 & echo $! >" + path + "killed"}), 0);
    EXPECT_TRUE(sandbox_->Deaths().empty()) << "of those whose parents we are";
    const int exiting = std::stoi(sandbox_->ReadFile(path + "exiting").value_or("0"));
    const int killed = std::stoi(sandbox_->ReadFile(path + "killed").value_or("0"));

    ASSERT_TRUE(sandbox_->WriteFile(path + "go", ""));
    ASSERT_TRUE(WaitUntil([this] { return sandbox_->Deaths().size() == 1; }, Generous));
    ASSERT_EQ(Run({"sh", "-c", "kill -KILL " + std::to_string(killed)}), 0);
    ASSERT_TRUE(WaitUntil([this] { return sandbox_->Deaths().size() == 2; }, Generous));

    const std::vector<Death> deaths = sandbox_->Deaths();
    EXPECT_EQ(deaths[0].number, exiting);
    EXPECT_TRUE(WIFEXITED(deaths[0].status) && WEXITSTATUS(deaths[0].status) == 7);
    EXPECT_EQ(deaths[1].number, killed);
    EXPECT_TRUE(WIFSIGNALED(deaths[1].status) && WTERMSIG(deaths[1].status) == SIGKILL);
}

TEST_F(SandboxTest, EndsEveryProcessInsideWhenDestroyed) {
    auto process = sandbox_->Start({"sh", "-c", "trap '' TERM; sleep 1000 & wait"});
    ASSERT_EQ(Run({"sh", "-c", "setsid sleep 1001 & true"}), 0);
    ASSERT_TRUE(WaitUntil([this] { return sandbox_->Processes().size() == 3; }, Generous));
    std::vector<RunningProcess> processes;
    for (const pid_t number : sandbox_->Processes()) {
        processes.emplace_back(number);
    }
    processes.emplace_back(sandbox_->FirstProcess());

    sandbox_.reset();

    for (const RunningProcess& inside : processes) {
        EXPECT_TRUE(inside.HasEnded()) << inside.Number();
    }
    const int status = process->WaitForEnd(Generous).value_or(-1);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

TEST_F(SandboxTest, KillsAProcessWhoseHandleGoes) {
    auto process = sandbox_->Start({"sleep", "1000"});
    SandboxProcess moved = std::move(*process);
    process.reset();
    EXPECT_TRUE(moved.Running());
    {
        const SandboxProcess last = std::move(moved);
        EXPECT_EQ(sandbox_->Processes().size(), 1U);
    }
    EXPECT_TRUE(sandbox_->Processes().empty());
}

TEST_F(SandboxTest, IsUnaffectedByTheEndOfTheThreadThatMadeIt) {
    std::unique_ptr<Sandbox> other;
    std::unique_ptr<SandboxProcess> process;
    std::thread([&] {
        std::string error;
        other = Sandbox::Create(error);
        process = other->Start({"sleep", "1000"});
    }).join();

    EXPECT_FALSE(process->WaitForEnd(milliseconds(50)));
    EXPECT_EQ(Run({"true"}), 0);
}

/// Creates a sandbox with processes, tells their numbers and waits to be killed.
[[noreturn]] void MakeSandboxAndStay(int report) {
    std::string error;
    const auto sandbox = Sandbox::Create(error);
    std::vector<pid_t> numbers(3, -1);
    if (sandbox) {
        const auto process = sandbox->Start({"sleep", "1000"});
        numbers = {sandbox->FirstProcess(), process->Pid(), process->Pid()};
        WriteRecord(report, numbers.data(), numbers.size() * sizeof(pid_t));
        for (;;) {
            pause();
        }
    }
    WriteRecord(report, numbers.data(), numbers.size() * sizeof(pid_t));
    _exit(1);
}

TEST(SandboxLifeTest, EndsWithAProcessThatIsKilled) {
    Descriptor readEnd;
    Descriptor writeEnd;
    ASSERT_TRUE(MakePipe(readEnd, writeEnd));
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t maker = fork();
    if (maker == 0) {
        MakeSandboxAndStay(writeEnd.Get());
    }
    std::vector<pid_t> numbers(3, -1);
    ASSERT_TRUE(ReadRecord(readEnd.Get(), numbers.data(), numbers.size() * sizeof(pid_t)));
    const RunningProcess first(numbers[0]);
    const RunningProcess command(numbers[1]);
    ASSERT_FALSE(first.HasEnded());
    ASSERT_FALSE(command.HasEnded());

    kill(maker, SIGKILL);

    EXPECT_TRUE(WaitUntil([&] { return first.HasEnded() && command.HasEnded(); }, Generous));
    // Keeper, helper and maker have become our children and must all end.
    EXPECT_TRUE(WaitUntil(
        [] {
            while (waitpid(-1, nullptr, WNOHANG) > 0) {
            }
            return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
        },
        Generous));
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

constexpr int SkipStatus = 77;

/// Uses a sandbox as an ordinary user. Returns 0 when all went well.
int UseSandboxUnprivileged() {
    std::string error;
    const auto sandbox = Sandbox::Create(error);
    if (!sandbox) {
        std::cerr << error << "\n";
        return SkipStatus;
    }
    const std::string path = std::string(DataDirectory) + "/config/file";
    const auto process =
        sandbox->Start({"sh", "-c", "echo \"$(id -u)\" > " + path + "; test -S /dev/log"});
    const bool ended = process->WaitForEnd(Generous).value_or(-1) == 0;
    const bool read = sandbox->ReadFile(path).value_or("") == std::to_string(geteuid()) + "\n";
    const bool written = sandbox->WriteFile(path, "x") && sandbox->ReadFile(path) == "x";
    const auto sleeper = sandbox->Start({"sleep", "1000"});
    const bool listed = sandbox->Processes() == std::vector<pid_t>{sleeper->Pid()};
    std::cerr << "user namespace " << sandbox->HasUserNamespace() << ", ended " << ended
              << ", read " << read << ", written " << written << ", listed " << listed << "\n";
    return sandbox->HasUserNamespace() && ended && read && written && listed ? 0 : 1;
}

TEST(SandboxLifeTest, WorksUnprivilegedThroughAUserNamespace) {
    const pid_t child = fork();
    if (child == 0) {
        constexpr unsigned Nobody = 65534;
        const bool changed = geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(Nobody) == 0 &&
                                                setuid(Nobody) == 0);
        _exit(changed ? UseSandboxUnprivileged() : 2);
    }
    const int status = WaitForChild(child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == SkipStatus) {
        GTEST_SKIP() << "the kernel refuses a user namespace to ordinary users";
    }
    EXPECT_EQ(status, 0);
}

TEST(SandboxLifeTest, LeavesNothingBehind) {
    const std::string mounts = ContentOf("/proc/self/mountinfo");
    const std::size_t descriptors = CountOf("/proc/self/fd");
    std::vector<RunningProcess> processes;
    const auto start = std::chrono::steady_clock::now();

    for (int round = 0; round < 100; ++round) {
        std::string error;
        const auto sandbox = Sandbox::Create(error);
        ASSERT_TRUE(sandbox) << error;
        processes.emplace_back(sandbox->FirstProcess());
        processes.emplace_back(sandbox->Start({"sleep", "1000"})->Pid());
    }

    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - start;
    std::cout << "one sandbox with one command: " << taken.count() / 100 << " ms\n";
    for (const RunningProcess& inside : processes) {
        EXPECT_TRUE(inside.HasEnded()) << inside.Number();
    }
    processes.clear();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(ContentOf("/proc/self/mountinfo"), mounts);
    EXPECT_EQ(CountOf("/proc/self/fd"), descriptors);
}

TEST(SystemLogLineTest, TakesDatagramsApart) {
    struct Row {
        const char* datagram;
        int facility;
        int severity;
        const char* identity;
        const char* text;
    };
    const std::vector<Row> rows = {
        {"<163>Nov 21 01:08:14 kennly: 123:  : text\n", LOG_LOCAL4, LOG_ERR, "kennly",
         "123:  : text\n"},
        {"<163>Nov  1 01:08:14 kennly[77]: text", LOG_LOCAL4, LOG_ERR, "kennly", "text"},
        {"<14>kennly: ", LOG_USER, LOG_INFO, "kennly", ""},
        {"<14>Nov 21 01:08:14 : text", LOG_USER, LOG_INFO, "", "text"},
        {"<191>Nov 21 01:08:14 two words: text", LOG_LOCAL7, LOG_DEBUG, "", "two words: text"},
        {"<192>x: y", -1, -1, "<192>x", "y"},
        {"<>x", -1, -1, "", "<>x"},
        {"<1", -1, -1, "", "<1"},
        {"<1x>text", -1, -1, "", "<1x>text"},
        {"<0>Nov 21 01:08", LOG_KERN, LOG_EMERG, "", "Nov 21 01:08"},
        {"<14>kennly[]: a", LOG_USER, LOG_INFO, "kennly[]", "a"},
        {"<14>kennly[x]: a", LOG_USER, LOG_INFO, "kennly[x]", "a"},
        {"<14>[1]: a", LOG_USER, LOG_INFO, "", "a"},
        {"", -1, -1, "", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.datagram);
        const LogLine line = ParseLogLine(row.datagram);
        EXPECT_EQ(line.facility, row.facility);
        EXPECT_EQ(line.severity, row.severity);
        EXPECT_EQ(line.identity, row.identity);
        EXPECT_EQ(line.text, row.text);
    }
}

TEST(SystemLogLineTest, DescribesLinesPrintably) {
    std::vector<LogLine> lines = {ParseLogLine("<163>kennly: a\tb\\\n"), ParseLogLine("plain")};
    lines[1].arrival = lines[0].arrival + milliseconds(1500);

    EXPECT_EQ(DescribeLog(lines),
              "    0.000 local4.err kennly: a\\x09b\\\\\\n\n"
              "    1.500 unknown : plain\n");
    EXPECT_EQ(DescribeLog({}), "");
}

}  // namespace
}  // namespace kennly::test

int main(int argc, char** argv) {
    using namespace kennly::test;
    const std::string flag = argc > 1 ? argv[1] : "";
    if (flag == LogOnceFlag) {
        return LogOnce();
    }
    if (flag == LogManyFlag) {
        return LogMany();
    }
    if (flag == DescribeStartFlag && argc > 2) {
        return DescribeStart(argv[2]);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
