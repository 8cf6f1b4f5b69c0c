#include "lint/JobSelection.h"

#include <strings.h>

#include <algorithm>
#include <map>

#include "action/DogAction.h"
#include "config/ElementParser.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

// The fixed texts and codes in which checks and remedies differ.
struct PartKind {
    const char* element;
    const char* typeMissing;
    const char* typeInvalid;  // between the type and the job's name
    const char* validTypes;
    const char* missingCode;
};

constexpr PartKind CheckKind = {"check", "check type missing in job", "invalid in job",
                                "CheckCommandResult, CheckForFileChange or CheckForNoFileChange",
                                "no-check"};
constexpr PartKind RemedyKind = {"remedy", "remedy type missing in job", "not valid in job",
                                 "Execute or ExecuteAlways", "no-remedy"};

class Selection {
public:
    Selection(const ConfigText& text, Findings& findings) : text_(text), findings_(findings) {}

    std::vector<SelectedJob> Run() {
        for (const TiXmlElement* child = text_.Root().FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            if (IsNamed(*child, "job")) {
                SelectJob(*child);
            }
        }
        return std::move(selected_);
    }

private:
    void Report(const TiXmlBase& item, Severity severity, const char* code,
                const std::string& text) {
        findings_.push_back({text_.PositionOf(item), severity, code, text});
    }

    std::string LineOf(const TiXmlBase& item) const {
        return "line " + std::to_string(text_.PositionOf(item).line);
    }

    void SelectJob(const TiXmlElement& element) {
        const char* const nameText = element.Attribute("name");
        if (nameText == nullptr) {
            Report(element, Severity::Error, "job-name-missing",
                   "job name missing: the job is left out; give it a name");
            return;
        }
        SelectedJob job;
        job.name = nameText;
        job.job = &element;
        const auto loaded = loaded_.find(job.name);
        if (loaded != loaded_.end()) {
            Report(element, Severity::Error, "job-name-twice",
                   "job name already exists - ignoring job: " + job.name + ": the one in " +
                       LineOf(*loaded->second) + " counts; rename this one");
            return;
        }
        if (!IsEnabled(element, job.name)) {
            passedOver_.emplace(job.name, &element);
            return;
        }
        if (!SelectParts(element, job)) {
            passedOver_.emplace(job.name, &element);
            return;
        }
        NotePassedOver(job);
        loaded_[job.name] = &element;
        selected_.push_back(job);
    }

    bool IsEnabled(const TiXmlElement& element, const std::string& name) {
        const TiXmlAttribute* const enabled = FindAttribute(element, "enabled");
        if (enabled != nullptr && strcasecmp(enabled->Value(), "true") == 0) {
            return true;
        }
        if (enabled == nullptr) {
            Report(element, Severity::Warning, "not-enabled",
                   "job " + name + " is left out, as it is without enabled=\"true\"; write " +
                       "enabled=\"false\" if that is meant");
        } else if (strcasecmp(enabled->Value(), "false") != 0) {
            Report(*enabled, MeansNo(enabled->Value()) ? Severity::Note : Severity::Warning,
                   "not-enabled",
                   "job " + name + " is left out: enabled=\"" + enabled->Value() +
                       R"(" is not "true"; write enabled="true" or enabled="false")");
        }
        return false;
    }

    static bool MeansNo(const char* text) {
        const auto all = {"no", "off", "0"};
        return std::any_of(all.begin(), all.end(),
                           [&](const char* each) { return strcasecmp(each, text) == 0; });
    }

    bool SelectParts(const TiXmlElement& element, SelectedJob& job) {
        const TiXmlElement* refusedCheck = nullptr;
        const TiXmlElement* refusedRemedy = nullptr;
        for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            if (IsNamed(*child, "remedy")) {
                SelectPart(RemedyKind, *child, job.name, job.remedy, refusedRemedy,
                           RemedyTypeFromName);
            } else if (IsNamed(*child, "check")) {
                SelectPart(CheckKind, *child, job.name, job.check, refusedCheck, CheckTypeFromName);
            }
        }
        return IsThere(job.remedy, RemedyKind, element, job.name) &&
               IsThere(job.check, CheckKind, element, job.name);
    }

    bool IsThere(const TiXmlElement* part, const PartKind& kind, const TiXmlElement& job,
                 const std::string& name) {
        if (part != nullptr) {
            return true;
        }
        Report(job, Severity::Error, kind.missingCode,
               std::string("no ") + kind.element + " defined in job: " + name +
                   ": the job is left out; add a " + kind.element);
        return false;
    }

    void SelectPart(const PartKind& kind, const TiXmlElement& element, const std::string& name,
                    const TiXmlElement*& selected, const TiXmlElement*& refused,
                    std::int32_t (*codeOf)(const char*)) {
        if (selected != nullptr) {
            Report(element, Severity::Error, "extra-element",
                   std::string("extra ") + kind.element + " ignored in job: " + name +
                       ": the one in " + LineOf(*selected) + " counts; remove this one");
            return;
        }
        if (!HasType(kind, element, name, codeOf)) {
            refused = &element;
            return;
        }
        ReportParamsWithoutValue(kind, element, name);
        if (refused != nullptr) {
            Report(element, Severity::Note, "later-one-counts",
                   std::string("this is the ") + kind.element + " of job " + name +
                       ", since the one in " + LineOf(*refused) + " is left out");
        }
        selected = &element;
    }

    bool HasType(const PartKind& kind, const TiXmlElement& element, const std::string& name,
                 std::int32_t (*codeOf)(const char*)) {
        const TiXmlAttribute* const type = FindAttribute(element, "type");
        if (type == nullptr) {
            Report(element, Severity::Error, "type-missing",
                   std::string(kind.typeMissing) + " " + name + ": the " + kind.element +
                       " is left out; its type is " + kind.validTypes);
            return false;
        }
        static_assert(CheckTypeUnknown == RemedyTypeUnknown, "one test serves both");
        if (codeOf(type->Value()) == CheckTypeUnknown) {
            Report(*type, Severity::Error, "type-invalid",
                   std::string(kind.element) + " type " + type->Value() + " " + kind.typeInvalid +
                       " " + name + ": the " + kind.element + " is left out; write " +
                       kind.validTypes);
            return false;
        }
        return true;
    }

    void ReportParamsWithoutValue(const PartKind& kind, const TiXmlElement& element,
                                  const std::string& name) {
        for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            if (IsNamed(*child, "param") && child->Attribute("value") == nullptr) {
                Report(*child, Severity::Error, "param-without-value",
                       std::string(kind.element) + " param missing its value in job " + name +
                           ": the param is left out; give it a value");
            }
        }
    }

    void NotePassedOver(const SelectedJob& job) {
        const auto passedOver = passedOver_.find(job.name);
        if (passedOver != passedOver_.end()) {
            Report(*job.job, Severity::Note, "later-one-counts",
                   "this is job " + job.name + ", since the one in " + LineOf(*passedOver->second) +
                       " is left out");
        }
    }

    const ConfigText& text_;
    Findings& findings_;
    std::vector<SelectedJob> selected_;
    std::map<std::string, const TiXmlElement*> loaded_;
    std::map<std::string, const TiXmlElement*> passedOver_;  // the first one of each name
};

}  // namespace

std::vector<SelectedJob> SelectJobs(const ConfigText& text, Findings& findings) {
    return Selection(text, findings).Run();
}

}  // namespace kennly
