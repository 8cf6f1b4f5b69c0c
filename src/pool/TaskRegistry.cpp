#include "pool/TaskRegistry.h"

#include "sync/ForEver.h"
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

// A registry of the process and the slot by which it is reached. Both outlive all who use them.
class ProcessRegistry {
public:
    void Open() { slot_.Put({std::shared_ptr<void>(), &registry_}); }
    void Close() { slot_.Put(nullptr); }
    std::shared_ptr<TaskRegistry> Hold() const { return slot_.Hold(); }

private:
    TaskRegistry registry_;
    SharedSlot<TaskRegistry> slot_;
};

ProcessRegistry& Jobs() {
    static const ForEver<ProcessRegistry> registry;
    return *registry;
}

ProcessRegistry& Checks() {
    static const ForEver<ProcessRegistry> registry;
    return *registry;
}

ProcessRegistry& Remedies() {
    static const ForEver<ProcessRegistry> registry;
    return *registry;
}

// Gives the process its registries for as long as static objects live; a task that still runs then
// goes on with the one that it has.
struct Registries {
    Registries() {
        Jobs().Open();
        Checks().Open();
        Remedies().Open();
    }
    ~Registries() {
        Remedies().Close();
        Checks().Close();
        Jobs().Close();
    }
    Registries(const Registries&) = delete;
    Registries& operator=(const Registries&) = delete;
};

const Registries registries;

}  // namespace

std::shared_ptr<TaskRegistry> JobRegistry() {
    return Jobs().Hold();
}

std::shared_ptr<TaskRegistry> WatchRegistry() {
    return Checks().Hold();
}

std::shared_ptr<TaskRegistry> ActionRegistry() {
    return Remedies().Hold();
}

}  // namespace kennly
