// Both trees of the daemon, each with checks of the other's heartbeats: the child of the main tree
// is killed, the watcher tree notices that its heartbeat is not refreshed any more, and restarts
// the main tree. In the end kennlyctl shows both, and ends them.

#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Stage.h"
#include "support/DaemonProcesses.h"

namespace kennly::demo {

using test::DaemonProcess;
using test::DaemonProcesses;

namespace {

const std::string Program = DataDirectory + "kennly";

struct Role {
    const char* tag;
    const char* heartbeat;
    const char* name;
};
const std::vector<Role> Roles = {{"P ", "parent", "parent"},
                                 {"C ", "child", "child"},
                                 {"WP", "watcherparent", "parent of the watcher tree"},
                                 {"WC", "watcherchild", "child of the watcher tree"}};

std::string Explanation(const std::string& text) {
    if (text.find("check failed - running remedy:") != std::string::npos) {
        return "a heartbeat has gone stale";
    }
    if (text.find(" exit(0)") != std::string::npos) {
        return "a process has ended in order";
    }
    return "not expected here";
}

class Recovery {
public:
    explicit Recovery(Stage& stage) : stage_(stage) {}

    void Play() {
        Prepare();
        ShowStart();
        ShowRecovery();
        ShowStatus();
        ShowOrderlyEnd();
    }

private:
    void Prepare() {
        stage_.Headline("Two trees, each with checks of the other's heartbeats");
        for (const char* const file : {"kennly.xml", "dogdog.xml"}) {
            stage_.Install(std::string(KENNLY_DEMO_DIRECTORY "/recovery/") + file,
                           DataDirectory + "config/" + file);
        }
        stage_.Install(KENNLY_PROGRAM, Program, true);
        stage_.Install(KENNLY_RESTART_TREE, DataDirectory + "restart-tree", true);
        stage_.NarrateLog(Explanation);
    }

    void ShowStart() {
        stage_.Headline("The daemon starts: kennly -w");
        const auto first = stage_.sandbox.Start({Program, "-w"});
        const auto end = first->WaitForEnd(StepLimit);
        Stage::Require(end && WIFEXITED(*end) && WEXITSTATUS(*end) == 0,
                       "the first process did not end with status 0");
        Stage::Await([this] { return AllRun() && AllBeatSince(0); }, "not all processes came up");
        Print();
    }

    void ShowRecovery() {
        const DaemonProcess child = test::OnlyDaemonProcess(stage_.sandbox, "C ").value();
        stage_.Headline("The child of the main tree is killed: kill -KILL " + child.number);
        kill(child.outside, SIGKILL);
        Stage::Await([this] { return stage_.Logged("child check failed - running remedy:"); },
                     "the watcher tree did not notice");
        const double restart = Now();
        Stage::Await(
            [&] {
                const auto now = test::OnlyDaemonProcess(stage_.sandbox, "C ");
                return now && now->number != child.number && AllRun() && AllBeatSince(restart);
            },
            "the main tree was not brought back");
        stage_.Say("kennly", "all four processes run, and all four heartbeats are fresh again");
        Print();
    }

    void ShowStatus() {
        stage_.Headline("What can be seen of both from outside: kennlyctl status --watcher");
        const Answer answer = RunCtl({"status", "--watcher"});
        PrintIndented(answer.text);
        Stage::Require(answer.status == 0, "kennlyctl status has found something wrong");
        for (const char* const tree : {"main tree: runs\n", "watcher tree: runs\n"}) {
            Stage::Require(answer.text.find(tree) != std::string::npos,
                           std::string("kennlyctl status does not say: ") + tree);
        }
        for (const Role& role : Roles) {
            const std::string number = test::OnlyDaemonProcess(stage_.sandbox, role.tag)->number;
            Stage::Require(answer.text.find(" " + number + ", for ") != std::string::npos,
                           std::string("kennlyctl status does not show the ") + role.name);
        }
    }

    void ShowOrderlyEnd() {
        stage_.Headline("SIGTERM to the parents: kennlyctl stop");
        const Answer answer = RunCtl({"stop"});
        PrintIndented(answer.text);
        Stage::Require(answer.status == 0, "kennlyctl stop has failed");
        Stage::Require(DaemonProcesses(stage_.sandbox).empty(), "processes were left behind");
        stage_.Say("kennly", "nothing of it runs any more");
    }

    struct Answer {
        int status = -1;  // -1: it did not exit
        std::string text;
    };
    Answer RunCtl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), KENNLY_CTL);
        test::StartOptions options;
        options.captureOutput = true;
        const auto ctl = stage_.sandbox.Start(arguments, options);
        const auto end = ctl->WaitForEnd(StepLimit);
        return {end && WIFEXITED(*end) ? WEXITSTATUS(*end) : -1, ctl->OutputText()};
    }

    static void PrintIndented(const std::string& text) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            std::printf("   %s\n", line.c_str());
        }
        std::fflush(stdout);
    }

    // Whether there is exactly one process in each role, and no other.
    bool AllRun() const {
        return DaemonProcesses(stage_.sandbox).size() == Roles.size() &&
               std::all_of(Roles.begin(), Roles.end(), [this](const Role& role) {
                   return test::OnlyDaemonProcess(stage_.sandbox, role.tag).has_value();
               });
    }

    bool AllBeatSince(double time) const {
        return std::all_of(Roles.begin(), Roles.end(),
                           [&](const Role& role) { return HeartbeatTime(role.heartbeat) > time; });
    }

    static double Seconds(const timespec& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

    // By the clock that also stamps the files.
    static double Now() {
        timespec now = {};
        clock_gettime(CLOCK_REALTIME_COARSE, &now);
        return Seconds(now);
    }

    // In seconds, 0 when there is no such file.
    double HeartbeatTime(const std::string& name) const {
        struct stat status = {};
        const std::string path = stage_.sandbox.PathInside(DataDirectory + "heartbeats/" + name);
        return stat(path.c_str(), &status) == 0 ? Seconds(status.st_mtim) : 0;
    }

    void Print() const {
        for (const Role& role : Roles) {
            const auto process = test::OnlyDaemonProcess(stage_.sandbox, role.tag);
            Stage::Require(process.has_value(), std::string("gone: the ") + role.name);
            std::string line = process->IsChild() ? "  `- kennly" : "kennly";
            for (std::size_t i = 1; i < process->arguments.size(); ++i) {
                line += " " + process->arguments[i];
            }
            std::printf("   %5s  %-20s %-27s heartbeat %.1f s old\n", process->number.c_str(),
                        line.c_str(), role.name, Now() - HeartbeatTime(role.heartbeat));
        }
        std::fflush(stdout);
    }

    Stage& stage_;
};

}  // namespace

void PlayRecovery(Stage& stage) {
    Recovery(stage).Play();
    stage.StopNarratingLog();
}

}  // namespace kennly::demo
