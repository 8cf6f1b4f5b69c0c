#include "sync/Pause.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "main/ProcessState.h"

namespace {

// Stands in for a sleep: records what was asked for and returns what is left of it.
struct Sleeps {
    std::vector<unsigned> seconds;
    std::function<unsigned(std::size_t count)> left;
} sleeps;

}  // namespace

extern "C" {

unsigned __wrap_sleep(unsigned seconds);

unsigned __wrap_sleep(unsigned seconds) {
    sleeps.seconds.push_back(seconds);
    return sleeps.left ? sleeps.left(sleeps.seconds.size()) : 0;
}
}

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PauseTest : public ::testing::Test {
protected:
    PauseTest() {
        closingDown = false;
        sleeps = {};
    }
    ~PauseTest() override { closingDown = false; }
};

TEST_F(PauseTest, SleepsForTheSecondsGiven) {
    for (const unsigned seconds : {1U, 15U, 86400U, 4294967295U}) {
        SCOPED_TRACE(seconds);
        sleeps.seconds.clear();
        Pause(seconds);
        EXPECT_THAT(sleeps.seconds, ElementsAre(seconds));
    }
}

TEST_F(PauseTest, DoesNotSleepForZeroSeconds) {
    Pause(0);
    EXPECT_THAT(sleeps.seconds, IsEmpty());
}

TEST_F(PauseTest, SleepsForTheRestAfterAnInterruptionThatIsNoShutdown) {
    sleeps.left = [](std::size_t count) {
        return count == 1 ? 40U : count == 2 ? 7U : 0U;
    };

    Pause(60);

    EXPECT_THAT(sleeps.seconds, ElementsAre(60U, 40U, 7U));
}

TEST_F(PauseTest, EndsWhenAShutdownInterruptsIt) {
    sleeps.left = [](std::size_t count) {
        closingDown = true;
        return count < 5 ? 40U : 0U;
    };

    Pause(60);

    EXPECT_THAT(sleeps.seconds, ElementsAre(60U));
}

TEST_F(PauseTest, DoesNotSleepWhileTheProcessShutsDown) {
    closingDown = true;
    Pause(60);
    EXPECT_THAT(sleeps.seconds, IsEmpty());
}

}  // namespace kennly::test
