// Runs the daemon on the sample configuration beside this file, in a sandbox, and tells what
// happens: a healthy job stays silent, a failed one is repaired by its remedy, and a remedy that a
// block file holds back runs once the file is gone. Ends with status 0 only when all of it was
// seen.

#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "support/Sandbox.h"
#include "support/SandboxPolling.h"

namespace {

using kennly::test::LogLine;
using kennly::test::Sandbox;
using kennly::test::SandboxProcess;
using kennly::test::WaitUntil;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

const std::string DataDirectory = "/opt/qrv/data/kennly/";
constexpr milliseconds StepLimit = seconds(12);

// Prints whole lines, each with the seconds since the start, from any thread.
class Narrator {
public:
    void Say(const std::string& who, const std::string& what) {
        const std::lock_guard lock(mutex_);
        const std::chrono::duration<double> since = steady_clock::now() - start_;
        std::printf("%5.1f s  %-8s %s\n", since.count(), who.c_str(), what.c_str());
        std::fflush(stdout);
    }

    void Headline(const std::string& text) {
        const std::lock_guard lock(mutex_);
        std::printf("\n== %s\n", text.c_str());
        std::fflush(stdout);
    }

private:
    std::mutex mutex_;
    const steady_clock::time_point start_ = steady_clock::now();
};

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string Explanation(const std::string& text) {
    if (Contains(text, "check failed - running remedy:")) {
        return "job, reason, and the command that is started in the background";
    }
    if (Contains(text, " exit(0)")) {
        return "the daemon has ended in order";
    }
    return "not expected here";
}

void NarrateLine(Narrator& narrator, const LogLine& line) {
    std::string text = line.text;
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    const std::string priority = line.severity == LOG_ERR ? "err" : "debug";
    narrator.Say("log",
                 line.identity + ": " + text + "   [" + priority + "] <- " + Explanation(text));
}

// The exit statuses that the check of a job has left so far, one character each.
std::string Statuses(const Sandbox& sandbox, const std::string& job) {
    std::string statuses = sandbox.ReadFile(DataDirectory + job + ".status").value_or("");
    statuses.erase(std::remove(statuses.begin(), statuses.end(), '\n'), statuses.end());
    return statuses;
}

class Demo {
public:
    explicit Demo(Sandbox& sandbox) : sandbox_(sandbox) {}

    void Run() {
        Install();
        narrator_.Headline("The daemon starts: kennly -f");
        daemon_ = sandbox_.Start({KENNLY_PROGRAM, "-f"});
        ShowRepair();
        ShowHeldBackRemedy();
        ShowSilence();
        ShowOrderlyEnd();
        narrator_.Headline("All of it happened as told.");
    }

private:
    void Install() {
        narrator_.Headline("Three jobs in a private " + DataDirectory + "config/kennly.xml");
        std::puts(
            "   disk      is healthy\n"
            "   web       is down until its remedy brings it up\n"
            "   database  is down too, but a maintenance file holds its remedy back");
        std::ifstream file(KENNLY_DEMO_CONFIG);
        const std::string config{std::istreambuf_iterator<char>(file), {}};
        Require(!config.empty() &&
                    sandbox_.WriteFile(DataDirectory + "config/kennly.xml", config) &&
                    sandbox_.WriteFile(DataDirectory + "maintenance", ""),
                "the sample configuration could not be installed");
        sandbox_.OnLine([this](const LogLine& line) { NarrateLine(narrator_, line); });
    }

    void ShowRepair() {
        AwaitStatus("web", '1', "fails");
        AwaitRemedy("web");
        AwaitStatus("web", '0', "passes again");
    }

    void ShowHeldBackRemedy() {
        narrator_.Headline("The database is down, but under maintenance");
        Require(WaitUntil([this] { return Statuses(sandbox_, "database").size() >= 3; }, StepLimit),
                "the check of database did not run three times");
        Require(!RemedyLogged("database"), "the remedy of database ran despite the block file");
        narrator_.Say("database", "has failed " +
                                      std::to_string(Statuses(sandbox_, "database").size()) +
                                      " checks, and no remedy was started");
        narrator_.Headline("Maintenance is over: the block file is removed");
        Require(sandbox_.RemoveFile(DataDirectory + "maintenance"), "no block file to remove");
        AwaitRemedy("database");
        AwaitStatus("database", '0', "passes");
    }

    void ShowSilence() {
        narrator_.Headline("The healthy job");
        const std::string statuses = Statuses(sandbox_, "disk");
        Require(!statuses.empty() && !Contains(statuses, "1") && !RemedyLogged("disk"),
                "the healthy job was not left alone");
        narrator_.Say("disk", "passed all of its " + std::to_string(statuses.size()) +
                                  " checks, without a line in the log");
    }

    void ShowOrderlyEnd() {
        narrator_.Headline("SIGTERM");
        daemon_->Signal(SIGTERM);
        const auto end = daemon_->WaitForEnd(StepLimit);
        Require(end && WIFEXITED(*end) && WEXITSTATUS(*end) == 0,
                "the daemon did not end with status 0");
        Require(sandbox_.WaitForLog(
                    [](const auto& log) {
                        return std::any_of(log.begin(), log.end(), [](const LogLine& line) {
                            return Contains(line.text, " exit(0)");
                        });
                    },
                    StepLimit),
                "the daemon's last line is missing");
    }

    void AwaitStatus(const std::string& job, char status, const std::string& words) {
        Require(WaitUntil(
                    [&] {
                        const std::string statuses = Statuses(sandbox_, job);
                        return !statuses.empty() && statuses.back() == status;
                    },
                    StepLimit),
                "the check of " + job + " was not seen to end with " + status);
        narrator_.Say(job, std::string("its check ") + words + " (exit status " + status + ")");
    }

    void AwaitRemedy(const std::string& job) {
        Require(WaitUntil([&] { return RemedyLogged(job); }, StepLimit),
                "the remedy of " + job + " did not start");
    }

    bool RemedyLogged(const std::string& job) const {
        const auto log = sandbox_.Log();
        return std::any_of(log.begin(), log.end(), [&](const LogLine& line) {
            return Contains(line.text, ": " + job + " check failed - running remedy:");
        });
    }

    static void Require(bool holds, const std::string& otherwise) {
        if (!holds) {
            throw std::runtime_error(otherwise);
        }
    }

    Narrator narrator_;
    Sandbox& sandbox_;
    std::unique_ptr<SandboxProcess> daemon_;
};

}  // namespace

int main() {
    try {
        std::string error;
        const auto sandbox = Sandbox::Create(error);
        if (!sandbox) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        Demo demo(*sandbox);
        try {
            demo.Run();
        } catch (...) {
            sandbox->OnLine({});
            throw;
        }
        sandbox->OnLine({});
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "demonstration failed: %s\n", failure.what());
        return 1;
    }
}
