#include "lint/Finding.h"

#include <algorithm>
#include <tuple>

namespace kennly {

const char* NameOf(Severity severity) {
    switch (severity) {
        case Severity::Error:
            return "error";
        case Severity::Warning:
            return "warning";
        default:
            return "note";
    }
}

bool Has(const Findings& findings, Severity severity) {
    return std::any_of(findings.begin(), findings.end(),
                       [&](const Finding& finding) { return finding.severity == severity; });
}

void SortByPlace(Findings& findings) {
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return std::tie(a.where.line, a.where.column) < std::tie(b.where.line, b.where.column);
    });
}

}  // namespace kennly
