#pragma once

#include <cstdint>
#include <memory>

#include "action/DogAction.h"

namespace kennly {

/// A new remedy of the kind that `type` stands for, its fields at their defaults.
///
/// RemedyTypeExecute and RemedyTypeExecuteAlways give a DogExecuteAction, every other code a plain
/// DogAction, which never does anything. Throws std::bad_alloc. Any thread may call it.
std::unique_ptr<DogAction> CreateAction(std::int32_t type);

}  // namespace kennly
