#pragma once

#include "sync/ReentrantLock.h"

namespace kennly {

/// The lock of the pool, its workers, its jobs and the task registries. Taken through AutoLock.
using CriticalSection = ReentrantLock<struct CriticalSectionPurpose>;

}  // namespace kennly
