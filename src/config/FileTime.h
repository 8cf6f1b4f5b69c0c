#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace kennly {

// A file's time is kept, compared and recorded in 32 bits: the low ones of the 64 in which the
// clock and the file system count, whatever the word size. All that depends on the difference is
// here.

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

/// The age, at the moment `now`, of a file with the time `fileTime` from GetFileTime; in seconds,
/// negative for a time in the future. Any thread may call it.
///
/// It is right on both sides of January 2038, where 32-bit times change their sign, and across it.
/// An age of more than 68 years counts as one of the future.
///
/// Not in the source, so that what stands in for GetFileTime leaves it as it is.
inline std::int32_t AgeInSeconds(std::int32_t fileTime, std::time_t now) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(now) -
                                     static_cast<std::uint32_t>(fileTime));
}

}  // namespace kennly
