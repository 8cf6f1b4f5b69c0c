#pragma once

#include <cstdint>
#include <string>

namespace kennly {

/// "No modification time is known": 0xBAD1BAD1, a moment in 1933 that no real file bears (nor,
/// before it comes, the second of April 2069 whose low 32 bits are the same).
inline constexpr std::int32_t NoFileTime = -1160660271;
static_assert(static_cast<std::uint32_t>(NoFileTime) == 0xBAD1BAD1U);

/// Reads the modification time of the file at `path`, following symbolic links.
///
/// `seconds` receives whole seconds since the epoch, reduced to 32 bits, or 0 on failure. Returns
/// false when the file cannot be examined (missing, no permission) and logs nothing: only the
/// caller knows whether that is an error. Any thread may call it.
bool GetFileTime(const std::string& path, std::int32_t& seconds);

}  // namespace kennly
