#include "sync/SharedSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "sync/ForEver.h"

namespace kennly::test {

namespace {

SharedSlot<int>& TheSlot() {
    static const ForEver<SharedSlot<int>> slot;
    return *slot;
}

}  // namespace

class SharedSlotTest : public ::testing::Test {
protected:
    ~SharedSlotTest() override { slot.Put(nullptr); }

    SharedSlot<int>& slot = TheSlot();
};

TEST_F(SharedSlotTest, IsEmptyUntilAnObjectIsPutIntoIt) {
    EXPECT_EQ(slot.Hold(), nullptr);

    const auto object = std::make_shared<int>(5);
    slot.Put(object);

    EXPECT_EQ(slot.Hold(), object);
}

TEST_F(SharedSlotTest, KeepsItsObjectAlive) {
    slot.Put(std::make_shared<int>(5));
    EXPECT_EQ(*slot.Hold(), 5);
}

TEST_F(SharedSlotTest, LeavesAReplacedObjectToItsOtherHolders) {
    slot.Put(std::make_shared<int>(5));
    std::shared_ptr<int> held = slot.Hold();
    const std::weak_ptr<int> first = held;

    slot.Put(std::make_shared<int>(6));

    EXPECT_EQ(*held, 5);
    EXPECT_EQ(*slot.Hold(), 6);
    held.reset();
    EXPECT_TRUE(first.expired());
}

TEST_F(SharedSlotTest, IsEmptiedByNullAndDestroysWhatNobodyElseHolds) {
    slot.Put(std::make_shared<int>(5));
    const std::weak_ptr<int> object = slot.Hold();

    slot.Put(nullptr);

    EXPECT_EQ(slot.Hold(), nullptr);
    EXPECT_TRUE(object.expired());
}

TEST_F(SharedSlotTest, GivesOutWholeObjectsWhileAnotherThreadReplacesThem) {
    constexpr int rounds = 5000;
    std::atomic<bool> done{false};
    int wrong = 0;
    int seen = 0;
    slot.Put(std::make_shared<int>(0));

    std::thread replacer([this, &done] {
        for (int i = 1; i <= rounds; ++i) {
            slot.Put(i % 3 == 0 ? nullptr : std::make_shared<int>(i));
        }
        done = true;
    });
    while (!done || seen == 0) {
        const std::shared_ptr<int> object = slot.Hold();
        wrong += object && (*object < 0 || *object > rounds) ? 1 : 0;
        ++seen;
    }
    replacer.join();

    EXPECT_EQ(wrong, 0);
}

}  // namespace kennly::test
