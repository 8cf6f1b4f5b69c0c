#pragma once

#include <cstddef>
#include <string_view>

namespace kennly {

/// What has to be known of an XML text before TinyXML may be given it.
struct XmlOutline {
    std::size_t depth = 0;  // how deep elements nest; TinyXML goes one call deeper for each level
    std::size_t attributes = 0;  // the most of one element; TinyXML compares each with all before
    std::size_t end = 0;         // where TinyXML stops reading: behind it, nothing counts
    bool isUtf8 = false;         // TinyXML will step through it by UTF-8 characters, not by bytes
};

/// Outlines `text` as TinyXML will read it, well-formed or not: where it finds elements, and by
/// which characters it steps. Line ends are to be normalised, as TinyXML normalises those of a
/// file. The text ends at its first NUL, as it does for TinyXML.
///
/// The counts are exact for a text that TinyXML accepts; for one that it refuses half-way, they may
/// include what it will not reach. Stops as soon as `enough` levels are found. Takes linear time
/// and no memory. Any thread may call it.
XmlOutline OutlineXml(std::string_view text, std::size_t enough);

/// The length in bytes of the UTF-8 character that `lead` begins, by TinyXML's own table: a byte
/// that can begin none counts as a character of its own.
std::size_t TinyXmlCharacterLength(char lead);

/// Whether `text` ends inside a UTF-8 character. TinyXML would step over the end of such a text.
bool EndsInsideCharacter(std::string_view text);

}  // namespace kennly
