#pragma once

#include <optional>
#include <string>
#include <vector>

#include "job/DogJob.h"
#include "lint/ConfigText.h"
#include "lint/Finding.h"
#include "lint/JobSelection.h"
#include "lint/Machine.h"

namespace kennly {

/// A job that would run: where it stands, and what the loader has made of it.
struct LintedJob {
    SelectedJob elements;
    JobHandle job;
};

/// All that a rule may look at. Rules keep nothing between calls, but add to the findings: each
/// subject is for one thread at a time.
struct LintSubject {
    const ConfigText& text;
    bool watcher = false;  // the configuration is one of the watcher tree
    const std::vector<LintedJob>& jobs;
    const std::vector<JobHandle>&
        otherJobs;  // of the other tree, as its file stands on this machine
    const Machine& machine;
    Findings& findings;  // rules add to them

    /// Adds a finding about an element or an attribute.
    void Report(const TiXmlBase& item, Severity severity, const char* code,
                const std::string& message) const;
    /// About the attribute `name` of the element if there is one, else about the element.
    void Report(const TiXmlElement& element, const char* name, Severity severity, const char* code,
                const std::string& message) const;
};

/// The element of the parameter with that index, from 0, of a check or a remedy; the check or
/// remedy itself when it has no such parameter.
const TiXmlElement& ParamOf(const TiXmlElement& part, std::size_t index);

/// Why a path leads elsewhere than its author will think.
struct PathObjection {
    const char* code = "";
    std::string text;
};

/// What is to be said against `path`, which is not empty, of a file that the daemon looks for.
/// Nothing when it is absolute and, as far as one can tell, meant as it stands.
std::optional<PathObjection> ObjectionTo(const std::string& path);

/// The heartbeats that the daemon's processes refresh.
struct HeartbeatName {
    const char* file;
    bool ofWatcher;
    bool ofChild;  // and of a foreground process
};

/// The heartbeat at `path` of this machine; null when there is none.
const HeartbeatName* HeartbeatAt(const Machine& machine, const std::string& path);

/// Applies all rules to the subject.
void ApplyAllRules(const LintSubject& subject);

}  // namespace kennly
