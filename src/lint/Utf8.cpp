#include "lint/Utf8.h"

#include <array>

namespace kennly {

namespace {

unsigned ByteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// 0 for a byte that no character begins with.
std::size_t SizeByFirstByte(unsigned byte) {
    if (byte < 0x80) {
        return 1;
    }
    if (byte < 0xC0) {
        return 0;
    }
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : byte < 0xF8 ? 4 : 0;
}

}  // namespace

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::size_t SizeOfCharacter(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const unsigned first = ByteAt(text, 0);
    const std::size_t size = SizeByFirstByte(first);
    if (size <= 1 || text.size() < size) {
        return size == 1 ? 1 : 0;
    }
    unsigned code = first & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if (!IsContinuation(text[i])) {
            return 0;
        }
        code = code << 6 | (ByteAt(text, i) & 0x3FU);
    }
    constexpr std::array<unsigned, 5> smallest = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return code >= smallest[size] && code <= 0x10FFFF && !isSurrogate ? size : 0;
}

}  // namespace kennly
