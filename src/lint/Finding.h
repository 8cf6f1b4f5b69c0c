#pragma once

#include <string>
#include <vector>

#include "lint/TextPositions.h"

namespace kennly {

enum class Severity {
    Error,    // an item is left out, or nothing is loaded, or the daemon ends
    Warning,  // silently accepted, and probably not meant
    Note,     // works as it stands, and is worth knowing
};

/// Something about a configuration that its author should know.
struct Finding {
    Position where;  // line 0: it is about the file as a whole, or nobody knows where
    Severity severity = Severity::Warning;
    std::string code;  // lower case with hyphens; never changes its meaning
    std::string text;  // one line: what the daemon makes of it, and what to write instead
};

using Findings = std::vector<Finding>;

/// "error", "warning" or "note". Any thread may call it.
const char* NameOf(Severity severity);

/// Whether any of the findings has this severity. Any thread may call it.
bool Has(const Findings& findings, Severity severity);

/// In the order of the file; what is about no line comes first, and equals stay as they were. One
/// thread at a time for the same findings.
void SortByPlace(Findings& findings);

}  // namespace kennly
