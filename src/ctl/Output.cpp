#include "ctl/Output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "lint/Utf8.h"

namespace kennly {

namespace {

const char* CodeOf(Colour colour) {
    switch (colour) {
        case Colour::Red:
            return "31";
        case Colour::Yellow:
            return "33";
        case Colour::Green:
            return "32";
        case Colour::Blue:
            return "34";
        default:
            return "1";
    }
}

bool IsTerminal() {
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 &&
           (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

bool WantsColours() {
    const char* const none = std::getenv("NO_COLOR");
    return none == nullptr || *none == '\0';
}

unsigned ByteOf(char c) {
    return static_cast<unsigned char>(c);
}

// Terminals obey those from U+0080 to U+009F as well.
bool IsControl(std::string_view character) {
    if (character.size() == 1) {
        return ByteOf(character[0]) < ' ' || ByteOf(character[0]) == 0x7F;
    }
    return ByteOf(character[0]) == 0xC2 && ByteOf(character[1]) < 0xA0;
}

}  // namespace

Output StandardOutput() {
    const bool isTerminal = IsTerminal();
    return {std::cout, std::cerr, isTerminal && WantsColours(), isTerminal};
}

std::string Paint(const Output& output, Colour colour, std::string_view text) {
    if (!output.coloured) {
        return std::string(text);
    }
    return std::string("\033[") + CodeOf(colour) + "m" + std::string(text) + "\033[0m";
}

std::string Printable(std::string_view text) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string printable;
    while (!text.empty()) {
        const std::size_t size = SizeOfCharacter(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(size, 1));
        text.remove_prefix(bytes.size());
        if (size > 0 && !IsControl(bytes)) {
            printable += bytes;
            continue;
        }
        for (const char c : bytes) {
            const unsigned byte = ByteOf(c);
            printable.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 0xFU]);
        }
    }
    return printable;
}

}  // namespace kennly
