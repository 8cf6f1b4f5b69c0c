#include <algorithm>

#include "system/RecoveryFixture.h"

namespace kennly::test {

using BothHangTest = RecoveryFixture;

// One child at least has to go on: it replaces the other tree, which replaces its own in turn.
TEST_F(BothHangTest, IsOvercomeAsLongAsAChildGoesOn) {
    StartTrees({"-w"}, BothTrees);
    for (const std::vector<std::string>& victims :
         std::vector<std::vector<std::string>>{{"P ", "WC"}, {"P ", "WP"}, {"C ", "WP"}}) {
        SCOPED_TRACE(::testing::PrintToString(victims));
        const std::map<std::string, DaemonProcess> before = roles;
        for (const std::string& victim : victims) {
            SendTo(victim, SIGSTOP);
        }

        ASSERT_TRUE(WaitUntil(
            [&] {
                const auto isNew = [&](const std::string& of) {
                    const auto now = OnlyDaemonProcess(*sandbox, of);
                    return now && now->number != before.at(of).number;
                };
                return std::all_of(BothTrees.begin(), BothTrees.end(), isNew);
            },
            std::chrono::seconds(120)));
        ASSERT_TRUE(WaitForTrees(BothTrees));
        ASSERT_TRUE(WaitForBeatsOf(BothTrees));
    }
    StopTrees();
}

}  // namespace kennly::test
