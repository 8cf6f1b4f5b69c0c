#pragma once

#include "sync/ReentrantLock.h"

namespace kennly {

/// The lock of the configuration: like CriticalSection in all but type, so that neither can be
/// passed for the other.
using AppMutex = ReentrantLock<struct AppMutexPurpose>;

}  // namespace kennly
