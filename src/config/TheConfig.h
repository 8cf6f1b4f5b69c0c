#pragma once

#include <string>

#include "config/DogConfig.h"

namespace kennly {

/// The configuration of this process; null before the child loop and after its end. Only the main
/// thread uses the pointer itself, every other thread FindConfiguredJob.
extern DogConfig* theConfig;

/// Makes `theConfig` a new, empty configuration. Throws std::bad_alloc. Main thread only.
void CreateTheConfig();

/// Destroys `theConfig`, if there is one, once no lookup is in it any more. Lookups are short and
/// find nothing afterwards, so that other threads may go on asking. Main thread only.
void DestroyTheConfig() noexcept;

/// The job with this name in `theConfig`, or null, also when there is no configuration. The handle
/// is to be kept for one run at most. Any thread may call it, at any time until the process is
/// gone.
JobHandle FindConfiguredJob(const std::string& name);

}  // namespace kennly
