#include "lint/Lint.h"

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "config/FileTime.h"
#include "lint/ConfigText.h"
#include "lint/FailureRules.h"
#include "lint/FileContent.h"
#include "lint/JobSelection.h"
#include "lint/Rules.h"

namespace kennly {

namespace {

// The two lists are of the same jobs unless the file was exchanged between two looks at it.
std::vector<LintedJob> Pair(const std::vector<SelectedJob>& selected,
                            const std::vector<JobHandle>& loaded) {
    std::vector<LintedJob> jobs;
    for (std::size_t i = 0; i < selected.size() && i < loaded.size(); ++i) {
        if (selected[i].name == loaded[i]->name) {
            jobs.push_back({selected[i], loaded[i]});
        }
    }
    return jobs;
}

void FindTraps(const ConfigText& text, bool watcher, const Machine& machine, LintReport& report) {
    const std::vector<LintedJob> jobs =
        Pair(SelectJobs(text, report.findings), report.verdict.jobs);
    const std::vector<JobHandle> otherJobs =
        AskDaemon(watcher ? machine.mainConfig : machine.watcherConfig).jobs;
    const LintSubject subject{text, watcher, jobs, otherJobs, machine, report.findings};
    ApplyAllRules(subject);
}

// The daemon's parser ends at a NUL as at the end of the file.
void FindEarlyEnd(const std::string& content, const ConfigText& text, Findings& findings) {
    if (content.find('\0') != std::string::npos) {
        findings.push_back({text.PositionAt(text.Text().size()), Severity::Warning,
                            "text-after-root",
                            "a NUL byte stands here, and the file is read no further: remove it"});
    }
}

// A change is what changes the second of the modification time, and nothing else.
void FindUnchangedTime(const std::string& path, const std::string& live, const Machine& machine,
                       Findings& findings) {
    std::int32_t time = 0;
    std::int32_t liveTime = 0;
    std::error_code error;
    if (machine.daemonRuns && GetFileTime(path, time) && GetFileTime(live, liveTime) &&
        time == liveTime && !std::filesystem::equivalent(path, live, error)) {
        findings.push_back({{},
                            Severity::Note,
                            "same-time",
                            "this file has the modification time of " + live +
                                ", and is taken for unchanged if it replaces that one with it, as "
                                "mv and cp -p do: touch it, or use kennlyctl apply"});
    }
}

}  // namespace

LintReport Lint(const std::string& path, bool watcher, const Machine& machine) {
    LintReport report;
    report.verdict = AskDaemon(path);
    if (report.verdict.outcome != DaemonVerdict::Outcome::Loads) {
        ExplainFailure(path, report.verdict, report.findings);
        return report;
    }
    const std::string content = ContentOf(path);
    const ConfigText text(content);
    if (text.HasRoot()) {  // else the file has changed meanwhile
        FindTraps(text, watcher, machine, report);
        FindEarlyEnd(content, text, report.findings);
        FindUnchangedTime(path, watcher ? machine.watcherConfig : machine.mainConfig, machine,
                          report.findings);
    }
    SortByPlace(report.findings);
    return report;
}

}  // namespace kennly
