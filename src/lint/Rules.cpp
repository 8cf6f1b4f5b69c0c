#include "lint/Rules.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "config/ElementParser.h"
#include "lint/Wording.h"
#include "lint/Words.h"

namespace kennly {

void LintSubject::Report(const TiXmlBase& item, Severity severity, const char* code,
                         const std::string& message) const {
    findings.push_back({text.PositionOf(item), severity, code, message});
}

void LintSubject::Report(const TiXmlElement& element, const char* name, Severity severity,
                         const char* code, const std::string& message) const {
    if (const TiXmlAttribute* const attribute = FindAttribute(element, name)) {
        Report(*attribute, severity, code, message);
        return;
    }
    Report(static_cast<const TiXmlBase&>(element), severity, code, message);
}

namespace {

constexpr HeartbeatName HeartbeatNames[] = {
    {"parent", false, false},
    {"child", false, true},
    {"watcherparent", true, false},
    {"watcherchild", true, true},
};

}  // namespace

std::optional<PathObjection> ObjectionTo(const std::string& path) {
    if (IsBlank(path.front()) || IsBlank(path.back())) {
        return PathObjection{
            "path-literal",
            "the blank at " + std::string(IsBlank(path.front()) ? "the beginning" : "the end") +
                " of " + Quoted(path) + " is taken for a part of the path: remove it"};
    }
    const bool hasPattern = path.front() == '~' || path.find_first_of("$*?[`") != std::string::npos;
    if (hasPattern && Exists(path) == Answer::No) {
        return PathObjection{"path-literal",
                             Quoted(path) +
                                 " is taken as it stands, without home directories, variables or "
                                 "wildcards: write the whole path"};
    }
    if (path.front() != '/') {
        return PathObjection{"path-not-absolute",
                             Quoted(path) +
                                 " counts from the directory that the daemon was started in: write "
                                 "an absolute path"};
    }
    return std::nullopt;
}

const HeartbeatName* HeartbeatAt(const Machine& machine, const std::string& path) {
    const auto normal = [](const std::filesystem::path& one) {
        return one.lexically_normal();
    };
    const std::filesystem::path asked = normal(path);
    const std::filesystem::path directory = machine.heartbeatDirectory;
    const auto* const name = std::find_if(
        std::begin(HeartbeatNames), std::end(HeartbeatNames),
        [&](const HeartbeatName& each) { return asked == normal(directory / each.file); });
    return name != std::end(HeartbeatNames) ? name : nullptr;
}

const TiXmlElement& ParamOf(const TiXmlElement& part, std::size_t index) {
    for (const TiXmlElement* child = part.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (IsNamed(*child, "param") && child->Attribute("value") != nullptr && index-- == 0) {
            return *child;
        }
    }
    return part;
}

}  // namespace kennly
