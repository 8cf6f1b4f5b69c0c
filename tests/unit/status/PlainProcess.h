#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "main/Paths.h"
#include "support/SandboxDescriptor.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

/// How a process is started.
struct PlainStart {
    std::string directory = "/";
    bool ignoresHangup = false;
    bool writesToNowhere = false;  // its output and errors; else the output is for Ask
    bool leadsSession = false;     // so that its parent is of another one
    /// Another file system lies on the data directory, with these directories below it.
    bool hasOtherData = false;
    std::vector<std::string> otherDirectories;
    bool hasOwnNumbers = false;  // it is the first process of its container
};

/// A process of no privileges or sandbox, which ends with this object.
class PlainProcess {
public:
    /// Executes `program`; `words` are what it sees as its command line.
    PlainProcess(const std::string& program, std::vector<std::string> words,
                 const PlainStart& start = {}) {
        int input[2];
        int output[2];
        int executed[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0 ||
            pipe2(executed, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        number_ = fork();
        if (number_ == 0) {
            if (start.hasOwnNumbers && unshare(CLONE_NEWPID) == 0) {
                if (const pid_t first = fork(); first != 0) {
                    close(executed[1]);
                    close(input[0]);  // or the first process would never see its end
                    close(input[1]);
                    waitpid(first, nullptr, 0);
                    _exit(0);
                }
            }
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            Become(program, words, start, executed[1]);
        }
        close(input[0]);
        close(output[1]);
        close(executed[1]);
        input_ = Descriptor(input[1]);
        output_ = Descriptor(output[0]);
        char step = 0;
        const bool failed = read(executed[0], &step, 1) == 1;
        close(executed[0]);
        if (failed) {
            throw std::runtime_error(std::string("cannot start ") + program + ", step " + step);
        }
    }
    ~PlainProcess() { End(); }
    PlainProcess(const PlainProcess&) = delete;
    PlainProcess& operator=(const PlainProcess&) = delete;

    pid_t Number() const { return number_; }

    /// Kills it, and waits for its end.
    void End() {
        input_.Close();
        if (number_ > 0) {
            kill(number_, SIGKILL);
            waitpid(number_, nullptr, 0);
            number_ = -1;
        }
    }
    /// Kills it, and leaves it unreaped.
    void EndUnreaped() const {
        siginfo_t info = {};
        kill(number_, SIGKILL);
        waitid(P_PID, static_cast<id_t>(number_), &info, WEXITED | WNOWAIT);
    }

    /// Has a StandIn do something. Returns the number of the process that it has started for that.
    pid_t Ask(const std::vector<std::string>& words) const {
        std::string line;
        for (const std::string& word : words) {
            line.append(line.empty() ? "" : "\x1F").append(word);
        }
        line += '\n';
        if (write(input_.Get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            throw std::runtime_error("it does not listen");
        }
        std::string answer;
        for (char c = 0; answer.empty() || answer.back() != '\n'; answer += c) {
            if (read(output_.Get(), &c, 1) != 1) {
                throw std::runtime_error("it does not answer");
            }
        }
        return static_cast<pid_t>(std::stol(answer));
    }

private:
    [[noreturn]] static void Become(const std::string& program, std::vector<std::string>& words,
                                    const PlainStart& start, int executed) {
        const auto demand = [&](bool holds, char step) {
            if (!holds) {
                const ssize_t ignored = write(executed, &step, 1);
                _exit(ignored == 1 ? 1 : 2);
            }
        };
        signal(SIGHUP, start.ignoresHangup ? SIG_IGN : SIG_DFL);
        if (start.leadsSession) {
            demand(setsid() > 0, 's');
        }
        if (start.writesToNowhere) {
            const int nowhere = open("/dev/null", O_WRONLY);
            demand(dup2(nowhere, STDOUT_FILENO) >= 0 && dup2(nowhere, STDERR_FILENO) >= 0, 'n');
        }
        if (start.hasOtherData) {
            const std::string data =
                std::filesystem::path(ConfigDirectoryPath).parent_path().string();
            demand(unshare(CLONE_NEWNS) == 0, 'u');
            demand(mount("none", data.c_str(), "tmpfs", 0, nullptr) == 0, 'm');
            for (const std::string& name : start.otherDirectories) {
                demand(mkdir((data + "/" + name).c_str(), 0755) == 0, 'd');
            }
        }
        demand(chdir(start.directory.c_str()) == 0, 'c');
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        execv(program.c_str(), arguments.data());
        demand(false, 'x');
        _exit(1);
    }

    pid_t number_ = -1;
    Descriptor input_;
    Descriptor output_;
};

/// A copy of StandIn under a name of its own.
class StandInProgram {
public:
    explicit StandInProgram(const std::string& name = "kennly") : path(directory.Path(name)) {
        std::filesystem::copy_file(KENNLY_STAND_IN, path);
    }

    const TemporaryDirectory directory;
    const std::string path;

    /// The words of a command line with these options.
    std::vector<std::string> With(const std::vector<std::string>& options) const {
        std::vector<std::string> words = {path};
        words.insert(words.end(), options.begin(), options.end());
        return words;
    }
};

}  // namespace kennly::test
