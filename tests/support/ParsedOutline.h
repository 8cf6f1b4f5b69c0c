#pragma once

#include <tinyxml.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "config/XmlOutline.h"

namespace kennly::test {

// What TinyXML makes of a text, to be held against the outline of it.

/// The text with its line ends as TinyXML has them in memory once it has read them from a file.
inline std::string AsRead(const std::string& text) {
    std::string read;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, 2, "\r\n") != 0) {
            read += text[i];
        }
    }
    return read;
}

inline std::size_t CountAttributes(const TiXmlElement& element) {
    std::size_t count = 0;
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        ++count;
    }
    return count;
}

/// How deep the elements below `node` nest, and the most attributes of one of them.
inline XmlOutline OutlineOf(const TiXmlNode& node) {
    XmlOutline outline;
    for (const TiXmlElement* child = node.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        const XmlOutline below = OutlineOf(*child);
        outline.depth = std::max(outline.depth, 1 + below.depth);
        outline.attributes =
            std::max({outline.attributes, CountAttributes(*child), below.attributes});
    }
    return outline;
}

}  // namespace kennly::test
