#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kennly::test {

// A configuration as a list of what its elements say. Each value stands beside the text that says
// it, so that nobody has to read a text to know what is meant.

/// An attribute that holds a number; without a text it is left out.
struct NumberText {
    std::optional<std::string> text;
    std::int32_t number = 0;
};

/// The type of a check or a remedy; `code` is 0 for a text that names none.
struct TypeText {
    std::optional<std::string> text;
    std::int32_t code = 0;
};

/// A child of a check or a remedy. Only one that is a param counts.
struct ParamItem {
    bool isParam = true;
    std::optional<std::string> value;
};

enum class PartKind { Check, Remedy, Other };

/// A child of a job.
struct PartItem {
    PartKind kind = PartKind::Other;
    TypeText type;
    NumberText delay;
    NumberText failureStatus;
    std::vector<std::optional<std::string>> blockFiles;  // three
    std::vector<ParamItem> params;
};

/// A child of the root. Only one that is a job counts.
struct JobItem {
    bool isJob = true;
    std::optional<std::string> name;
    std::optional<std::string> enabledText;
    bool enabled = false;
    NumberText maxErrors;
    std::vector<PartItem> parts;
};

struct ConfigurationItem {
    NumberText limit;
    std::vector<JobItem> jobs;
};

}  // namespace kennly::test
