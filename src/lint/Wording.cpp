#include "lint/Wording.h"

#include "lint/Utf8.h"

namespace kennly {

namespace {

constexpr std::size_t LongestQuote = 60;
constexpr std::size_t LongestCharacter = 4;

bool IsControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < ' ' || byte == 0x7F;
}

}  // namespace

std::string Quoted(std::string_view text) {
    std::size_t size = text.size();
    if (size > LongestQuote) {
        size = LongestQuote;
        while (size > LongestQuote - LongestCharacter && IsContinuation(text[size])) {
            --size;
        }
    }
    std::string quoted = "\"";
    for (const char c : text.substr(0, size)) {
        quoted += IsControl(c) ? ' ' : c;
    }
    return quoted + (size < text.size() ? "...\"" : "\"");
}

std::string Counted(std::size_t number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

}  // namespace kennly
