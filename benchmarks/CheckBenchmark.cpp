// The processor time of one command check, the daemon's and its commands' together, against the
// floor that nobody can go below: a bare loop that runs the same command line through system(). The
// two run in turn, several rounds; each round prints its ratio.

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/Sandbox.h"
#include "support/SandboxPolling.h"

namespace {

using kennly::test::Sandbox;
using kennly::test::SandboxProcess;

constexpr int Jobs = 100;
constexpr int Rounds = 3;
constexpr off_t ChecksARound = 1000;
const std::string DataDirectory = "/opt/qrv/data/kennly/";
const std::string CountFile = DataDirectory + "count";

// Each leaves one byte for each run; the braces keep the redirection of the whole command out of
// it.
struct CheckCommand {
    const char* kind;
    const char* text;
};
constexpr CheckCommand Commands[] = {
    {"a program", "{ grep -q root /etc/passwd; printf x >>/opt/qrv/data/kennly/count; }"},
    {"a shell builtin", "{ printf x >>/opt/qrv/data/kennly/count; }"},
};

off_t RunsSoFar(const Sandbox& sandbox) {
    struct stat status = {};
    return stat(sandbox.PathInside(CountFile).c_str(), &status) == 0 ? status.st_size : 0;
}

std::string Configuration(const std::string& command) {
    std::ostringstream text;
    text << "<kennly>";
    for (int i = 0; i < Jobs; ++i) {
        text << "<job name=\"job-" << i << "\" enabled=\"true\">"
             << "<check type=\"CheckCommandResult\" delay=\"1\"><param value=\"" << command
             << "\"/></check><remedy type=\"Execute\"><param value=\"true\"/></remedy></job>";
    }
    text << "</kennly>";
    return text.str();
}

// User and system time of a process inside and of all children it has waited for, in seconds.
double ProcessorTime(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text{std::istreambuf_iterator<char>(file), {}};
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string skipped;
    for (int i = 0; i < 11; ++i) {
        fields >> skipped;
    }
    double sum = 0;
    for (int i = 0; i < 4; ++i) {
        double ticks = 0;
        fields >> ticks;
        sum += ticks;
    }
    return sum / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Seconds of processor time a run, while `process` makes the count file grow.
double CostOfRuns(const Sandbox& sandbox, const SandboxProcess& process) {
    const off_t runsBefore = RunsSoFar(sandbox);
    const double timeBefore = ProcessorTime(process.Pid());
    if (!kennly::test::WaitUntil([&] { return RunsSoFar(sandbox) - runsBefore >= ChecksARound; },
                                 std::chrono::seconds(120))) {
        throw std::runtime_error("the commands do not run");
    }
    const double time = ProcessorTime(process.Pid()) - timeBefore;
    return time / static_cast<double>(RunsSoFar(sandbox) - runsBefore);
}

double CostOfLoop(const Sandbox& sandbox, const char* self, const char* command) {
    const auto loop = sandbox.Start({self, "loop", command});
    return CostOfRuns(sandbox, *loop);
}

double CostOfDaemon(const Sandbox& sandbox) {
    const auto daemon = sandbox.Start({KENNLY_PROGRAM, "-f"});
    // The start is not what is measured: the load, 300 threads and the first check of each job.
    if (!kennly::test::WaitUntil([&] { return RunsSoFar(sandbox) > 2 * Jobs; },
                                 std::chrono::seconds(60))) {
        throw std::runtime_error("the daemon runs no checks");
    }
    return CostOfRuns(sandbox, *daemon);
}

[[noreturn]] void RunLoop(const std::string& command) {
    const std::string commandLine = command + " 1>/dev/null 2>/dev/null";
    for (;;) {
        if (std::system(commandLine.c_str()) != 0) {
            std::exit(1);
        }
    }
}

// A fresh sandbox for each measurement, so that the count file starts empty.
std::unique_ptr<Sandbox> NewSandbox(const char* command) {
    std::string error;
    auto sandbox = Sandbox::Create(error);
    if (!sandbox ||
        !sandbox->WriteFile(DataDirectory + "config/kennly.xml", Configuration(command))) {
        throw std::runtime_error("no sandbox: " + error);
    }
    return sandbox;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void Measure(const char* self, const CheckCommand& command) {
    std::vector<double> ratios;
    for (int round = 1; round <= Rounds; ++round) {
        const double loop = CostOfLoop(*NewSandbox(command.text), self, command.text);
        const double daemon = CostOfDaemon(*NewSandbox(command.text));
        ratios.push_back(daemon / loop);
        std::printf("%s, round %d: loop %.0f us a run, daemon %.0f us a check, ratio %.3f\n",
                    command.kind, round, loop * 1e6, daemon * 1e6, ratios.back());
        std::fflush(stdout);
    }
    std::printf("%s, %d jobs: median ratio %.3f\n", command.kind, Jobs, Median(ratios));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::string(argv[1]) == "loop") {
        RunLoop(argv[2]);
    }
    try {
        const std::string self = std::filesystem::read_symlink("/proc/self/exe");
        for (const CheckCommand& command : Commands) {
            Measure(self.c_str(), command);
        }
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "benchmark failed: %s\n", failure.what());
        return 1;
    }
}
