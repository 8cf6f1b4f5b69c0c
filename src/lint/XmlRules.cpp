#include "lint/XmlRules.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <initializer_list>
#include <string_view>

#include "config/ElementParser.h"
#include "config/FileInspection.h"
#include "config/XmlOutline.h"
#include "lint/Utf8.h"
#include "lint/Wording.h"
#include "lint/Words.h"

namespace kennly {

namespace {

// The rest begins with an ampersand.
bool BeginsEntity(std::string_view rest) {
    constexpr std::array<std::string_view, 6> entities = {"&amp;",  "&lt;",   "&gt;",
                                                          "&quot;", "&apos;", "&#"};
    return std::any_of(entities.begin(), entities.end(), [&](std::string_view entity) {
        return rest.substr(0, entity.size()) == entity;
    });
}

// Such as "&lt" in the place of "&lt;".
bool BeginsEntityWithoutEnd(std::string_view rest) {
    const auto* const end = std::find_if(rest.begin() + 1, rest.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) == 0;
    });
    return BeginsEntity(std::string(rest.begin(), end) + ";");
}

std::size_t FindBareAmpersand(std::string_view text) {
    std::size_t at = text.find('&');
    while (at != std::string_view::npos && BeginsEntity(text.substr(at))) {
        at = text.find('&', at + 1);
    }
    return at;
}

std::size_t FindEntity(std::string_view text) {
    std::size_t at = text.find('&');
    while (at != std::string_view::npos && !BeginsEntity(text.substr(at))) {
        at = text.find('&', at + 1);
    }
    return at;
}

// Which is then read as it stands, without a look at its ampersands.
bool HasNoQuotes(const LintSubject& subject, const RawValue& raw) {
    const char before = raw.offset > 0 ? subject.text.Text()[raw.offset - 1] : ' ';
    return before != '"' && before != '\'';
}

void ReportAmpersands(const LintSubject& subject, const TiXmlAttribute& attribute) {
    const RawValue raw = subject.text.RawValueOf(attribute);
    if (HasNoQuotes(subject, raw)) {
        const std::size_t entity = FindEntity(raw.text);
        if (entity != std::string_view::npos) {
            subject.findings.push_back(
                {subject.text.PositionAt(raw.offset + entity), Severity::Warning, "unquoted-entity",
                 "in a value without quotes nothing is replaced, and it stays " +
                     Quoted(attribute.Value()) + ": write the value in quotes"});
        }
        return;
    }
    const std::size_t at = FindBareAmpersand(raw.text);
    if (at == std::string_view::npos) {
        return;
    }
    subject.findings.push_back(
        {subject.text.PositionAt(raw.offset + at), Severity::Warning, "bare-ampersand",
         "a bare & is dropped, and what is left is " + Quoted(attribute.Value()) +
             (BeginsEntityWithoutEnd(raw.text.substr(at)) ? ": write a ; behind the entity"
                                                          : ": write &amp; for each &")});
}

void ReportLineEnd(const LintSubject& subject, const TiXmlAttribute& attribute) {
    const RawValue raw = subject.text.RawValueOf(attribute);
    const std::size_t at = raw.text.find_first_of("\n\t");
    if (at == std::string_view::npos) {
        return;
    }
    const bool isTab = raw.text[at] == '\t';
    subject.findings.push_back(
        {subject.text.PositionAt(raw.offset + at), Severity::Note, "line-end-in-value",
         isTab
             ? "the tab is kept, where other parsers of XML make it a blank: write &#9; or a blank"
             : "the line end is kept, where other parsers of XML make it a blank, and in a command "
               "it separates two: write &#10; or a semicolon if that is meant, else a blank"});
}

void ReportIllFormed(const LintSubject& subject, std::size_t offset, const std::string& what) {
    subject.findings.push_back({subject.text.PositionAt(offset), Severity::Note, "not-well-formed",
                                what + ": the daemon takes it as it stands, other parsers of XML "
                                       "refuse the file"});
}

void ReportUnusualAttribute(const LintSubject& subject, const TiXmlAttribute& attribute) {
    const std::string& text = subject.text.Text();
    const RawValue raw = subject.text.RawValueOf(attribute);
    const std::size_t begin = subject.text.OffsetOf(attribute);
    if (HasNoQuotes(subject, raw)) {
        ReportIllFormed(subject, raw.offset, "a value without quotes");
    }
    if (raw.text.find('<') != std::string_view::npos) {
        ReportIllFormed(subject, raw.offset + raw.text.find('<'),
                        "a < in a value, instead of &lt;");
    }
    if (begin > 0 && begin < text.size() && !IsBlank(text[begin - 1])) {
        ReportIllFormed(subject, begin, "no blank between two attributes");
    }
}

// ---- elements that nobody looks at

bool ContainsJob(std::string_view text) {
    constexpr std::string_view tag = "<job";
    for (std::size_t at = text.find('<'); at != std::string_view::npos;
         at = text.find('<', at + 1)) {
        const std::string name(text.substr(at, tag.size()));
        const std::string_view behind = text.substr(at + name.size());
        if (strcasecmp(name.c_str(), tag.data()) == 0 &&
            (behind.empty() || IsBlank(behind.front()) || behind.front() == '>' ||
             behind.front() == '/')) {
            return true;
        }
    }
    return false;
}

// "< job>" or "<1job>": what the parser takes for no element, and passes over.
bool IsFailedElement(const TiXmlNode& node) {
    const TiXmlUnknown* const unknown = node.ToUnknown();
    return unknown != nullptr &&
           std::string_view("?!/").find(unknown->Value()[0]) == std::string_view::npos;
}

void ReportHiddenJob(const LintSubject& subject, const TiXmlNode& node) {
    if (node.ToComment() != nullptr) {
        if (ContainsJob(node.Value())) {
            subject.Report(node, Severity::Note, "job-in-comment",
                           "a job in a comment is none: it does not run");
        }
        if (std::string_view(node.Value()).find("--") != std::string_view::npos) {
            ReportIllFormed(subject, subject.text.OffsetOf(node), "-- in a comment");
        }
        return;
    }
    const TiXmlText* const text = node.ToText();
    if (text != nullptr && text->CDATA() && ContainsJob(text->Value())) {
        subject.Report(node, Severity::Warning, "job-in-cdata",
                       "a job in a CDATA section is text, and does not run: take it out");
    }
}

const char* KnownNameBehindPrefix(const TiXmlElement& element) {
    const std::string_view name = element.Value();
    const std::size_t colon = name.rfind(':');
    if (colon == std::string_view::npos) {
        return nullptr;
    }
    const TiXmlElement bare(std::string(name.substr(colon + 1)).c_str());
    constexpr std::array<const char*, 4> names = {"job", "check", "remedy", "param"};
    const auto* const known = std::find_if(names.begin(), names.end(),
                                           [&](const char* each) { return IsNamed(bare, each); });
    return known != names.end() ? *known : nullptr;
}

bool IsOneOf(const TiXmlElement& element, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(),
                       [&](const char* name) { return IsNamed(element, name); });
}

class ElementWalk {
public:
    explicit ElementWalk(const LintSubject& subject) : subject_(subject) {}

    void Run() {
        const TiXmlElement& root = subject_.text.Root();
        if (IsNamed(root, "job")) {
            subject_.Report(root, Severity::Warning, "job-as-root",
                            "the first element is taken for the root, and the jobs must stand in "
                            "it: no job is loaded; put an element around all of them");
        }
        Attributes(root);
        Children(root, {"job"});
    }

private:
    void Attributes(const TiXmlElement& element) {
        for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
             attribute = attribute->Next()) {
            ReportAmpersands(subject_, *attribute);
            ReportLineEnd(subject_, *attribute);
            ReportUnusualAttribute(subject_, *attribute);
        }
    }

    void Children(const TiXmlElement& element, std::initializer_list<const char*> read) {
        for (const TiXmlNode* node = element.FirstChild(); node != nullptr;
             node = node->NextSibling()) {
            ReportHiddenJob(subject_, *node);
            if (IsFailedElement(*node)) {
                subject_.Report(*node, Severity::Warning, "unknown-element",
                                Quoted("<" + node->ValueStr() + ">") +
                                    " is no element, and is ignored: an element's name follows "
                                    "the < at once, and begins with a letter");
            }
            if (const TiXmlElement* const child = node->ToElement()) {
                Attributes(*child);
                Child(*child, read);
            }
        }
    }

    void Child(const TiXmlElement& child, std::initializer_list<const char*> read) {
        if (!IsOneOf(child, read)) {
            ReportUnread(child);
            JobsBelow(child);
        } else if (IsNamed(child, "job")) {
            Children(child, {"check", "remedy"});
        } else if (IsNamed(child, "param")) {
            Children(child, {});
        } else {
            Children(child, {"param"});
        }
    }

    // In what is not read itself, nothing else is worth a word.
    void JobsBelow(const TiXmlElement& unread) {
        for (const TiXmlNode* node = unread.FirstChild(); node != nullptr;
             node = node->NextSibling()) {
            ReportHiddenJob(subject_, *node);
            if (const TiXmlElement* const child = node->ToElement()) {
                Attributes(*child);
                if (IsNamed(*child, "job")) {
                    ReportUnread(*child);
                }
                JobsBelow(*child);
            }
        }
    }

    void ReportUnread(const TiXmlElement& element) {
        const std::string name = std::string("<") + element.Value() + ">";
        if (const char* const known = KnownNameBehindPrefix(element)) {
            subject_.Report(
                element, Severity::Warning, "prefixed-element",
                name + " is ignored: namespaces mean nothing here; write <" + known + ">");
        } else if (IsNamed(element, "job")) {
            subject_.Report(element, Severity::Warning, "wrapped-job",
                            "this job does not stand directly in the root, and is not loaded: take "
                            "it out of <" +
                                std::string(element.Parent()->Value()) + ">");
        } else {
            subject_.Report(element, Severity::Warning, "unknown-element",
                            name +
                                " means nothing here, and is ignored with all that is in it: "
                                "remove it, or correct its name or its place");
        }
    }

    const LintSubject& subject_;
};

// ---- what stands behind the root

std::size_t CountJobs(const TiXmlElement& element) {
    std::size_t count = IsNamed(element, "job") ? 1 : 0;
    for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        count += CountJobs(*child);
    }
    return count;
}

void ReportElementsBehindRoot(const LintSubject& subject) {
    const TiXmlElement* const first = subject.text.Root().NextSiblingElement();
    if (first == nullptr) {
        return;
    }
    std::size_t jobs = 0;
    for (const TiXmlElement* element = first; element != nullptr;
         element = element->NextSiblingElement()) {
        jobs += CountJobs(*element);
    }
    subject.Report(*first, Severity::Warning, "second-root",
                   "the root has ended before this element, and nothing from here on is loaded (" +
                       Counted(jobs, "job") +
                       "): remove the end tag that is one too many, or the second root");
}

void ReportTextBehindRoot(const LintSubject& subject) {
    const std::string& text = subject.text.Text();
    const std::size_t end = OutlineXml(text, MaxNesting + 1).end;
    if (end < text.size()) {
        subject.findings.push_back(
            {subject.text.PositionAt(end), Severity::Warning, "text-after-root",
             "text stands outside the root, and the file is read no further: "
             "remove it"});
    }
}

// ---- bytes

std::size_t FindInvalidUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = SizeOfCharacter(text.substr(at));
        if (size == 0) {
            return at;
        }
        at += size;
    }
    return std::string_view::npos;
}

bool NamesAnotherEncoding(const TiXmlDocument& document) {
    const TiXmlNode* const first = document.FirstChild();
    const TiXmlDeclaration* const declaration = first != nullptr ? first->ToDeclaration() : nullptr;
    if (declaration == nullptr) {
        return false;
    }
    const std::string_view encoding = declaration->Encoding();
    return !encoding.empty() && encoding != "UTF-8" && encoding != "utf-8";
}

void ReportBytes(const LintSubject& subject) {
    if (NamesAnotherEncoding(subject.text.Document())) {
        return;  // nothing is converted, and commands get the bytes as they stand
    }
    const std::size_t at = FindInvalidUtf8(subject.text.Text());
    if (at != std::string_view::npos) {
        ReportIllFormed(subject, at, "a byte that is no UTF-8");
    }
}

void ReportOutsideComments(const LintSubject& subject) {
    for (const TiXmlNode* node = subject.text.Document().FirstChild(); node != nullptr;
         node = node->NextSibling()) {
        ReportHiddenJob(subject, *node);
    }
}

}  // namespace

void FindXmlTraps(const LintSubject& subject) {
    ElementWalk(subject).Run();
    ReportOutsideComments(subject);
    ReportElementsBehindRoot(subject);
    ReportTextBehindRoot(subject);
    ReportBytes(subject);
}

}  // namespace kennly
