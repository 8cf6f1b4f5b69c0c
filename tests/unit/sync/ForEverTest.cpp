#include "sync/ForEver.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "support/FailingAllocation.h"

namespace kennly::test {

namespace {

struct Counts {
    int made = 0;
    int destroyed = 0;
};

struct alignas(64) Counted {
    explicit Counted(Counts* of) : counts(of) { ++counts->made; }
    ~Counted() { ++counts->destroyed; }
    Counts* const counts;
    int value = 5;
};

}  // namespace

TEST(ForEverTest, MakesItsObjectOnceAndNeverDestroysIt) {
    Counts counts;
    {
        const ForEver<Counted> object(&counts);
        EXPECT_EQ((*object).value, 5);
        (*object).value = 6;
        EXPECT_EQ((*object).value, 6);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&*object) % alignof(Counted), 0);
    }
    EXPECT_EQ(counts.made, 1);
    EXPECT_EQ(counts.destroyed, 0);
}

TEST(ForEverTest, TakesNoMemoryFromTheHeap) {
    const FailingAllocation failing(0);
    const ForEver<int> object(5);
    EXPECT_FALSE(failing.HasFailed());
    EXPECT_EQ(*object, 5);
}

}  // namespace kennly::test
