#include "sync/ForEver.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "support/FailingAllocation.h"

namespace kennly::test {

namespace {

int made = 0;
int destroyed = 0;

struct alignas(64) Counted {
    Counted() { ++made; }
    ~Counted() { ++destroyed; }
    int value = 5;
};

}  // namespace

TEST(ForEverTest, MakesItsObjectOnceAndNeverDestroysIt) {
    {
        const ForEver<Counted> object;
        EXPECT_EQ((*object).value, 5);
        (*object).value = 6;
        EXPECT_EQ((*object).value, 6);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&*object) % alignof(Counted), 0);
    }
    EXPECT_EQ(made, 1);
    EXPECT_EQ(destroyed, 0);
}

TEST(ForEverTest, TakesNoMemoryFromTheHeap) {
    const FailingAllocation failing(0);
    const ForEver<int> object(5);
    EXPECT_FALSE(failing.HasFailed());
    EXPECT_EQ(*object, 5);
}

}  // namespace kennly::test
