#include "lint/TreeRules.h"

#include <algorithm>

#include "config/Number.h"
#include "lint/Wording.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

// How long a reload of jobs with these delays may keep the heartbeat back.
std::int32_t LongestSilence(std::int32_t longestDelay) {
    constexpr std::int32_t silenceOfLoad = 6;
    return longestDelay > INT32_MAX - silenceOfLoad ? INT32_MAX : longestDelay + silenceOfLoad;
}

std::int32_t DelayOf(const DogJob& job) {
    constexpr std::int32_t throttlePause = 15;
    const std::int32_t throttle = job.maxErrors > 0 ? throttlePause : 0;
    return std::max({job.check->delay, job.remedy->delay, throttle});
}

std::int32_t LongestDelay(const LintSubject& subject) {
    std::int32_t longest = 0;
    for (const JobHandle& job : subject.otherJobs) {
        longest = std::max(longest, DelayOf(*job));
    }
    return longest;
}

std::int32_t LimitOf(const DogWatch& check) {
    constexpr std::int32_t usualSeconds = 120;
    const std::string& text = check.params.back();
    return text.empty() ? usualSeconds : std::max(NumberFromText(text.c_str()), 1);
}

bool Runs(const Machine& machine, bool watcher, DaemonProcess::Role role) {
    return std::any_of(
        machine.processes.begin(), machine.processes.end(), [&](const DaemonProcess& process) {
            return process.isWatcher == watcher && !process.hasEnded && process.role == role;
        });
}

bool RunsWithoutParent(const Machine& machine, bool watcher) {
    return Runs(machine, watcher, DaemonProcess::Role::Foreground) &&
           !Runs(machine, watcher, DaemonProcess::Role::Parent);
}

// A heartbeat that nobody refreshes: one that is not there is healthy, one that is is stale.
void CheckWriter(const LintSubject& subject, const LintedJob& job, const HeartbeatName& heartbeat) {
    const auto report = [&](Severity severity, const char* code, const std::string& text) {
        subject.Report(ParamOf(*job.elements.check, 0), "value", severity, code, text);
    };
    const Machine& machine = subject.machine;
    const std::string path = machine.heartbeatDirectory + "/" + heartbeat.file;
    const Answer exists = Exists(path);
    if (IsDirectory(machine.heartbeatDirectory) == Answer::No) {
        report(Severity::Warning, "heartbeat-not-written",
               "the directory " + machine.heartbeatDirectory +
                   " is missing, and no process makes it or writes there: the check passes for "
                   "ever; make it");
    } else if (exists == Answer::Unknown) {
        return;
    } else if (!heartbeat.ofChild && RunsWithoutParent(machine, heartbeat.ofWatcher)) {
        const bool isLeft = exists == Answer::Yes;
        const std::string instead = heartbeat.ofWatcher ? "watcherchild" : "child";
        report(Severity::Warning, isLeft ? "heartbeat-left-over" : "heartbeat-not-written",
               std::string("that tree runs in the foreground, where nobody writes this heartbeat: "
                           "the check ") +
                   (isLeft ? "fails for ever; remove the file that is left over, and watch "
                           : "passes for ever; watch ") +
                   instead);
    } else if (exists == Answer::No) {
        report(Severity::Note, "heartbeat-not-written",
               Quoted(path) +
                   " has not been written yet, and a missing file is healthy: the check passes "
                   "until its process has been started");
    }
}

void CheckWatched(const LintSubject& subject, const LintedJob& job,
                  const HeartbeatName& heartbeat) {
    const bool isOwn = heartbeat.ofWatcher == subject.watcher;
    if (isOwn && heartbeat.ofChild) {
        subject.Report(ParamOf(*job.elements.check, 0), "value", Severity::Warning,
                       "watches-itself",
                       "the process that would notice is the very one that this heartbeat is of: "
                       "move the job to the configuration of the other tree");
        return;
    }
    CheckWriter(subject, job, heartbeat);
    if (!heartbeat.ofChild) {
        return;  // no reload holds up a parent
    }
    const std::int32_t limit = LimitOf(*job.job->check);
    const std::int32_t silence = LongestSilence(LongestDelay(subject));
    if (limit < silence) {
        subject.Report(
            ParamOf(*job.elements.check, 1), "value", Severity::Warning, "stale-limit-short",
            "a reload may keep this heartbeat back for " + std::to_string(silence) +
                " s, and longer while a check runs, and the limit of " + std::to_string(limit) +
                " s takes it for dead: write at least " + std::to_string(silence));
    }
}

}  // namespace

void FindTreeTraps(const LintSubject& subject) {
    for (const LintedJob& job : subject.jobs) {
        const DogWatch& check = *job.job->check;
        if (check.type != CheckTypeNoFileChange || check.params.size() != 2) {
            continue;
        }
        if (const HeartbeatName* const heartbeat =
                HeartbeatAt(subject.machine, check.params.front())) {
            CheckWatched(subject, job, *heartbeat);
        }
    }
}

}  // namespace kennly
