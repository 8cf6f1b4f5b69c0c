#pragma once

#include <cstdint>

namespace kennly {

/// Reads a number from the text of an attribute: leading white space, a sign, decimal digits.
///
/// Reading stops at the first character that is no digit; text without digits gives 0. A number too
/// large for 32 bits becomes the nearest limit, on 32-bit and 64-bit systems alike. A malformed
/// number is never reported. `text` must not be null. Any thread may call it.
std::int32_t NumberFromText(const char* text);

}  // namespace kennly
