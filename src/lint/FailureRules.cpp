#include "lint/FailureRules.h"

#include <algorithm>
#include <string_view>

#include "config/FileInspection.h"
#include "lint/ConfigText.h"
#include "lint/FileContent.h"

namespace kennly {

namespace {

bool Begins(std::string_view text, std::string_view with) {
    return text.substr(0, with.size()) == with;
}

std::size_t FirstThatIsNoBlank(std::string_view text) {
    const std::size_t bom = Begins(text, "\xEF\xBB\xBF") ? 3 : 0;
    const std::size_t found = text.find_first_not_of(" \t\r\n\v\f", bom);
    return found == std::string_view::npos ? text.size() : found;
}

struct Explanation {
    Position where;
    std::string advice;
};

// For "Error document empty." and the like: what the file begins with is no element.
Explanation ExplainBeginning(std::string_view content, const ConfigText& text) {
    using namespace std::string_view_literals;
    if (Begins(content, "\xFF\xFE"sv) || Begins(content, "\xFE\xFF"sv) ||
        Begins(content, "<\0"sv) || Begins(content, "\0<\0"sv)) {
        return {{1, 1}, "the file is in UTF-16: save it as UTF-8"};
    }
    if (Begins(content, "\0"sv)) {
        return {{1, 1}, "the file begins with a NUL byte, and is read no further: remove it"};
    }
    const std::size_t begin = FirstThatIsNoBlank(text.Text());
    if (begin == text.Text().size()) {
        return {{1, 1}, "the file is empty: write a root element, with the jobs in it"};
    }
    return {text.PositionAt(begin), "text stands before the first element: remove it"};
}

// For a text that TinyXML accepts without having found an element: goes through what may stand
// before one.
Explanation ExplainNoElement(const ConfigText& parsed) {
    const std::string_view text = parsed.Text();
    Explanation none = {{1, 1}, "write a root element, with the jobs in it"};
    for (std::size_t at = FirstThatIsNoBlank(text); at < text.size();) {
        const std::string_view rest = text.substr(at);
        const Position where = parsed.PositionAt(at);
        const bool isComment = Begins(rest, "<!--");
        if (rest.front() != '<') {
            return {where, "text stands before the first element: remove it"};
        }
        const std::string_view end = isComment ? "-->" : Begins(rest, "<?") ? "?>" : ">";
        const std::size_t behind = rest.find(end);
        if (isComment && behind == std::string_view::npos) {
            return {where, "the comment has no end: write -->"};
        }
        if (Begins(rest, "<!") && !isComment && rest.substr(0, behind).find('[') < behind) {
            return {where, "the parser cannot read a DOCTYPE with declarations in it: remove it"};
        }
        if (behind == std::string_view::npos) {
            return rest.size() > 1
                       ? Explanation{where, "this has no end: write " + std::string(end)}
                       : none;
        }
        if (!Begins(rest, "<!") && !Begins(rest, "<?")) {
            return {where, Begins(rest, "</")
                               ? "an end tag stands before the first element: remove it"
                               : "no element begins with a blank or a digit behind the <: begin it "
                                 "with its name"};
        }
        at = text.find_first_not_of(" \t\n\v\f", at + behind + end.size());
    }
    return none;
}

// The offset of a place, or of one shortly before it in a line that is not plain ASCII.
std::size_t OffsetNear(std::string_view text, const Position& where) {
    std::size_t at = 0;
    for (int line = 1; line < where.line; ++line) {
        at = std::min(text.find('\n', at), text.size() - 1) + 1;
    }
    return at + static_cast<std::size_t>(std::max(where.column, 1)) - 1;
}

// The offset of a character in the tag at `begin` that is given by a number, and not as the parser
// wants it; npos when there is none.
std::size_t FindBadCharacterNumber(std::string_view text, std::size_t begin) {
    const std::size_t tagEnd = std::min(text.find('>', begin), text.size());
    for (std::size_t at = text.find("&#", begin); at < tagEnd; at = text.find("&#", at + 2)) {
        const bool isHex = text.substr(at + 2, 1) == "x";
        const std::size_t digits = at + (isHex ? 3 : 2);
        const std::size_t end =
            text.find_first_not_of(isHex ? "0123456789abcdefABCDEF" : "0123456789", digits);
        if (end == digits || end == std::string_view::npos || text[end] != ';') {
            return at;
        }
    }
    return std::string_view::npos;
}

// The offset of the last `begin` that no `end` follows; npos when there is none.
std::size_t FindUnended(std::string_view text, std::string_view begin, std::string_view end) {
    const std::size_t at = text.rfind(begin);
    return at != std::string_view::npos && text.find(end, at) == std::string_view::npos
               ? at
               : std::string_view::npos;
}

Explanation ExplainElement(const ConfigText& text) {
    const Position where = text.PlaceOfError();
    const std::size_t number = FindBadCharacterNumber(text.Text(), OffsetNear(text.Text(), where));
    if (number != std::string_view::npos) {
        return {text.PositionAt(number),
                "a character is given by a number as in &#38; or &#x26;: write it so, or &amp; for "
                "the &"};
    }
    return {where,
            "an attribute stands twice, or a tag or the quotes of a value have no end: correct it"};
}

Explanation ExplainUnclosed(const ConfigText& text) {
    struct Row {
        const char* begin;
        const char* end;
        const char* advice;
    };
    for (const Row& row : {Row{"<!--", "-->", "the comment has no end: write -->"},
                           Row{"<![CDATA[", "]]>", "the CDATA section has no end: write ]]>"}}) {
        const std::size_t at = FindUnended(text.Text(), row.begin, row.end);
        if (at != std::string_view::npos) {
            return {text.PositionAt(at), row.advice};
        }
    }
    return {text.PlaceOfError(),
            "an element is not closed where it should be: write its end tag, with the name in "
            "the same letter case"};
}

Explanation ExplainParserError(const std::string& reason, std::string_view content) {
    const ConfigText text(content);
    if (!text.Document().Error()) {
        return ExplainNoElement(text);
    }
    if (text.Document().FirstChild() == nullptr && reason == "Error document empty.") {
        return ExplainBeginning(content, text);
    }
    if (content.find('\0') != std::string_view::npos) {
        return {text.PositionAt(text.Text().size()),
                "a NUL byte stands here, and the file is read no further: remove it"};
    }
    if (reason == "Error parsing Element.") {
        return ExplainElement(text);
    }
    if (reason == "Error reading Element value." || reason == "Error reading end tag.") {
        return ExplainUnclosed(text);
    }
    if (reason == "Error reading Attributes.") {
        return {text.PlaceOfError(),
                "an attribute has no value, or its quotes no end: write the value in quotes"};
    }
    if (reason == "Error: empty tag.") {
        return {text.PlaceOfError(),
                "a / stands in a tag without the > behind it, as in a value without quotes: write "
                "the value in quotes"};
    }
    return {text.PlaceOfError(), "mend the text from here on"};
}

bool IsParsersReason(const std::string& path) {
    return InspectConfigFile(path.c_str()).empty();
}

Explanation Explain(const std::string& path, const std::string& reason) {
    if (reason == "not a regular file") {
        return {{}, "give a file, not a directory, pipe or device"};
    }
    if (reason == "file ends inside a character") {
        return {{}, "the file has been cut short: save it again"};
    }
    if (reason == "elements nested too deep") {
        return {{}, "close each element, as three levels are enough"};
    }
    if (reason == "too many attributes in one element") {
        return {{}, "five attributes are enough"};
    }
    if (IsParsersReason(path)) {
        return ExplainParserError(reason, ContentOf(path));
    }
    return {{}, "mend the file"};
}

}  // namespace

void ExplainFailure(const std::string& path, const DaemonVerdict& verdict, Findings& findings) {
    if (verdict.outcome == DaemonVerdict::Outcome::NeverRead) {
        findings.push_back({{},
                            Severity::Error,
                            "never-read",
                            "the file's modification time is the one second that the daemon takes "
                            "for no change at all, and so it never reads it: touch the file"});
        return;
    }
    if (verdict.outcome == DaemonVerdict::Outcome::CannotExamine) {
        findings.push_back({{},
                            Severity::Error,
                            "cannot-examine",
                            "the file is missing, or this user may not look for it: the daemon "
                            "logs nothing about that, and ends when it stays so"});
        return;
    }
    const Explanation explanation = Explain(path, verdict.reason);
    findings.push_back(
        {explanation.where, Severity::Error, "load-fails",
         "config file failed to load, error: " + verdict.reason + ": " + explanation.advice});
}

}  // namespace kennly
