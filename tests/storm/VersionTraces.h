#pragma once

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "storm/Versions.h"
#include "support/Sandbox.h"
#include "support/SandboxPolling.h"

namespace kennly::test {

/// The traces that versions of a configuration leave in a sandbox, none for longer than needed.
class VersionTraces {
public:
    explicit VersionTraces(const Sandbox& sandbox) : place_(sandbox.PathInside(Traces)) {
        std::filesystem::create_directory(place_);
    }

    /// Makes the directory of a version that is about to be put in place.
    void Prepare(const Version& version) { std::filesystem::create_directory(PlaceOf(version)); }

    /// Forgets what a version has left so far.
    void Forget(const Version& version) { Empty(PlaceOf(version)); }

    bool WaitFor(const Version& version, const std::vector<std::string>& names,
                 std::chrono::seconds limit) const {
        return WaitUntil(
            [&] {
                const std::set<std::string> found = NamesIn(PlaceOf(version));
                return std::all_of(names.begin(), names.end(),
                                   [&](const auto& name) { return found.count(name) != 0; });
            },
            limit);
    }

    /// What a version has not left, in words.
    std::string Missing(const Version& version) const {
        const std::set<std::string> found = NamesIn(PlaceOf(version));
        std::string text = "missing of version " + std::to_string(version.number) + ":";
        for (const auto* const names : {&version.checks, &version.remedies}) {
            for (const std::string& name : *names) {
                text += found.count(name) == 0 ? " " + name : "";
            }
        }
        return text;
    }

    /// To be called whenever a version is in force: what has come from others since an earlier one
    /// was. Nothing may have, because whatever runs has its end waited for when a version is taken
    /// up; only a remedy may be late, for which nobody waits.
    std::vector<std::string> LateBut(const Version& inForce) {
        std::vector<std::string> late;
        for (const std::string& name : NamesIn(place_)) {
            if (name == std::to_string(inForce.number)) {
                continue;
            }
            if (retired_.insert(name).second) {
                Empty(place_ / name);
                continue;
            }
            for (const std::string& trace : NamesIn(place_ / name)) {
                if (trace.rfind("remedy-", 0) != 0) {
                    late.push_back("version " + name + ": " + trace);
                }
            }
            std::filesystem::remove_all(place_ / name);
            retired_.erase(name);
        }
        return late;
    }

private:
    static std::set<std::string> NamesIn(const std::filesystem::path& directory) {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            names.insert(entry.path().filename());
        }
        return names;
    }
    static void Empty(const std::filesystem::path& directory) {
        for (const std::string& name : NamesIn(directory)) {
            std::filesystem::remove(directory / name);
        }
    }
    std::filesystem::path PlaceOf(const Version& version) const {
        return place_ / std::to_string(version.number);
    }

    std::filesystem::path place_;
    std::set<std::string> retired_;  // the names of directories that have been emptied
};

}  // namespace kennly::test
