#pragma once

#include <optional>
#include <string>

namespace kennly {

/// The bytes of the file at `path`; nothing, with errno set, when it cannot be read to its end or
/// is no regular file. Any thread may call it.
std::optional<std::string> ReadFile(const std::string& path);

/// The same, and none when it cannot be read. Throws std::bad_alloc.
std::string ContentOf(const std::string& path);

}  // namespace kennly
