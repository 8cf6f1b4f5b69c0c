#include "lint/ConfigText.h"

#include <cstring>

#include "config/FileInspection.h"
#include "config/XmlOutline.h"
#include "lint/Words.h"

namespace kennly {

namespace {

// As TinyXML does before it parses.
std::string WithPlainLineEnds(std::string_view content) {
    std::string text;
    text.reserve(content.size());
    for (std::size_t i = 0; i < content.size() && content[i] != '\0'; ++i) {
        if (content[i] != '\r') {
            text += content[i];
            continue;
        }
        text += '\n';
        if (i + 1 < content.size() && content[i + 1] == '\n') {
            ++i;
        }
    }
    return text;
}

std::size_t SkipBlanks(std::string_view text, std::size_t at) {
    while (at < text.size() && IsBlank(text[at])) {
        ++at;
    }
    return at;
}

std::size_t EndOfBareValue(std::string_view text, std::size_t at) {
    while (at < text.size() && !IsBlank(text[at]) && text[at] != '/' && text[at] != '>') {
        ++at;
    }
    return at;
}

}  // namespace

ConfigText::ConfigText(std::string_view content)
    : text_(WithPlainLineEnds(content)), positions_(text_, text_.size()) {
    document_.SetTabSize(1);
    document_.Parse(text_.c_str());
    if (OutlineXml(text_, MaxNesting + 1).isUtf8) {
        positions_ = TextPositions(text_, BeginOfUtf8());
    }
}

// Up to the declaration that says so, TinyXML has gone by bytes.
std::size_t ConfigText::BeginOfUtf8() const {
    const bool hasMark = text_.compare(0, 3, "\xEF\xBB\xBF") == 0;
    for (const TiXmlNode* node = document_.FirstChild(); node != nullptr && !hasMark;
         node = node->NextSibling()) {
        if (node->ToDeclaration() != nullptr) {
            return OffsetOf(*node);
        }
    }
    return 0;
}

bool ConfigText::HasRoot() const {
    return !document_.Error() && document_.FirstChildElement() != nullptr;
}

Position ConfigText::PlaceOfError() const {
    if (document_.ErrorRow() > 0) {
        return PositionAt(positions_.OffsetOf(document_.ErrorRow(), document_.ErrorCol()));
    }
    const TiXmlNode* last = nullptr;
    for (const TiXmlNode* node = document_.LastChild(); node != nullptr; node = node->LastChild()) {
        last = node->ToElement() != nullptr ? node : last;
    }
    return last != nullptr ? PositionOf(*last) : Position();
}

std::size_t ConfigText::OffsetOf(const TiXmlBase& item) const {
    return positions_.OffsetOf(item.Row(), item.Column());
}

Position ConfigText::PositionOf(const TiXmlBase& item) const {
    return PositionAt(OffsetOf(item));
}

RawValue ConfigText::RawValueOf(const TiXmlAttribute& attribute) const {
    const std::string_view text = text_;
    std::size_t at = OffsetOf(attribute) + std::strlen(attribute.Name());
    at = SkipBlanks(text, at);
    at = SkipBlanks(text, at + 1);  // behind the "="
    if (at >= text.size()) {
        return {text.size(), {}};
    }
    const char quote = text[at];
    if (quote != '"' && quote != '\'') {
        return {at, text.substr(at, EndOfBareValue(text, at) - at)};
    }
    std::size_t end = at + 1;
    while (end < text.size() && text[end] != quote) {
        end = positions_.Next(end);
    }
    return {at + 1, text.substr(at + 1, end - at - 1)};
}

const TiXmlAttribute* FindAttribute(const TiXmlElement& element, const char* name) {
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        if (std::strcmp(attribute->Name(), name) == 0) {
            return attribute;
        }
    }
    return nullptr;
}

}  // namespace kennly
