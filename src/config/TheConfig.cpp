#include "config/TheConfig.h"

#include <utility>

#include "sync/AutoLock.h"
#include "sync/ForEver.h"

namespace kennly {

DogConfig* theConfig = nullptr;

namespace {

// Held during each lookup and each change of the pointer, always before the configuration's own
// lock. Never destroyed, because pool threads may look jobs up while the process exits.
CriticalSection& LookupLock() {
    static const ForEver<CriticalSection> lock(true);
    return *lock;
}

DogConfig* ReplaceTheConfig(DogConfig* config) {
    AutoLock lock(&LookupLock());
    return std::exchange(theConfig, config);
}

}  // namespace

void CreateTheConfig() {
    delete ReplaceTheConfig(new DogConfig);
}

void DestroyTheConfig() noexcept {
    delete ReplaceTheConfig(nullptr);
}

JobHandle FindConfiguredJob(const std::string& name) {
    AutoLock lock(&LookupLock());
    return theConfig != nullptr ? theConfig->FindJob(name) : nullptr;
}

}  // namespace kennly
