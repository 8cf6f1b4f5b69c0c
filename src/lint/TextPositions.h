#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace kennly {

/// A place in a text, both counted from 1; columns in characters, a tab being one. Line 0: nobody
/// knows where.
struct Position {
    int line = 0;
    int column = 0;
};

bool operator<(const Position& a, const Position& b);

/// The places in a text whose line ends are single newlines, as TinyXML counts them and as an
/// editor does. They differ in a text that is no UTF-8 and is taken for it: there TinyXML steps
/// over bytes, and even line ends, that it takes for the rest of a character.
///
/// Threads: any thread may call any operation. Ownership: looks at the text, which must outlive it.
class TextPositions {
public:
    /// `utf8Begin`: from this offset on, TinyXML reads the text by the characters of UTF-8, and up
    /// to it by bytes.
    TextPositions(std::string_view text, std::size_t utf8Begin);

    /// The offset of the place that TinyXML, with tab stops of 1, gives as `row` and `column`, both
    /// from 1; behind marks that it does not count. The end of the text when there is no such
    /// place.
    std::size_t OffsetOf(int row, int column) const;

    /// The offset of the character behind that at `offset`, as TinyXML reads them.
    std::size_t Next(std::size_t offset) const;

    /// The place of an offset, as an editor gives it: what is no UTF-8 counts as one character for
    /// each byte. That of the end for an offset beyond it.
    Position PositionAt(std::size_t offset) const;

private:
    struct Mark {
        std::size_t offset = 0;
        Position place = {1, 1};
    };

    template <class Step>
    std::vector<Mark> MarksOf(const Step& step) const;
    bool IsCounted(const Mark& mark) const;
    void StepAsTinyXml(Mark& mark) const;
    void StepAsEditor(Mark& mark) const;

    std::string_view text_;
    std::size_t utf8Begin_;
    std::vector<Mark> tinyXmlMarks_;  // at short intervals, so that no place is far from one
    std::vector<Mark> editorMarks_;
};

}  // namespace kennly
