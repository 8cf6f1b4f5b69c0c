#include "lint/AttributeRules.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "config/ElementParser.h"
#include "config/Number.h"
#include "lint/Wording.h"

namespace kennly {

namespace {

struct KnownAttribute {
    const char* name;
    bool isNumber;
};

using KnownAttributes = std::initializer_list<KnownAttribute>;

// Decimal digits with a sign at most, that mean what they say in 32 bits.
bool IsPlainNumber(const char* text) {
    const std::string_view all = text;
    const std::size_t signs = !all.empty() && (all.front() == '-' || all.front() == '+') ? 1 : 0;
    const std::string_view digits = all.substr(signs);
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) != 0;
    });
}

// Without those around it, of which the daemon skips the ones before.
std::string WithoutBlanks(const std::string& text) {
    constexpr const char* blanks = " \t\n\v\f\r";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool IsCutToLimit(const char* text) {
    std::string digits = std::string(text).substr(std::strspn(text, "+-"));
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    std::string read = std::to_string(NumberFromText(text));
    read.erase(0, read.front() == '-' ? 1 : 0);
    return digits != read && !(digits.empty() && read == "0");
}

void CheckNumber(const LintSubject& subject, const TiXmlAttribute& attribute) {
    const char* const text = attribute.Value();
    const std::string number = std::to_string(NumberFromText(text));
    if (!IsPlainNumber(text)) {
        const bool isMeant = IsPlainNumber(WithoutBlanks(text).c_str());
        subject.Report(attribute, isMeant ? Severity::Note : Severity::Warning, "not-a-number",
                       std::string(attribute.Name()) + "=" + Quoted(text) + " is read as " +
                           number + ": write a whole number in decimal digits");
    } else if (IsCutToLimit(text)) {
        subject.Report(attribute, Severity::Warning, "number-too-large",
                       std::string(attribute.Name()) + "=" + Quoted(text) + " is read as " +
                           number + ": write a number of at most 32 bits");
    }
}

std::string NamesOf(KnownAttributes known) {
    std::string names;
    for (const KnownAttribute& each : known) {
        names += (names.empty() ? "" : ", ") + std::string(each.name);
    }
    return names;
}

// Those by which a file tells other programs about itself: its schema, its language.
bool IsForOthers(std::string_view name) {
    const std::string_view prefix = name.substr(0, name.find(':'));
    return name == "xmlns" || (prefix.size() < name.size() &&
                               (prefix == "xmlns" || prefix == "xml" || prefix == "xsi"));
}

void CheckName(const LintSubject& subject, const TiXmlElement& element,
               const TiXmlAttribute& attribute, KnownAttributes known) {
    const auto* const inOtherCase = std::find_if(
        known.begin(), known.end(),
        [&](const KnownAttribute& row) { return strcasecmp(row.name, attribute.Name()) == 0; });
    std::string advice = "write one of " + NamesOf(known) + ", or remove it";
    if (inOtherCase != known.end()) {
        advice = std::string("write ") + inOtherCase->name + ", as the letter case counts";
    }
    subject.Report(attribute, Severity::Warning, "unknown-attribute",
                   std::string(attribute.Name()) + " is no attribute of <" + element.Value() +
                       ">, and is ignored: " + advice);
}

void CheckAttributes(const LintSubject& subject, const TiXmlElement& element,
                     KnownAttributes known) {
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        const KnownAttribute* const row =
            std::find_if(known.begin(), known.end(), [&](const KnownAttribute& each) {
                return std::strcmp(each.name, attribute->Name()) == 0;
            });
        if (row == known.end() && !IsForOthers(attribute->Name())) {
            CheckName(subject, element, *attribute, known);
        } else if (row != known.end() && row->isNumber) {
            CheckNumber(subject, *attribute);
        }
    }
}

void CheckParams(const LintSubject& subject, const TiXmlElement& part) {
    for (const TiXmlElement* child = part.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (IsNamed(*child, "param")) {
            CheckAttributes(subject, *child, {{"value", false}});
        }
    }
}

void CheckJob(const LintSubject& subject, const TiXmlElement& job) {
    CheckAttributes(subject, job, {{"name", false}, {"enabled", false}, {"maxerrors", true}});
    for (const TiXmlElement* child = job.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (IsNamed(*child, "check")) {
            CheckAttributes(subject, *child,
                            {{"type", false}, {"delay", true}, {"runactionresult", true}});
            CheckParams(subject, *child);
        } else if (IsNamed(*child, "remedy")) {
            CheckAttributes(subject, *child,
                            {{"type", false},
                             {"delay", true},
                             {"blockaction", false},
                             {"blockaction2", false},
                             {"blockaction3", false}});
            CheckParams(subject, *child);
        }
    }
}

}  // namespace

void FindAttributeTraps(const LintSubject& subject) {
    const TiXmlElement& root = subject.text.Root();
    CheckAttributes(subject, root, {{"maxloaderrors", true}});
    for (const TiXmlElement* child = root.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (IsNamed(*child, "job")) {
            CheckJob(subject, *child);
        }
    }
}

}  // namespace kennly
