#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

#include "main/Log.h"
#include "main/ProcessState.h"
#include "support/RecordedLog.h"
#include "support/TemporaryDirectory.h"

namespace kennly::test {

inline const std::string ValidCheck =
    "<check type='CheckCommandResult'><param value='probe'/></check>";
inline const std::string ValidRemedy = "<remedy type='Execute'><param value='restart'/></remedy>";

/// A job element that the loader keeps.
inline std::string ValidJob(const std::string& name) {
    return "<job name='" + name + "' enabled='true'>" + ValidCheck + ValidRemedy + "</job>";
}

/// Closes, at its end, all descriptors that were opened meanwhile: TinyXML leaves its file open
/// when an allocation fails in its midst, and a test that makes hundreds fail would run out of
/// them.
class ClosingDescriptors {
public:
    ClosingDescriptors() = default;
    ~ClosingDescriptors() {
        for (const int number : Open()) {
            if (before_.count(number) == 0) {
                close(number);
            }
        }
    }
    ClosingDescriptors(const ClosingDescriptors&) = delete;
    ClosingDescriptors& operator=(const ClosingDescriptors&) = delete;

private:
    static std::set<int> Open() {
        std::set<int> numbers;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            numbers.insert(std::stoi(entry.path().filename()));
        }
        return numbers;
    }

    const std::set<int> before_ = Open();
};

/// A process whose configuration file is one of the test's own, with all shared state as it is at
/// the start of a process and an empty log.
class ConfigTest : public ::testing::Test {
protected:
    ConfigTest() {
        closingDown = false;
        tidyingThreadPool = false;
        firstLoad = true;
        maxLoadErrors = 10;
        roleTag = "  ";
        UseConfigFile(directory.Path("kennly.xml"));
        ForgetLog();
    }
    ~ConfigTest() override {
        maxLoadErrors = 10;
        UseConfigFile("");
    }

    static void UseConfigFile(const std::string& path) {
        std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
    }

    /// Makes `text` the configuration file.
    void WriteConfig(const std::string& text) const { directory.Write("kennly.xml", text); }

    /// Makes `jobs` the children of the root of the configuration file.
    void WriteJobs(const std::string& jobs) const { WriteConfig("<config>" + jobs + "</config>"); }

    const TemporaryDirectory directory;
};

}  // namespace kennly::test
