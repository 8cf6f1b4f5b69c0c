// The daemon in the foreground on three jobs: a healthy one stays silent, a failed one is repaired
// by its remedy, and a remedy that a block file holds back runs once the file is gone.

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

#include "Stage.h"

namespace kennly::demo {

namespace {

std::string Explanation(const std::string& text) {
    if (text.find("check failed - running remedy:") != std::string::npos) {
        return "job, reason, and the command that is started in the background";
    }
    if (text.find(" exit(0)") != std::string::npos) {
        return "the daemon has ended in order";
    }
    return "not expected here";
}

class Repair {
public:
    explicit Repair(Stage& stage) : stage_(stage) {}

    void Play() {
        Prepare();
        stage_.Headline("The daemon starts: kennly -f");
        daemon_ = stage_.sandbox.Start({KENNLY_PROGRAM, "-f"});
        ShowRepair();
        ShowHeldBackRemedy();
        ShowSilence();
        ShowOrderlyEnd();
    }

private:
    void Prepare() {
        stage_.Headline("Three jobs in a private " + DataDirectory + "config/kennly.xml");
        std::puts(
            "   disk      is healthy\n"
            "   web       is down until its remedy brings it up\n"
            "   database  is down too, but a maintenance file holds its remedy back");
        stage_.Install(KENNLY_DEMO_DIRECTORY "/repair/kennly.xml",
                       DataDirectory + "config/kennly.xml");
        Stage::Require(stage_.sandbox.WriteFile(DataDirectory + "maintenance", ""),
                       "the block file could not be made");
        stage_.NarrateLog(Explanation);
    }

    void ShowRepair() {
        AwaitStatus("web", '1', "fails");
        AwaitRemedy("web");
        AwaitStatus("web", '0', "passes again");
    }

    void ShowHeldBackRemedy() {
        stage_.Headline("The database is down, but under maintenance");
        Stage::Await([this] { return Statuses("database").size() >= 3; },
                     "the check of database did not run three times");
        Stage::Require(!RemedyLogged("database"),
                       "the remedy of database ran despite the block file");
        stage_.Say("database", "has failed " + std::to_string(Statuses("database").size()) +
                                   " checks, and no remedy was started");
        stage_.Headline("Maintenance is over: the block file is removed");
        Stage::Require(stage_.sandbox.RemoveFile(DataDirectory + "maintenance"),
                       "no block file to remove");
        AwaitRemedy("database");
        AwaitStatus("database", '0', "passes");
    }

    void ShowSilence() {
        stage_.Headline("The healthy job");
        const std::string statuses = Statuses("disk");
        Stage::Require(
            !statuses.empty() && statuses.find('1') == std::string::npos && !RemedyLogged("disk"),
            "the healthy job was not left alone");
        stage_.Say("disk", "passed all of its " + std::to_string(statuses.size()) +
                               " checks, without a line in the log");
    }

    void ShowOrderlyEnd() {
        stage_.Headline("SIGTERM");
        daemon_->Signal(SIGTERM);
        const auto end = daemon_->WaitForEnd(StepLimit);
        Stage::Require(end && WIFEXITED(*end) && WEXITSTATUS(*end) == 0,
                       "the daemon did not end with status 0");
        Stage::Await([this] { return stage_.Logged(" exit(0)"); },
                     "the daemon's last line is missing");
    }

    void AwaitStatus(const std::string& job, char status, const std::string& words) {
        Stage::Await(
            [&] {
                const std::string statuses = Statuses(job);
                return !statuses.empty() && statuses.back() == status;
            },
            "the check of " + job + " was not seen to end with " + status);
        stage_.Say(job, std::string("its check ") + words + " (exit status " + status + ")");
    }

    void AwaitRemedy(const std::string& job) {
        Stage::Await([&] { return RemedyLogged(job); }, "the remedy of " + job + " did not start");
    }

    bool RemedyLogged(const std::string& job) const {
        return stage_.Logged(": " + job + " check failed - running remedy:");
    }

    // The exit statuses that the check of a job has left so far, one character each.
    std::string Statuses(const std::string& job) const {
        std::string statuses =
            stage_.sandbox.ReadFile(DataDirectory + job + ".status").value_or("");
        statuses.erase(std::remove(statuses.begin(), statuses.end(), '\n'), statuses.end());
        return statuses;
    }

    Stage& stage_;
    std::unique_ptr<test::SandboxProcess> daemon_;
};

}  // namespace

void PlayRepair(Stage& stage) {
    Repair(stage).Play();
    stage.StopNarratingLog();
}

}  // namespace kennly::demo
