#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace kennly::test {

/// What the record of a file's time holds: the 4 bytes of `time` as they lie in memory.
inline std::string RecordOf(std::int32_t time) {
    std::string bytes(sizeof(time), '\0');
    std::memcpy(bytes.data(), &time, sizeof(time));
    return bytes;
}

}  // namespace kennly::test
