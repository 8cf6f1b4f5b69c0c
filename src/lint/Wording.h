#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kennly {

/// `text` in double quotes, on one line, and cut after some sixty bytes. Any thread may call it.
std::string Quoted(std::string_view text);

/// A number of things, such as "1 job" or "2 jobs". Any thread may call it.
std::string Counted(std::size_t number, const std::string& what);

}  // namespace kennly
