#include "lint/JobRules.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>

#include "config/ElementParser.h"
#include "config/FileTime.h"
#include "lint/Wording.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

constexpr std::int32_t NoLimit = INT32_MAX;
constexpr std::size_t ThreadsPerJob = 3;
constexpr std::size_t JobsThatFitInto32Bits = 3900;

void CheckLoadErrorLimit(const LintSubject& subject) {
    const TiXmlElement& root = subject.text.Root();
    const std::int32_t limit = NumberAttribute(root, "maxloaderrors", NoLimit);
    if (limit < 0) {
        subject.Report(root, "maxloaderrors", Severity::Error, "load-error-limit-negative",
                       "the daemon ends right after this load, as no failed load is already more "
                       "than that: write 0 or more");
    } else if (limit == 0) {
        subject.Report(
            root, "maxloaderrors", Severity::Warning, "load-error-limit-zero",
            "the first failed load ends the daemon, also after the load of a file without "
            "this attribute: write 1 or more");
    }
}

// ---- records of file times

bool HasRecord(const DogJob& job) {
    return job.check->type == CheckTypeFileChange;
}

// What is wrong with a name as that of a file below the directory of the records; may be nothing.
std::string ObjectionToRecordName(const std::string& directory, const std::string& name) {
    if (name.empty()) {
        return "an empty name gets no record, and the remedy runs at every start and reload";
    }
    if (name == "." || name == "..") {
        return "the name is that of a directory, and so the job gets no record";
    }
    if (name.find('/') != std::string::npos) {
        const std::filesystem::path path = directory + "/" + name;
        const Answer hasDirectory = IsDirectory(path.parent_path());
        if (hasDirectory == Answer::Yes) {
            return "the record of the file's time is written to " +
                   Quoted(path.lexically_normal().string()) + ", over whatever is there";
        }
        return "the record of the file's time would be " + Quoted(path.string()) +
               (hasDirectory == Answer::No
                    ? ", in a directory that is missing, and so the job gets none"
                    : ", if its directory is there");
    }
    if (name.size() > NAME_MAX) {
        return "the name is longer than a file's can be, and so the job gets no record";
    }
    return "";
}

void CheckRecordName(const LintSubject& subject, const LintedJob& job) {
    if (!HasRecord(*job.job)) {
        return;
    }
    const std::string objection =
        ObjectionToRecordName(subject.machine.recordDirectory, job.job->name);
    if (!objection.empty()) {
        subject.Report(*job.elements.job, "name", Severity::Warning, "record-name",
                       objection + ": rename the job");
    }
}

void CheckSharedRecord(const LintSubject& subject, const LintedJob& job) {
    const bool isShared = HasRecord(*job.job) &&
                          std::any_of(subject.otherJobs.begin(), subject.otherJobs.end(),
                                      [&](const JobHandle& other) {
                                          return HasRecord(*other) && other->name == job.job->name;
                                      });
    if (isShared) {
        subject.Report(*job.elements.job, "name", Severity::Warning, "shared-record",
                       "a job of this name in the other tree's configuration uses the same record "
                       "of a file's time, and each overwrites the other: rename one of them");
    }
}

// ---- thresholds

void CheckThrottle(const LintSubject& subject, const LintedJob& job) {
    constexpr std::int32_t throttlePause = 15;
    if (job.job->maxErrors < 0) {
        subject.Report(*job.elements.job, "maxerrors", Severity::Warning, "throttle-off",
                       "a negative threshold means that remedies are never slowed down: write 0 if "
                       "that is meant");
    } else if (job.job->maxErrors > 0 && job.job->remedy->delay > throttlePause) {
        subject.Report(*job.elements.remedy, "delay", Severity::Warning, "throttle-shortens",
                       "after " + std::to_string(job.job->maxErrors) +
                           " failures the pause before the remedy becomes 15 seconds, shorter than "
                           "these " +
                           std::to_string(job.job->remedy->delay) +
                           ": leave maxerrors out, or write a delay of at most 15");
    }
}

// ---- how many

std::size_t NumberIn(const char* path) {
    std::ifstream file(path);
    std::size_t number = 0;
    file >> number;
    return number;
}

// The jobs for which this machine has threads; 0 when nobody knows.
std::size_t JobsThatFit() {
    std::size_t fit = sizeof(void*) == 4 ? JobsThatFitInto32Bits : 0;
    for (const char* const path : {"/proc/sys/kernel/threads-max", "/proc/sys/kernel/pid_max"}) {
        const std::size_t limit = NumberIn(path) / ThreadsPerJob;
        fit = limit > 0 && (fit == 0 || limit < fit) ? limit : fit;
    }
    return fit;
}

void CheckThreads(const LintSubject& subject) {
    const std::size_t fit = JobsThatFit();
    if (fit > 0 && subject.jobs.size() >= fit) {
        subject.Report(subject.text.Root(), Severity::Warning, "too-many-jobs",
                       std::to_string(subject.jobs.size()) +
                           " jobs need three threads each, and this machine has some for about " +
                           std::to_string(fit) +
                           ": without them no job runs (Error creating Thread Pool)");
    }
}

void CheckRivals(const LintSubject& subject) {
    const LintedJob* first = nullptr;
    for (const LintedJob& job : subject.jobs) {
        if (job.job->check->delay != 0) {
            continue;
        }
        if (first == nullptr) {
            first = &job;
            continue;
        }
        subject.Report(*job.elements.check, "delay", Severity::Warning, "no-pause-rivals",
                       "this job and job " + Quoted(first->job->name) +
                           " both check without a pause, and can keep each other from being "
                           "checked: give them a delay");
    }
}

}  // namespace

void FindJobTraps(const LintSubject& subject) {
    CheckLoadErrorLimit(subject);
    CheckThreads(subject);
    CheckRivals(subject);
    for (const LintedJob& job : subject.jobs) {
        CheckRecordName(subject, job);
        CheckSharedRecord(subject, job);
        CheckThrottle(subject, job);
    }
}

}  // namespace kennly
