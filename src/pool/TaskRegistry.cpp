#include "pool/TaskRegistry.h"

#include "sync/SharedSlot.h"

namespace kennly {

bool TaskRegistry::Register(const std::string& jobName) {
    AutoLock lock(&lock_);
    if (!names_.emplace(jobName, false).second) {
        return false;
    }
    // Only now, so that a failed insertion leaves nobody waiting for a name that is not there.
    if (names_.size() == 1) {
        emptyEvent_.Reset();
    }
    return true;
}

void TaskRegistry::Unregister(const std::string& jobName) noexcept {
    AutoLock lock(&lock_);
    names_.erase(jobName);
    if (names_.empty()) {
        emptyEvent_.Set();
    }
}

void TaskRegistry::Clear() {
    AutoLock lock(&lock_);
    names_.clear();
}

namespace {

using RegistrySlot = SharedSlot<TaskRegistry>;

RegistrySlot& JobSlot() {
    static RegistrySlot& slot = RegistrySlot::NewForEver();
    return slot;
}

RegistrySlot& WatchSlot() {
    static RegistrySlot& slot = RegistrySlot::NewForEver();
    return slot;
}

RegistrySlot& ActionSlot() {
    static RegistrySlot& slot = RegistrySlot::NewForEver();
    return slot;
}

// Gives the process its registries for as long as static objects live; a task that still runs then
// holds its own.
struct Registries {
    Registries() {
        JobSlot().Put(std::make_shared<TaskRegistry>());
        WatchSlot().Put(std::make_shared<TaskRegistry>());
        ActionSlot().Put(std::make_shared<TaskRegistry>());
    }
    ~Registries() {
        ActionSlot().Put(nullptr);
        WatchSlot().Put(nullptr);
        JobSlot().Put(nullptr);
    }
    Registries(const Registries&) = delete;
    Registries& operator=(const Registries&) = delete;
};

const Registries registries;

}  // namespace

std::shared_ptr<TaskRegistry> JobRegistry() {
    return JobSlot().Hold();
}

std::shared_ptr<TaskRegistry> WatchRegistry() {
    return WatchSlot().Hold();
}

std::shared_ptr<TaskRegistry> ActionRegistry() {
    return ActionSlot().Hold();
}

}  // namespace kennly
