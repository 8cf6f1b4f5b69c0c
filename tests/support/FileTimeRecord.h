#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace kennly::test {

/// The first second, in January 2038, that is beyond a signed number of 32 bits.
inline constexpr std::int64_t TwoTo31 = std::int64_t{1} << 31;
/// The first second, in February 2106, that is beyond an unsigned one.
inline constexpr std::int64_t TwoTo32 = std::int64_t{1} << 32;

/// What the record of a file's time holds: the 4 bytes of `time` as they lie in memory.
inline std::string RecordOf(std::int32_t time) {
    std::string bytes(sizeof(time), '\0');
    std::memcpy(bytes.data(), &time, sizeof(time));
    return bytes;
}

}  // namespace kennly::test
