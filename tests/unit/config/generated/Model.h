#pragma once

#include <algorithm>
#include <cstdint>
#include <list>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "support/RecordedLog.h"
#include "unit/config/generated/Configuration.h"

namespace kennly::test {

/// All that a loaded job knows.
struct JobFacts {
    std::string name;
    std::int32_t maxErrors = 0;
    std::int32_t checkType = 0;
    std::int32_t checkDelay = 0;
    bool anyNonZeroFails = true;  // these two of a command check only
    std::int32_t runActionResult = 0;
    std::list<std::string> checkParams;
    std::int32_t remedyType = 0;
    std::int32_t remedyDelay = 0;
    std::vector<std::string> blockFiles;
    std::list<std::string> remedyParams;

    auto All() const {
        return std::tie(name, maxErrors, checkType, checkDelay, anyNonZeroFails, runActionResult,
                        checkParams, remedyType, remedyDelay, blockFiles, remedyParams);
    }
};

inline bool operator==(const JobFacts& a, const JobFacts& b) {
    return a.All() == b.All();
}

inline std::ostream& operator<<(std::ostream& out, const JobFacts& job) {
    return out << ::testing::PrintToString(job.All());
}

/// What loading a configuration comes to, told from what its elements mean.
class Model {
public:
    explicit Model(const ConfigurationItem& configuration) {
        for (const JobItem& job : configuration.jobs) {
            if (job.isJob) {
                Judge(job);
            }
        }
    }

    std::vector<JobFacts> jobs;
    std::vector<RecordedLine> lines;

private:
    void Judge(const JobItem& job) {
        if (!job.name) {
            lines.push_back(Error("job name missing"));
        } else if (names_.count(*job.name) != 0) {
            lines.push_back(Error("job name already exists - ignoring job: " + *job.name));
        } else if (!job.enabled) {
            lines.push_back(Debug("job not enabled - ignoring job: " + *job.name));
        } else {
            JudgeParts(job);
        }
    }

    void JudgeParts(const JobItem& job) {
        for (auto part = job.parts.begin(); part != job.parts.end(); ++part) {
            if (part->kind != PartKind::Other) {
                const bool isExtra =
                    std::any_of(job.parts.begin(), part, [&](const PartItem& earlier) {
                        return earlier.kind == part->kind && earlier.type.code != 0;
                    });
                AddLinesOf(*part, isExtra, *job.name);
            }
        }
        const PartItem* const check = FirstOf(job, PartKind::Check);
        const PartItem* const remedy = FirstOf(job, PartKind::Remedy);
        if (check != nullptr && remedy != nullptr) {
            names_.insert(*job.name);
            jobs.push_back(Facts(job, *check, *remedy));
        } else {
            const std::string missing = remedy == nullptr ? "remedy" : "check";
            lines.push_back(Error("no " + missing + " defined in job: " + *job.name));
        }
    }

    static const PartItem* FirstOf(const JobItem& job, PartKind kind) {
        const auto found = std::find_if(
            job.parts.begin(), job.parts.end(),
            [&](const PartItem& part) { return part.kind == kind && part.type.code != 0; });
        return found != job.parts.end() ? &*found : nullptr;
    }

    void AddLinesOf(const PartItem& part, bool isExtra, const std::string& job) {
        const bool isCheck = part.kind == PartKind::Check;
        const std::string kind = isCheck ? "check" : "remedy";
        if (isExtra) {
            lines.push_back(Error("extra " + kind + " ignored in job: " + job));
        } else if (!part.type.text) {
            lines.push_back(Error(kind + " type missing in job " + job));
        } else if (part.type.code == 0) {
            lines.push_back(Error(kind + " type " + *part.type.text +
                                  (isCheck ? " invalid" : " not valid") + " in job " + job));
        } else {
            const auto without =
                std::count_if(part.params.begin(), part.params.end(),
                              [](const ParamItem& param) { return param.isParam && !param.value; });
            lines.insert(lines.end(), static_cast<std::size_t>(without),
                         Error(kind + " param missing its value in job " + job));
        }
    }

    static JobFacts Facts(const JobItem& job, const PartItem& check, const PartItem& remedy) {
        JobFacts facts;
        facts.name = *job.name;
        facts.maxErrors = job.maxErrors.number;
        facts.checkType = check.type.code;
        facts.checkDelay = check.delay.number;
        if (check.type.code == 1 && check.failureStatus.text) {
            facts.anyNonZeroFails = false;
            facts.runActionResult = check.failureStatus.number;
        }
        facts.checkParams = Values(check);
        facts.remedyType = remedy.type.code;
        facts.remedyDelay = remedy.delay.number;
        for (const auto& file : remedy.blockFiles) {
            facts.blockFiles.push_back(file.value_or(""));
        }
        facts.remedyParams = Values(remedy);
        return facts;
    }

    static std::list<std::string> Values(const PartItem& part) {
        std::list<std::string> values;
        for (const ParamItem& param : part.params) {
            if (param.isParam && param.value) {
                values.push_back(*param.value);
            }
        }
        return values;
    }

    std::set<std::string> names_;  // of the jobs so far
};

}  // namespace kennly::test
