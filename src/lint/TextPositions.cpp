#include "lint/TextPositions.h"

#include <algorithm>
#include <tuple>

#include "config/XmlOutline.h"
#include "lint/Utf8.h"

namespace kennly {

namespace {

// Marks in UTF-8 that nobody sees; neither TinyXML nor an editor counts them.
bool HasNoWidth(std::string_view rest) {
    const std::string_view character = rest.substr(0, 3);
    return character == "\xEF\xBB\xBF" || character == "\xEF\xBF\xBE" ||
           character == "\xEF\xBF\xBF";
}

constexpr std::size_t MarkInterval = 64;  // bytes

void MovePlace(char character, bool isCounted, Position& place) {
    if (character == '\n') {
        ++place.line;
        place.column = 1;
    } else {
        place.column += isCounted ? 1 : 0;
    }
}

}  // namespace

bool operator<(const Position& a, const Position& b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
}

TextPositions::TextPositions(std::string_view text, std::size_t utf8Begin)
    : text_(text),
      utf8Begin_(utf8Begin),
      tinyXmlMarks_(MarksOf([&](Mark& mark) { StepAsTinyXml(mark); })),
      editorMarks_(MarksOf([&](Mark& mark) { StepAsEditor(mark); })) {}

template <class Step>
std::vector<TextPositions::Mark> TextPositions::MarksOf(const Step& step) const {
    std::vector<Mark> marks(1);
    for (Mark mark; mark.offset < text_.size(); step(mark)) {
        if (mark.offset >= marks.back().offset + MarkInterval) {
            marks.push_back(mark);
        }
    }
    return marks;
}

// By TinyXML.
bool TextPositions::IsCounted(const Mark& mark) const {
    return mark.offset < utf8Begin_ || !HasNoWidth(text_.substr(mark.offset));
}

void TextPositions::StepAsTinyXml(Mark& mark) const {
    MovePlace(text_[mark.offset], IsCounted(mark), mark.place);
    mark.offset = Next(mark.offset);
}

void TextPositions::StepAsEditor(Mark& mark) const {
    const std::string_view rest = text_.substr(mark.offset);
    MovePlace(rest.front(), !HasNoWidth(rest), mark.place);
    mark.offset += std::max<std::size_t>(SizeOfCharacter(rest), 1);
}

std::size_t TextPositions::OffsetOf(int row, int column) const {
    const Position wanted = {row, column};
    const auto next = std::upper_bound(
        tinyXmlMarks_.begin(), tinyXmlMarks_.end(), wanted,
        [](const Position& place, const Mark& mark) { return place < mark.place; });
    if (next == tinyXmlMarks_.begin()) {
        return text_.size();
    }
    Mark mark = *(next - 1);
    while (mark.offset < text_.size() && (mark.place < wanted || !IsCounted(mark))) {
        StepAsTinyXml(mark);
    }
    return wanted < mark.place ? text_.size() : mark.offset;
}

std::size_t TextPositions::Next(std::size_t offset) const {
    const std::size_t length = offset < utf8Begin_ ? 1 : TinyXmlCharacterLength(text_[offset]);
    return std::min(offset + length, text_.size());
}

Position TextPositions::PositionAt(std::size_t offset) const {
    const std::size_t end = std::min(offset, text_.size());
    const auto next =
        std::upper_bound(editorMarks_.begin(), editorMarks_.end(), end,
                         [](std::size_t value, const Mark& mark) { return value < mark.offset; });
    Mark mark = *(next - 1);
    while (mark.offset < end) {
        StepAsEditor(mark);
    }
    return mark.place;
}

}  // namespace kennly
