#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "pool/TaskRegistry.h"

namespace kennly::bench {

/// The floor of a registry: a std::map under a std::mutex.
class LockedMap {
public:
    /// Returns whether the name was not there.
    bool Register(const std::string& name) {
        const std::lock_guard<std::mutex> held(lock_);
        return names_.emplace(name, false).second;
    }
    /// Takes a name out, if it is there.
    void Unregister(const std::string& name) {
        const std::lock_guard<std::mutex> held(lock_);
        names_.erase(name);
    }

private:
    std::mutex lock_;
    std::map<std::string, bool> names_;
};

/// A registry in which so many names stand, and one more that goes in and out.
template <typename Registry>
class InAndOut {
public:
    explicit InAndOut(std::int64_t names)
        : name_("service-" + std::to_string(names / 2) + "-more") {
        for (std::int64_t i = 0; i < names; ++i) {
            registry_.Register("service-" + std::to_string(i));
        }
    }

    /// Returns whether it was let in.
    bool Once() {
        const bool entered = registry_.Register(name_);
        registry_.Unregister(name_);
        return entered;
    }

private:
    Registry registry_;
    const std::string name_;
};

}  // namespace kennly::bench
