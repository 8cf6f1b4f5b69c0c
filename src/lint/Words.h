#pragma once

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <string_view>

namespace kennly {

/// Whether `word` is one of `words`. Any thread may call it.
inline bool IsAmong(std::string_view word, std::initializer_list<std::string_view> words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

/// Whether `c` is blank for the daemon, as isspace tells: line ends are, too. Any thread may call
/// it.
inline bool IsBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

}  // namespace kennly
