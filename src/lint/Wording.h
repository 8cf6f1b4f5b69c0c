#pragma once

#include <string>
#include <string_view>

namespace kennly {

/// `text` in double quotes, on one line, and cut after some sixty bytes. Any thread may call it.
std::string Quoted(std::string_view text);

}  // namespace kennly
