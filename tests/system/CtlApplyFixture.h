#pragma once

#include <algorithm>

#include "system/CtlFixture.h"

namespace kennly::test {

/// "kennlyctl apply" beside a live configuration whose one job is called "first".
class CtlApplyFixture : public CtlThreadsTest {
protected:
    void SetUp() override {
        CtlThreadsTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_TRUE(sandbox);
        Configure(WithJob("first"));
    }

    /// A configuration with one job, of which a line in the log tells that it has been loaded.
    static std::string WithJob(const std::string& name) {
        return Configuration(Marker(name + "-loaded") + Healthy(name));
    }
    /// Makes a file elsewhere. Returns its path.
    std::string Draft(const std::string& content, const std::string& name = "draft.xml") const {
        EXPECT_TRUE(sandbox->WriteFile(PathOf(name), content));
        return PathOf(name);
    }
    void StartWithFirst() {
        StartTrees({}, MainTree);
        ASSERT_TRUE(WaitForTraces("first", 2));
    }
    /// The names in the directory of the live file.
    std::vector<std::string> NamesInDirectory() const {
        std::vector<std::string> names;
        for (const auto& file :
             std::filesystem::directory_iterator(sandbox->PathInside(DataDirectory + "/config"))) {
            names.push_back(file.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    void ExpectNothingBesideTheLiveFile() const {
        EXPECT_EQ(NamesInDirectory(), (std::vector<std::string>{"filetimes", "kennly.xml"}));
    }
    std::int64_t SecondOf(const std::string& path) const { return TimeOf(path) / 1'000'000'000; }
};

}  // namespace kennly::test
