#include "status/HeartbeatFile.h"

#include <optional>

#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace kennly::test {

inline double Now() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);  // time() may lag behind it
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST(HeartbeatFileTest, TellsTheAgeInFractionsOfASecond) {
    for (const std::time_t age : {0, 4, 1000, -60, -100'000}) {
        SCOPED_TRACE(age);
        const TemporaryDirectory directory;
        directory.Write("child", "");
        const std::time_t seconds = std::time(nullptr) - age;
        ASSERT_TRUE(directory.SetTime("child", seconds, 250'000'000));
        const double written = static_cast<double>(seconds) + 0.25;

        const double before = Now();
        const HeartbeatFile beat = LookAtHeartbeat(directory.Path("child"));
        const double after = Now();

        constexpr double rounding = 1e-5;  // of numbers as large as these
        EXPECT_EQ(beat.path, directory.Path("child"));
        EXPECT_TRUE(beat.exists);
        EXPECT_FALSE(beat.hidden);
        EXPECT_GE(beat.age, before - written - rounding);
        EXPECT_LE(beat.age, after - written + rounding);
    }
}

TEST(HeartbeatFileTest, KnowsItsLimitsExactly) {
    for (const double age : {StaleSeconds, 0.0, -StaleSeconds}) {
        EXPECT_TRUE((HeartbeatFile{"child", true, false, age}.IsFresh())) << age;
    }
    for (const double age : {StaleSeconds + 0.01, -StaleSeconds - 0.01}) {
        EXPECT_FALSE((HeartbeatFile{"child", true, false, age}.IsFresh())) << age;
    }
    EXPECT_FALSE((HeartbeatFile{"child", false, false, 0}.IsFresh()));
}

TEST(HeartbeatFileTest, TellsMissingFromHidden) {
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory.Path("closed"));
    directory.Write("closed/child", "");
    directory.Write("file", "");
    std::filesystem::permissions(directory.Path("closed"), std::filesystem::perms::none);
    std::filesystem::permissions(directory.Path(""), std::filesystem::perms::all);
    {
        const WithoutPrivileges anybody;
        const HeartbeatFile missing = LookAtHeartbeat(directory.Path("child"));
        EXPECT_FALSE(missing.exists || missing.hidden);
        const HeartbeatFile noDirectory = LookAtHeartbeat(directory.Path("file/child"));
        EXPECT_FALSE(noDirectory.exists || noDirectory.hidden);
        const HeartbeatFile hidden = LookAtHeartbeat(directory.Path("closed/child"));
        EXPECT_FALSE(hidden.exists);
        EXPECT_TRUE(hidden.hidden);
        EXPECT_FALSE(hidden.IsFresh());
    }
    std::filesystem::permissions(directory.Path("closed"), std::filesystem::perms::owner_all);
}

}  // namespace kennly::test
