#pragma once

#include <cstdint>
#include <memory>

#include "watch/DogWatch.h"

namespace kennly {

/// A new check of the kind that `type` stands for, its fields at their defaults.
///
/// Each of the CheckType codes gives its own class, every other code a plain DogWatch, which never
/// reaches a verdict. Throws std::bad_alloc. Any thread may call it.
std::unique_ptr<DogWatch> CreateWatch(std::int32_t type);

}  // namespace kennly
