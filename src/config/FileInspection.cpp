#include "config/FileInspection.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "config/XmlOutline.h"
#include "main/Descriptor.h"
#include "main/ReadToEnd.h"

namespace kennly {

namespace {

// As TinyXML says of such a file, and would say itself if it were asked. It is not: what could not
// be looked at could still be there for the parser a moment later, and do it any harm.
constexpr const char* Unreadable = "Failed to open file";

// As TinyXML does before it parses: a character that spans such a line end is cut by it.
void NormaliseLineEnds(std::string& content) {
    const std::size_t first = content.find('\r');
    if (first == std::string::npos) {
        return;
    }
    std::size_t to = first;
    for (std::size_t from = first; from < content.size(); ++from) {
        if (content[from] != '\r' || from + 1 == content.size() || content[from + 1] != '\n') {
            content[to++] = content[from];
        }
    }
    content.resize(to);
}

}  // namespace

std::string InspectConfigFile(const char* path) {
    // Without O_NONBLOCK, opening a FIFO that nobody writes to would never return.
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Number(), &status) != 0) {
        return Unreadable;
    }
    if (!S_ISREG(status.st_mode)) {
        return "not a regular file";
    }
    std::string content;
    if (!ReadToEnd(file.Number(), content)) {
        return Unreadable;
    }
    NormaliseLineEnds(content);
    const XmlOutline outline = OutlineXml(content, MaxNesting + 1);
    if (outline.depth > MaxNesting) {
        return "elements nested too deep";
    }
    if (outline.attributes > MaxAttributes) {
        return "too many attributes in one element";
    }
    if (outline.isUtf8 && EndsInsideCharacter(content)) {
        return "file ends inside a character";
    }
    return {};
}

}  // namespace kennly
