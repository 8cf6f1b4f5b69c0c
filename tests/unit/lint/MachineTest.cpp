#include "lint/Machine.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <optional>

#include "main/Paths.h"
#include "status/DaemonProcesses.h"
#include "support/Dice.h"
#include "unit/lint/LintTest.h"

namespace kennly {

static std::vector<DaemonProcess> found;

// In the place of the one that looks at this machine's processes.
std::vector<DaemonProcess> FindDaemonProcesses() {
    return found;
}

}  // namespace kennly

namespace kennly::test {

// A process with an environment and a working directory of its own, for as long as the object
// lives.
class OtherProcess {
public:
    OtherProcess(const char* variable, const std::string& directory) {
        int channel[2] = {-1, -1};
        EXPECT_EQ(pipe2(channel, O_CLOEXEC), 0);
        number_ = fork();
        if (number_ == 0) {
            const char* const environment[] = {"OTHERPATH=/none", variable, nullptr};
            if (chdir(directory.c_str()) == 0) {
                execle("/bin/sleep", "sleep", "1000", nullptr, environment);
            }
            _exit(1);
        }
        close(channel[1]);
        char none = 0;
        EXPECT_EQ(read(channel[0], &none, 1), 0) << "ends once the program is there";
        close(channel[0]);
    }
    ~OtherProcess() {
        kill(number_, SIGKILL);
        waitpid(number_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    pid_t Number() const { return number_; }

private:
    pid_t number_ = -1;
};

class MachineTest : public LintTest {
protected:
    MachineTest() {
        found.clear();
        machine.startDirectory = directory.Path("start");
        std::filesystem::create_directory(machine.startDirectory);
    }
    ~MachineTest() override {
        if (path_) {
            setenv("PATH", path_->c_str(), 1);
        }
    }

    std::string Program(const std::string& name, mode_t mode = 0755) const {
        std::filesystem::create_directories(
            std::filesystem::path(directory.Path(name)).parent_path());
        const std::string path = directory.Write(name, "#!/bin/sh\necho \"$0\"\n");
        EXPECT_EQ(chmod(path.c_str(), mode), 0);
        return path;
    }

    static DaemonProcess Process(pid_t number, DaemonProcess::Role role, bool isWatcher) {
        DaemonProcess process;
        process.number = number;
        process.role = role;
        process.isWatcher = isWatcher;
        return process;
    }

private:
    const std::optional<std::string> path_ = std::getenv("PATH") != nullptr
                                                 ? std::optional<std::string>(std::getenv("PATH"))
                                                 : std::nullopt;
};

using Role = DaemonProcess::Role;

TEST_F(MachineTest, IsThisOneAndThisProcessWhileNoDaemonRuns) {
    setenv("PATH", "/a:/b", 1);

    const Machine here = ThisMachine(false);
    EXPECT_EQ(here.configDirectory, ConfigDirectoryPath);
    EXPECT_EQ(here.recordDirectory, std::string(ConfigDirectoryPath) + "/filetimes");
    EXPECT_EQ(here.heartbeatDirectory + "/child", ChildHeartbeatPath);
    EXPECT_EQ(here.mainConfig, MainConfigPath);
    EXPECT_EQ(here.watcherConfig, WatcherConfigPath);
    EXPECT_EQ(here.searchPath, "/a:/b");
    EXPECT_EQ(here.startDirectory, std::filesystem::current_path());
    EXPECT_FALSE(here.daemonRuns);
}

TEST_F(MachineTest, HasWhatTheCommandsOfARunningDaemonInherit) {
    setenv("PATH", "/mine", 1);
    const OtherProcess other("PATH=/a:/b=c", directory.Path("start"));
    const std::string start = std::filesystem::canonical(directory.Path("start"));
    const struct {
        Role role;
        bool isWatcher;
        bool askedForWatcher;
        bool isTaken;
    } rows[] = {
        {Role::Child, false, false, true},      {Role::Child, true, true, true},
        {Role::Foreground, false, false, true}, {Role::Child, false, true, false},
        {Role::Child, true, false, false},      {Role::Parent, false, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        found = {Process(other.Number(), row.role, row.isWatcher)};
        const Machine here = ThisMachine(row.askedForWatcher);
        EXPECT_EQ(here.daemonRuns, row.isTaken);
        EXPECT_EQ(here.searchPath, row.isTaken ? "/a:/b=c" : "/mine");
        EXPECT_EQ(here.startDirectory == start, row.isTaken);
    }
}

TEST_F(MachineTest, PassesOverADaemonThatHasEnded) {
    const OtherProcess other("PATH=/a", "/");
    found = {Process(other.Number(), Role::Child, false)};
    found.front().hasEnded = true;
    EXPECT_FALSE(ThisMachine(false).daemonRuns);

    found = {Process(0, Role::Child, false), Process(other.Number(), Role::Child, false)};
    EXPECT_TRUE(ThisMachine(false).daemonRuns) << "the other one";
}

TEST_F(MachineTest, SearchesWhereTheShellDoesWhenNobodyHasToldIt) {
    FILE* const shell = popen("unset PATH; exec /bin/sh -c 'echo \"$PATH\"'", "r");
    ASSERT_NE(shell, nullptr);
    char line[1000] = {};
    ASSERT_NE(fgets(line, sizeof(line), shell), nullptr);
    ASSERT_EQ(pclose(shell), 0);
    const std::string ofTheShell(line, std::string(line).size() - 1);

    unsetenv("PATH");
    EXPECT_EQ(ThisMachine(false).searchPath, ofTheShell);
    const OtherProcess other("HOME=/", "/");
    found = {Process(other.Number(), Role::Child, false)};
    EXPECT_EQ(ThisMachine(false).searchPath, ofTheShell);
}

// Runs the program as the daemon's shell would; it prints the path by which it was found.
std::string RunBy(const Machine& machine, const std::string& program) {
    const std::string line = "cd '" + machine.startDirectory + "' && PATH='" + machine.searchPath +
                             "' && export PATH && " + program + " 2>/dev/null";
    FILE* const shell = popen(line.c_str(), "r");
    char path[2000] = {};
    const bool isThere = shell != nullptr && fgets(path, sizeof(path), shell) != nullptr;
    pclose(shell);
    return isThere ? std::string(path, std::string(path).size() - 1) : "";
}

TEST_F(MachineTest, FindsTheProgramThatTheShellStarts) {
    Program("bin/one");
    Program("sbin/one");
    Program("sbin/two");
    Program("start/two");
    Program("start/sub/three");
    Program("start/sub/unfit", 0644);
    Program("sbin/unfit");
    std::filesystem::create_directory(directory.Path("bin/two"));
    const std::vector<std::string> elements = {
        "", "sub", ".", "sub/..", "/nowhere", directory.Path("bin"), directory.Path("sbin")};
    int foundOnes = 0;
    for (unsigned seed = 64001; seed < 64101; ++seed) {
        Dice dice(seed);
        machine.searchPath = dice.Pick(elements);
        for (std::size_t left = dice.Below(4); left > 0; --left) {
            machine.searchPath += ":" + dice.Pick(elements);
        }
        const std::string program =
            dice.Pick({"one", "two", "three", "unfit", "four", "./two", "sub/three", "./one"});
        SCOPED_TRACE(machine.searchPath + " " + program);

        const std::string path = FindProgram(machine, program).value();
        const std::string run = RunBy(machine, program);
        ASSERT_EQ(path.empty(), run.empty());
        if (!path.empty()) {
            const std::string from = run.front() == '/' ? run : machine.startDirectory + "/" + run;
            EXPECT_TRUE(std::filesystem::equivalent(path, from)) << path << " " << run;
            ++foundOnes;
        }
    }
    EXPECT_GT(foundOnes, 30);
}

TEST_F(MachineTest, FindsProgramsByTheirPaths) {
    const std::string path = Program("bin/one");
    EXPECT_EQ(FindProgram(machine, path), path);
    EXPECT_EQ(FindProgram(machine, directory.Path("bin")), "") << "a directory";
    EXPECT_EQ(FindProgram(machine, Program("bin/unfit", 0644)), "");
    EXPECT_EQ(FindProgram(machine, path + "/below"), "");
    EXPECT_EQ(FindProgram(machine, ""), "");
}

TEST_F(MachineTest, KnowsWhatIsThere) {
    const std::string file = directory.Write("file", "");
    EXPECT_EQ(Exists(file), Answer::Yes);
    EXPECT_EQ(Exists(directory.Path("")), Answer::Yes);
    EXPECT_EQ(IsDirectory(directory.Path("")), Answer::Yes);
    EXPECT_EQ(IsDirectory(file), Answer::No);
    std::filesystem::create_symlink(directory.Path("missing"), directory.Path("link"));
    std::filesystem::create_symlink(directory.Path("loop"), directory.Path("loop"));
    for (const std::string& path :
         {directory.Path("missing"), std::string(), file + "/below", directory.Path("link"),
          directory.Path("loop"), directory.Path(std::string(300, 'x'))}) {
        EXPECT_EQ(Exists(path), Answer::No) << path;
        EXPECT_EQ(IsDirectory(path), Answer::No) << path;
    }
}

TEST_F(MachineTest, GivesNoAnswerWhereThisUserMayNotLook) {
    Program("closed/one");
    Program("bin/roots", 0700);
    Program("bin/unfit", 0600);
    Program("sbin/one");
    machine.searchPath = directory.Path("bin") + ":" + directory.Path("closed");
    const std::string path = directory.Path("closed/one");
    const AsOther other(directory, "closed");

    EXPECT_EQ(Exists(path), Answer::Unknown);
    EXPECT_EQ(IsDirectory(path), Answer::Unknown);
    EXPECT_EQ(IsDirectory(directory.Path("closed")), Answer::Yes);
    EXPECT_EQ(FindProgram(machine, path), std::nullopt);
    EXPECT_EQ(FindProgram(machine, "one"), std::nullopt);
    EXPECT_EQ(FindProgram(machine, "none"), std::nullopt);
    EXPECT_NE(FindProgram(machine, directory.Path("bin/roots")), "") << "root can execute it";
    EXPECT_EQ(FindProgram(machine, directory.Path("bin/unfit")), "") << "nobody can";

    machine.searchPath += ":" + directory.Path("sbin");
    EXPECT_EQ(FindProgram(machine, "one"), std::nullopt) << "the first may be the closed one";
    machine.searchPath = directory.Path("sbin") + ":" + directory.Path("closed");
    EXPECT_EQ(FindProgram(machine, "one"), directory.Path("sbin/one"));
}

}  // namespace kennly::test
