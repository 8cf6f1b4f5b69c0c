#include "ctl/ChangeLock.h"

#include <memory>

#include "unit/status/OwnDataTest.h"

namespace kennly::test {

class ChangeLockTest : public OwnDataTest {};

TEST_F(ChangeLockTest, KeepsOthersWaiting) {
    auto first = std::make_unique<ChangeLock>();
    EXPECT_TRUE(first->IsHeld());
    EXPECT_FALSE(ChangeLock(std::chrono::seconds(0)).IsHeld());
    EXPECT_FALSE(ChangeLock(std::chrono::seconds(1)).IsHeld()) << "for ever is too long";
    first.reset();
    EXPECT_TRUE(ChangeLock(std::chrono::seconds(0)).IsHeld());
}

TEST_F(ChangeLockTest, HoldsNothingWhereThereIsNothingToChange) {
    std::filesystem::remove_all(Data() / "config");
    EXPECT_FALSE(ChangeLock().IsHeld());
}

}  // namespace kennly::test
