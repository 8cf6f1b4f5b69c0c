#pragma once

#include <tinyxml.h>

#include <string>
#include <string_view>

#include "lint/TextPositions.h"

namespace kennly {

/// An attribute's value as it stands in the file, between its quotes if it has any.
struct RawValue {
    std::size_t offset = 0;  // in the text
    std::string_view text;
};

/// A configuration file as TinyXML reads it, with the places of all that is in it.
///
/// Threads: one at a time. Ownership: owns the text and the document.
class ConfigText {
public:
    /// Parses `content`, the bytes of a file to which InspectConfigFile has no objection, as the
    /// daemon does.
    explicit ConfigText(std::string_view content);
    ~ConfigText() = default;

    ConfigText(const ConfigText&) = delete;
    ConfigText& operator=(const ConfigText&) = delete;

    /// Whether TinyXML accepts the text and finds an element. Without, there is no root.
    bool HasRoot() const;
    /// Where TinyXML gave up; where it does not say, the last element that it had begun.
    Position PlaceOfError() const;

    const TiXmlElement& Root() const { return *document_.FirstChildElement(); }
    const TiXmlDocument& Document() const { return document_; }

    /// The text up to its first NUL, where TinyXML ends too, each line end a newline.
    const std::string& Text() const { return text_; }

    Position PositionOf(const TiXmlBase& item) const;
    Position PositionAt(std::size_t offset) const { return positions_.PositionAt(offset); }
    std::size_t OffsetOf(const TiXmlBase& item) const;
    RawValue RawValueOf(const TiXmlAttribute& attribute) const;

private:
    std::size_t BeginOfUtf8() const;

    std::string text_;
    TextPositions positions_;
    TiXmlDocument document_;
};

/// The attribute of that exact name, or null.
const TiXmlAttribute* FindAttribute(const TiXmlElement& element, const char* name);

}  // namespace kennly
