#include "pool/TaskRegistry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <string>
#include <type_traits>

#include "support/FailingAllocation.h"

namespace {

// Leaves the process from its very last exit handler, when all static objects are gone.
constexpr int NoRegistriesLeft = 42;
bool asksAtExit = false;

void AskAtExit() {
    if (!asksAtExit) {
        return;
    }
    const bool gone =
        !kennly::JobRegistry() && !kennly::WatchRegistry() && !kennly::ActionRegistry();
    _exit(gone ? NoRegistriesLeft : EXIT_FAILURE);
}

// Registered before any static object is made, so that it runs after all of them.
__attribute__((constructor(101))) void RegisterExitHandler() {
    std::atexit(AskAtExit);
}

}  // namespace

namespace kennly::test {

static_assert(std::is_nothrow_destructible_v<TaskRegistry>);

class TaskRegistryTest : public ::testing::Test {
protected:
    TaskRegistry registry;
};

TEST_F(TaskRegistryTest, IsEmptyUntilTheFirstJobIsEntered) {
    EXPECT_TRUE(registry.IsEmpty());
    EXPECT_TRUE(registry.Register("web"));
    EXPECT_FALSE(registry.IsEmpty());
}

TEST_F(TaskRegistryTest, RefusesAJobThatIsHereAndChangesNothing) {
    EXPECT_TRUE(registry.Register("web"));
    EXPECT_FALSE(registry.Register("web"));
    EXPECT_TRUE(registry.Register("Web"));
    EXPECT_TRUE(registry.Register(""));
    EXPECT_FALSE(registry.Register(""));

    registry.Unregister("web");  // once is enough

    EXPECT_TRUE(registry.Register("web"));
}

TEST_F(TaskRegistryTest, IsEmptyAgainWhenTheLastJobHasBeenTakenOut) {
    registry.Register("web");
    registry.Register("mail");

    registry.Unregister("web");
    EXPECT_FALSE(registry.IsEmpty());
    registry.Unregister("unknown");
    EXPECT_FALSE(registry.IsEmpty());
    registry.Unregister("mail");

    EXPECT_TRUE(registry.IsEmpty());
}

TEST_F(TaskRegistryTest, StaysEmptyWhenAnUnknownJobIsTakenOut) {
    registry.Unregister("unknown");
    EXPECT_TRUE(registry.IsEmpty());
}

TEST_F(TaskRegistryTest, ClearTakesAllJobsOutWithoutBecomingEmptyForThoseWhoWait) {
    registry.Register("web");
    registry.Register("mail");

    registry.Clear();

    EXPECT_FALSE(registry.IsEmpty());
    EXPECT_TRUE(registry.Register("web"));
    EXPECT_FALSE(registry.IsEmpty());
    registry.Unregister("web");
    EXPECT_TRUE(registry.IsEmpty());
}

TEST_F(TaskRegistryTest, ClearLeavesAnEmptyRegistryEmpty) {
    registry.Clear();
    EXPECT_TRUE(registry.IsEmpty());
}

TEST_F(TaskRegistryTest, BecomesEmptyWhenATaskFromBeforeClearLeavesIt) {
    registry.Register("web");
    registry.Clear();

    registry.Unregister("web");

    EXPECT_TRUE(registry.IsEmpty());
}

TEST_F(TaskRegistryTest, IsAsItWasWhenEnteringAJobRunsOutOfMemory) {
    const std::string name(100, 'x');
    std::size_t failures = 0;
    for (std::size_t index = 0;; ++index) {
        SCOPED_TRACE(index);
        bool entered = false;
        {
            const FailingAllocation failing(index);
            try {
                entered = registry.Register(name);
            } catch (const std::bad_alloc&) {
                ++failures;
            }
        }
        EXPECT_EQ(registry.IsEmpty(), !entered);
        if (entered) {
            break;
        }
    }
    EXPECT_GE(failures, 1U);
}

TEST_F(TaskRegistryTest, KeepsACopyOfTheName) {
    std::string name = "web";
    registry.Register(name);
    name = "mail";
    EXPECT_FALSE(registry.Register("web"));
}

TEST(TaskRegistriesTest, AreThreeAndAlwaysTheSame) {
    EXPECT_NE(JobRegistry(), nullptr);
    EXPECT_NE(WatchRegistry(), nullptr);
    EXPECT_NE(ActionRegistry(), nullptr);
    EXPECT_NE(JobRegistry(), WatchRegistry());
    EXPECT_NE(JobRegistry(), ActionRegistry());
    EXPECT_NE(WatchRegistry(), ActionRegistry());
    EXPECT_EQ(JobRegistry(), JobRegistry());
    EXPECT_EQ(WatchRegistry(), WatchRegistry());
    EXPECT_EQ(ActionRegistry(), ActionRegistry());
}

TEST(TaskRegistriesTest, AreGoneWhenTheProcessHasDestroyedItsStaticObjects) {
    const auto exitAndAsk = [] {
        asksAtExit = true;
        std::exit(EXIT_SUCCESS);
    };
    EXPECT_EXIT(exitAndAsk(), ::testing::ExitedWithCode(NoRegistriesLeft), "");
}

}  // namespace kennly::test
