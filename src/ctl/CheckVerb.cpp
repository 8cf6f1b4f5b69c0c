#include "ctl/CheckVerb.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ctl/ExitStatus.h"
#include "ctl/Json.h"
#include "lint/Lint.h"
#include "lint/Wording.h"
#include "main/Paths.h"

namespace kennly {

namespace {

using Outcome = DaemonVerdict::Outcome;

const char* PriorityOf(const DaemonLine& line) {
    return line.isError ? "err" : "debug";
}

Colour ColourOf(Severity severity) {
    switch (severity) {
        case Severity::Error:
            return Colour::Red;
        case Severity::Warning:
            return Colour::Yellow;
        default:
            return Colour::Blue;
    }
}

std::string Prefix(const std::string& file, const Position& where) {
    if (where.line == 0) {
        return file + ": ";
    }
    return file + ":" + std::to_string(where.line) + ":" + std::to_string(where.column) + ": ";
}

std::size_t Count(const Findings& findings, Severity severity) {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [&](const Finding& finding) { return finding.severity == severity; }));
}

class Report {
public:
    Report(const CheckOptions& options, std::string file, const LintReport& report,
           const Output& output)
        : options_(options), file_(std::move(file)), report_(report), output_(output) {}

    void Write() const {
        if (options_.json) {
            output_.out << TextOf(AsJson()) << "\n";
        } else if (options_.asDaemon) {
            WriteAsDaemon();
        } else {
            WriteForPeople();
        }
    }

    int Status() const {
        if (report_.verdict.outcome != Outcome::Loads) {
            return ExitLoadFails;
        }
        const bool hasFindings = Has(report_.findings, Severity::Error) ||
                                 (options_.strict && Has(report_.findings, Severity::Warning));
        return hasFindings ? ExitFindings : ExitClean;
    }

private:
    void WriteAsDaemon() const {
        for (const DaemonLine& line : report_.verdict.lines) {
            output_.out << line.text << "\n";
        }
    }

    void WriteForPeople() const {
        for (const DaemonLine& line : report_.verdict.lines) {
            output_.out << "the daemon would log: " << PriorityOf(line) << ": "
                        << Printable(line.text) << "\n";
        }
        for (const Finding& finding : report_.findings) {
            if (finding.severity != Severity::Note || !options_.quiet) {
                WriteFinding(finding);
            }
        }
        if (!options_.quiet) {
            WriteSummary();
        }
    }

    void WriteFinding(const Finding& finding) const {
        output_.out << Printable(Prefix(file_, finding.where))
                    << Paint(output_, ColourOf(finding.severity), NameOf(finding.severity)) << ": ["
                    << finding.code << "] " << Printable(finding.text) << "\n";
    }

    void WriteSummary() const {
        const Findings& findings = report_.findings;
        output_.out << Printable(file_) << ": "
                    << (report_.verdict.outcome == Outcome::Loads
                            ? Counted(report_.verdict.jobs.size(), "job")
                            : "does not load")
                    << ", " << Counted(Count(findings, Severity::Error), "error") << ", "
                    << Counted(Count(findings, Severity::Warning), "warning") << ", "
                    << Counted(Count(findings, Severity::Note), "note") << "\n";
    }

    Json AsJson() const {
        Json json = {{"file", file_},
                     {"loads", report_.verdict.outcome == Outcome::Loads},
                     {"jobs", Json::array()},
                     {"daemon", Json::array()},
                     {"findings", Json::array()}};
        for (const JobHandle& job : report_.verdict.jobs) {
            json["jobs"].push_back(job->name);
        }
        for (const DaemonLine& line : report_.verdict.lines) {
            json["daemon"].push_back({{"priority", PriorityOf(line)}, {"text", line.text}});
        }
        for (const Finding& finding : report_.findings) {
            json["findings"].push_back(AsJson(finding));
        }
        return json;
    }

    static Json AsJson(const Finding& finding) {
        const bool isSomewhere = finding.where.line > 0;
        return {{"line", isSomewhere ? Json(finding.where.line) : Json()},
                {"column", isSomewhere ? Json(finding.where.column) : Json()},
                {"severity", NameOf(finding.severity)},
                {"code", finding.code},
                {"text", finding.text}};
    }

    const CheckOptions& options_;
    const std::string file_;
    const LintReport& report_;
    const Output& output_;
};

}  // namespace

int RunCheckVerb(const CheckOptions& options, const Output& output) {
    const std::string live = options.watcher ? WatcherConfigPath : MainConfigPath;
    const std::string file = options.file.value_or(live);
    if (file.size() > LongestConfigPath) {
        output.err << "kennlyctl: the path is too long for the daemon, which takes "
                   << LongestConfigPath << " bytes\n";
        return ExitNoInput;
    }
    if (access(file.c_str(), R_OK) != 0) {
        output.err << "kennlyctl: cannot read " << Printable(file) << ": " << std::strerror(errno)
                   << "\n";
        return ExitNoInput;
    }
    const LintReport lint = Lint(file, options.watcher, ThisMachine(options.watcher));
    const Report report(options, options.shownAs.empty() ? file : options.shownAs, lint, output);
    report.Write();
    return report.Status();
}

}  // namespace kennly
