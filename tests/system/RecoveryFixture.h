#pragma once

#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "system/TreeFixture.h"

namespace kennly::test {

/// The sample configurations at work: two trees, each with checks of the other's heartbeats. Only
/// paths, services and times are put in their places.
class RecoveryFixture : public BackgroundTest {
protected:
    void SetUp() override {
        BackgroundTest::SetUp();
        ASSERT_TRUE(sandbox);
        Configure(Adapted("kennly.xml", {{"timeout 10 systemctl is-active --quiet ssh", "true"},
                                         {"timeout 10 systemctl is-active --quiet cron", "true"},
                                         {"systemctl restart ssh", "true"},
                                         {"systemctl restart cron", "true"},
                                         {"delay=\"20\"", "delay=\"1\""}}));
        Configure(Adapted("dogdog.xml", {}), WatcherConfiguration);
    }

    /// A sample with other times and the paths of this build.
    static std::string Adapted(const std::string& name,
                               std::vector<std::pair<std::string, std::string>> changes) {
        changes.insert(changes.end(),
                       {{"/usr/sbin/kennly", KENNLY_PROGRAM},
                        {"/usr/libexec/kennly/restart-tree", KENNLY_SAMPLES "/restart-tree"},
                        {"/run/kennly.maintenance", DataDirectory + "/maintenance"},
                        {"delay=\"10\"", "delay=\"1\""},
                        {"value=\"60\"", "value=\"10\""}});
        std::ifstream file(KENNLY_SAMPLES "/" + name);
        std::string text{std::istreambuf_iterator<char>(file), {}};
        for (const auto& [from, to] : changes) {
            std::size_t at = text.find(from);
            EXPECT_NE(at, std::string::npos) << from;
            for (; at != std::string::npos; at = text.find(from, at + to.size())) {
                text.replace(at, from.size(), to);
            }
        }
        return text;
    }

    static bool IsOfWatcher(const std::string& tag) { return tag[0] == 'W'; }

    /// Hurts a process with a signal and waits until its tree has been replaced: all four run and
    /// have beaten since, and the other tree is what it was.
    void ExpectTreeReplacedAfter(int signal, const std::string& victim) {
        const std::map<std::string, DaemonProcess> before = roles;
        const std::int64_t time = TimeOf(HeartbeatOf.at(IsOfWatcher(victim) ? "P " : "WP"));
        SendTo(victim, signal);
        ExpectTreeReplaced(before, victim, time);
    }

    void ExpectTreeReplaced(const std::map<std::string, DaemonProcess>& before,
                            const std::string& victim, std::int64_t time) {
        const std::string parent = IsOfWatcher(victim) ? "WP" : "P ";
        ASSERT_TRUE(WaitUntil(
            [&] {
                const auto now = OnlyDaemonProcess(*sandbox, parent);
                return now && now->number != before.at(parent).number;
            },
            std::chrono::seconds(60)));
        ASSERT_TRUE(WaitForTrees(BothTrees));
        for (const std::string& of : BothTrees) {
            SCOPED_TRACE(of);
            EXPECT_EQ(Role(of).number != before.at(of).number,
                      IsOfWatcher(of) == IsOfWatcher(victim));
            EXPECT_TRUE(WaitForHeartbeat(time, HeartbeatOf.at(of)));
        }
    }
};

}  // namespace kennly::test
