#pragma once

#include <cstddef>
#include <string_view>

namespace kennly {

/// Whether `c` is a byte of UTF-8 that begins no character. Any thread may call it.
bool IsContinuation(char c);

/// How many bytes the first character of `text` has; 0 when it is empty or does not begin with one
/// in UTF-8. Any thread may call it.
std::size_t SizeOfCharacter(std::string_view text);

}  // namespace kennly
