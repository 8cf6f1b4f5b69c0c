#include "lint/CheckRules.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "config/ElementParser.h"
#include "config/Number.h"
#include "lint/Wording.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

bool IsFileCheck(const DogWatch& check) {
    return check.type == CheckTypeFileChange || check.type == CheckTypeNoFileChange;
}

std::size_t ParamsNeeded(std::int32_t type) {
    switch (type) {
        case CheckTypeCommandResult:
        case CheckTypeFileChange:
            return 1;
        case CheckTypeNoFileChange:
            return 2;
        default:
            return 0;
    }
}

class CheckTraps {
public:
    CheckTraps(const LintSubject& subject, const LintedJob& job)
        : subject_(subject),
          element_(*job.elements.check),
          job_(*job.job),
          check_(*job.job->check) {}

    void Find() const {
        Delay();
        FailureStatus();
        if (ParamsNeeded(check_.type) == 0) {
            Report("type", Severity::Warning, "inert-check",
                   "a check of this type tests nothing, and its remedy never runs: check a "
                   "command instead, such as check_tcp of the monitoring plugins");
        } else if (HasItsParams() && IsFileCheck(check_)) {
            Path(check_.params.front());
            if (check_.type == CheckTypeNoFileChange) {
                Limit(check_.params.back());
            } else {
                Record();
            }
        }
    }

private:
    void Report(const char* attribute, Severity severity, const char* code,
                const std::string& text) const {
        subject_.Report(element_, attribute, severity, code, text);
    }
    void ReportParam(std::size_t index, Severity severity, const char* code,
                     const std::string& text) const {
        subject_.Report(ParamOf(element_, index), "value", severity, code, text);
    }

    void Delay() const {
        constexpr std::int32_t longDelay = 10;
        constexpr std::int32_t veryLongDelay = 60;
        const std::int32_t delay = check_.delay;
        if (delay == 0) {
            Report("delay", Severity::Warning, "no-delay",
                   "without a delay the check runs without a pause: write delay=\"1\" or more "
                   "seconds");
        } else if (delay < 0) {
            Report("delay", Severity::Warning, "negative-delay",
                   "a negative delay is one of over a century, after the first cycle: write 1 or "
                   "more seconds");
        } else if (delay >= longDelay) {
            Report("delay", delay >= veryLongDelay ? Severity::Warning : Severity::Note,
                   "long-delay",
                   "a reload may take up to " + std::to_string(delay) +
                       " s, as it waits for this pause; meanwhile no job runs and there is no "
                       "heartbeat: write a shorter delay if that matters");
        }
    }

    void FailureStatus() const {
        if (element_.Attribute("runactionresult") == nullptr) {
            return;
        }
        const std::int32_t status = NumberAttribute(element_, "runactionresult", 0);
        constexpr std::int32_t greatestStatus = 255;
        if (check_.type != CheckTypeCommandResult) {
            Report("runactionresult", Severity::Warning, "status-ignored",
                   "runactionresult counts for CheckCommandResult alone, and is ignored: remove "
                   "it");
        } else if (status < 0 || status > greatestStatus) {
            Report("runactionresult", Severity::Warning, "status-never-seen",
                   "no command ends with status " + std::to_string(status) +
                       ", and so the check never fails: write one from 0 to 255");
        } else if (status == 0) {
            Report("runactionresult", Severity::Warning, "status-inverted",
                   "the check fails when the command succeeds, and passes when it fails or cannot "
                   "run: leave runactionresult out, and write ! before the command if that is "
                   "meant");
        } else {
            Report("runactionresult", Severity::Note, "status-hides-failures",
                   "only status " + std::to_string(status) +
                       " is a failure, and the check passes with any other, such as " +
                       OtherStatuses(status) +
                       ": leave runactionresult out, or map the status in the command");
        }
    }

    static std::string OtherStatuses(std::int32_t status) {
        struct Row {
            std::int32_t status;
            const char* cause;
        };
        std::string all;
        for (const Row& row : {Row{127, "of a missing command"}, Row{126, "of one that cannot run"},
                               Row{124, "of timeout"}, Row{2, "of a syntax error"}}) {
            if (row.status != status) {
                all += (all.empty() ? "" : ", ") + std::to_string(row.status) + " " + row.cause;
            }
        }
        return all;
    }

    bool HasItsParams() const {
        const std::size_t needed = ParamsNeeded(check_.type);
        if (check_.params.size() != needed) {
            Report("type", Severity::Warning, "param-count",
                   "a check of this type needs " + Counted(needed, "param") + " and has " +
                       std::to_string(check_.params.size()) +
                       ": it never reaches a verdict, and its remedy never runs");
            return false;
        }
        if (check_.params.front().empty()) {
            ReportParam(0, Severity::Warning, "empty-param",
                        "the value is empty: the check never reaches a verdict, and its remedy "
                        "never runs");
            return false;
        }
        return true;
    }

    void Path(const std::string& path) const {
        if (const auto objection = ObjectionTo(path)) {
            ReportParam(0, Severity::Warning, objection->code, objection->text);
        } else if (Exists(path) == Answer::No && HeartbeatAt(subject_.machine, path) == nullptr) {
            ReportParam(0, Severity::Warning, "watched-file-missing",
                        Quoted(path) +
                            " is not there, and a missing file is healthy: the check passes until "
                            "it comes, and again when it goes; correct the path unless that is "
                            "meant");
        }
    }

    void Limit(const std::string& limit) const {
        if (limit.empty()) {
            return;
        }
        const std::int32_t read = std::max(NumberFromText(limit.c_str()), 1);
        std::string meant = limit.substr(std::min(limit.find_first_not_of('0'), limit.size()));
        if (meant != std::to_string(read)) {
            ReportParam(1, Severity::Warning, "limit-not-a-number",
                        "the limit " + Quoted(limit) + " is read as " + std::to_string(read) +
                            " s: write a whole number of seconds, 1 or more");
        }
    }

    void Record() const {
        const std::string& directory = subject_.machine.recordDirectory;
        if (IsDirectory(directory) == Answer::No) {
            ReportParam(0, Severity::Warning, "no-record-directory",
                        "the directory " + directory +
                            " is missing: nothing is remembered, and the remedy runs at every "
                            "start and reload; make it");
        } else if (IsNameOfRecord(job_.name) &&
                   HasContent(directory + "/" + job_.name) == Answer::No) {
            ReportParam(0, Severity::Note, "first-sight",
                        "there is no record of this file's time yet: its first sight counts as a "
                        "change, and the remedy runs once; block it until then if that matters");
        }
    }

    // Else there is no such record, or not there, which is another finding.
    static bool IsNameOfRecord(const std::string& name) {
        return !name.empty() && name != "." && name != ".." && name.size() <= NAME_MAX &&
               name.find('/') == std::string::npos;
    }

    // Whether there is a record that the daemon would not throw away.
    static Answer HasContent(const std::string& path) {
        const Answer exists = Exists(path);
        if (exists != Answer::Yes) {
            return exists;
        }
        std::error_code error;
        const std::uintmax_t size = std::filesystem::file_size(path, error);
        return !error && size >= sizeof(std::int32_t) ? Answer::Yes : Answer::No;
    }

    const LintSubject& subject_;
    const TiXmlElement& element_;
    const DogJob& job_;
    const DogWatch& check_;
};

}  // namespace

void FindCheckTraps(const LintSubject& subject) {
    for (const LintedJob& job : subject.jobs) {
        CheckTraps(subject, job).Find();
    }
}

}  // namespace kennly
