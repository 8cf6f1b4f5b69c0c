#include "config/XmlOutline.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace kennly {

std::size_t TinyXmlCharacterLength(char lead) {
    const auto byte = static_cast<unsigned char>(lead);
    if (byte >= 0xC2 && byte <= 0xDF) {
        return 2;
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        return 3;
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return 4;
    }
    return 1;
}

namespace {

// As isspace and isalpha tell in the C locale, which this program never leaves; spelt out because a
// large file asks them for every byte.
bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool BeginsName(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return IsLetter(c) || c == '_' || byte >= 0x7F;
}

bool ContinuesName(char c) {
    return BeginsName(c) || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':';
}

bool IsDigit(char c, bool hexadecimal) {
    const auto byte = static_cast<unsigned char>(c);
    return (hexadecimal ? std::isxdigit(byte) : std::isdigit(byte)) != 0;
}

// How the value of an attribute begins: as much as it takes to tell an encoding.
class ValueStart {
public:
    bool NamesUtf8() const {
        return text_[0] == '\0' || strncasecmp(text_, "UTF-8", 5) == 0 ||
               strncasecmp(text_, "UTF8", 4) == 0;
    }

    void Append(char c) {
        if (size_ < sizeof(text_) - 1) {
            text_[size_++] = c;
        }
    }

    void Append(std::string_view text) {
        size_ += text.copy(text_ + size_, sizeof(text_) - 1 - size_);
    }

    // Appends what TinyXML makes of `read`, which is one byte or a whole "&#...;". It drops an '&'
    // that begins nothing; those that begin a name have no place in an encoding.
    void AppendDecoded(std::string_view read) {
        if (read.front() != '&') {
            Append(read.front());
        } else if (read.size() > 2) {
            const bool isHexadecimal = read[2] == 'x';
            Append(
                CharacterFromDigits(read.substr(read.find_last_of(isHexadecimal ? 'x' : '#') + 1),
                                    isHexadecimal ? 16 : 10));
        }
    }

private:
    // Only the low byte of the number counts.
    static char CharacterFromDigits(std::string_view digits, unsigned base) {
        unsigned number = 0;
        for (const char digit : digits.substr(0, digits.find(';'))) {
            const char value[] = {digit, '\0'};
            number = number * base + static_cast<unsigned>(std::strtoul(value, nullptr, 16));
        }
        return static_cast<char>(number);
    }

    char text_[6] = {};
    std::size_t size_ = 0;
};

// Walks through a text the way TinyXML's recursive parser does, keeping only the number of elements
// that are open.
class Scanner {
public:
    explicit Scanner(std::string_view text)
        : text_(text.substr(0, text.find('\0'))), rest_(text_) {}

    XmlOutline Scan(std::size_t enough) {
        if (StartsWith("\xEF\xBB\xBF")) {
            SettleEncoding(true);
        }
        SkipBlanks();
        while (!rest_.empty() && outline_.depth < enough) {
            if (rest_.front() == '<') {
                ScanMarkup();
            } else if (open_ > 0) {
                SkipText();
            } else {
                break;  // text outside every element: TinyXML reads no further
            }
            SkipBlanks();
        }
        outline_.end = text_.size() - rest_.size();
        return outline_;
    }

private:
    bool StartsWith(std::string_view what) const { return rest_.substr(0, what.size()) == what; }

    bool StartsWithAnyCase(std::string_view what) const {
        return rest_.size() >= what.size() &&
               strncasecmp(rest_.data(), what.data(), what.size()) == 0;
    }

    void Skip(std::size_t count) { rest_.remove_prefix(std::min(count, rest_.size())); }

    void SkipPast(std::string_view what) {
        const std::size_t found = rest_.find(what);
        Skip(found == std::string_view::npos ? rest_.size() : found + what.size());
    }

    void SkipCharacter() {
        if (rest_.front() == '&' && StartsWith("&#") && rest_.size() > 2) {
            SkipNumberedCharacter();
        } else {
            Skip(outline_.isUtf8 ? TinyXmlCharacterLength(rest_.front()) : 1);
        }
    }

    // Skips what is one byte and stands for itself, and returns it. Most of a file does, and so
    // this takes no longer than it must.
    std::string_view SkipPlainUntil(char end) {
        const auto* const found = std::find_if(rest_.begin(), rest_.end(), [end](char c) {
            return c == end || c == '&' || static_cast<unsigned char>(c) > 0x7F;
        });
        const std::string_view plain =
            rest_.substr(0, static_cast<std::size_t>(found - rest_.begin()));
        Skip(plain.size());
        return plain;
    }

    // TinyXML looks for the next ';', wherever that may be, and reads the digits before it
    // backwards; it leaves out, unread, whatever stands between them and the "&#". Without a ';' or
    // with anything but digits behind the last mark, it gives up.
    void SkipNumberedCharacter() {
        const bool isHexadecimal = rest_[2] == 'x';
        const char mark = isHexadecimal ? 'x' : '#';
        const std::size_t end = rest_.find(';', isHexadecimal ? 3 : 2);
        if (end == std::string_view::npos) {
            rest_ = {};
            return;
        }
        std::size_t digit = end - 1;
        while (rest_[digit] != mark && IsDigit(rest_[digit], isHexadecimal)) {
            --digit;
        }
        if (rest_[digit] == mark) {
            Skip(end + 1);
        } else {
            rest_ = {};
        }
    }

    // In UTF-8, byte order marks and two characters that must not occur count as blanks.
    bool AtUtf8Blank() const {
        return rest_.front() == '\xEF' && outline_.isUtf8 &&
               (StartsWith("\xEF\xBB\xBF") || StartsWith("\xEF\xBF\xBE") ||
                StartsWith("\xEF\xBF\xBF"));
    }

    void SkipBlanks() {
        while (!rest_.empty()) {
            if (AtUtf8Blank()) {
                Skip(3);
            } else if (IsBlank(rest_.front())) {
                Skip(1);
            } else {
                return;
            }
        }
    }

    void SkipText() {
        for (SkipPlainUntil('<'); !rest_.empty() && rest_.front() != '<'; SkipPlainUntil('<')) {
            SkipCharacter();
        }
    }

    // The first declaration outside every element settles the encoding for the rest of the text.
    void SettleEncoding(bool isUtf8) {
        if (!encodingSettled_) {
            outline_.isUtf8 = isUtf8;
            encodingSettled_ = true;
        }
    }

    void ScanMarkup() {
        if (open_ > 0 && StartsWith("</")) {
            SkipPast(">");
            --open_;
        } else if (StartsWithAnyCase("<?xml")) {
            ScanDeclaration();
        } else if (StartsWith("<!--")) {
            Skip(4);
            SkipPast("-->");
        } else if (StartsWith("<![CDATA[")) {
            Skip(9);
            SkipPast("]]>");
        } else if (rest_.size() > 1 && BeginsName(rest_[1])) {
            Skip(1);
            ScanStartTag();
        } else {
            SkipPast(">");
        }
    }

    void ScanDeclaration() {
        ValueStart encoding;
        Skip(5);
        while (!rest_.empty() && rest_.front() != '>') {
            SkipBlanks();
            if (StartsWithAnyCase("encoding")) {
                encoding = ScanAttribute();
            } else if (StartsWithAnyCase("version") || StartsWithAnyCase("standalone")) {
                ScanAttribute();
            } else {
                while (!rest_.empty() && rest_.front() != '>' && !IsBlank(rest_.front())) {
                    Skip(1);
                }
            }
        }
        Skip(1);
        if (open_ == 0) {
            SettleEncoding(encoding.NamesUtf8());
        }
    }

    // Stands behind "<". Leaves the element open unless the tag closes it itself.
    void ScanStartTag() {
        ++open_;
        outline_.depth = std::max(outline_.depth, open_);
        SkipBlanks();  // those of UTF-8, which also look like the begin of a name
        if (rest_.empty() || !BeginsName(rest_.front())) {
            rest_ = {};
            return;
        }
        SkipName();
        ScanAttributesAndEnd();
    }

    void ScanAttributesAndEnd() {
        for (std::size_t count = 1; !rest_.empty(); ++count) {
            SkipBlanks();
            if (rest_.empty()) {
                return;
            }
            if (rest_.front() == '>') {
                Skip(1);
                return;
            }
            if (rest_.front() == '/') {
                Skip(2);
                --open_;
                return;
            }
            if (!BeginsName(rest_.front())) {
                rest_ = {};  // neither an attribute nor an end: TinyXML gives up
                return;
            }
            ScanAttribute();
            outline_.attributes = std::max(outline_.attributes, count);
        }
    }

    void SkipName() {
        while (!rest_.empty() && ContinuesName(rest_.front())) {
            Skip(1);
        }
    }

    // Stands at the attribute's name; returns the value. A text that is no attribute ends the scan.
    ValueStart ScanAttribute() {
        SkipName();
        SkipBlanks();
        if (rest_.empty() || rest_.front() != '=') {
            rest_ = {};
            return {};
        }
        Skip(1);
        SkipBlanks();
        if (rest_.empty()) {
            return {};
        }
        const char quote = rest_.front();
        return quote == '"' || quote == '\'' ? ScanQuoted(quote) : ScanBareValue();
    }

    ValueStart ScanQuoted(char quote) {
        ValueStart value;
        Skip(1);
        value.Append(SkipPlainUntil(quote));
        while (!rest_.empty() && rest_.front() != quote) {
            const std::string_view before = rest_;
            SkipCharacter();
            value.AppendDecoded(before.substr(0, before.size() - rest_.size()));
            value.Append(SkipPlainUntil(quote));
        }
        Skip(1);
        return value;
    }

    ValueStart ScanBareValue() {
        ValueStart value;
        while (!rest_.empty() && !IsBlank(rest_.front()) && rest_.front() != '/' &&
               rest_.front() != '>') {
            if (rest_.front() == '"' || rest_.front() == '\'') {
                rest_ = {};  // TinyXML takes it for an end without a begin and gives up
                return value;
            }
            value.Append(rest_.front());
            Skip(1);
        }
        return value;
    }

    const std::string_view text_;
    std::string_view rest_;
    std::size_t open_ = 0;  // elements that are open
    bool encodingSettled_ = false;
    XmlOutline outline_;
};

}  // namespace

XmlOutline OutlineXml(std::string_view text, std::size_t enough) {
    return Scanner(text).Scan(enough);
}

bool EndsInsideCharacter(std::string_view text) {
    const std::string_view read = text.substr(0, text.find('\0'));
    constexpr std::size_t longestCharacter = 4;
    for (std::size_t left = 1; left < longestCharacter && left <= read.size(); ++left) {
        if (TinyXmlCharacterLength(read[read.size() - left]) > left) {
            return true;
        }
    }
    return false;
}

}  // namespace kennly
