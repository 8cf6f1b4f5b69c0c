#include "support/Stalls.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/Deadline.h"

namespace kennly::test {

/// Has this whole process stand still for half a second.
void StandStill() {
    constexpr useconds_t halfASecond = 500'000;
    const pid_t self = getpid();
    const pid_t stopper = fork();
    if (stopper == 0) {
        kill(self, SIGSTOP);
        usleep(halfASecond);
        kill(self, SIGCONT);
        _exit(0);
    }
    waitpid(stopper, nullptr, 0);
}

void SleepATurn() {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

TEST(StallsTest, AreThoseOfTheMachineAndNotThoseOfOneThread) {
    const Stalls stalls;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const double before = stalls.Seconds();

    StandStill();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));

    EXPECT_GE(stalls.Seconds() - before, 0.3);
}

TEST(DeadlineTest, PassesWhenItsTimeIsOver) {
    const auto begin = std::chrono::steady_clock::now();
    for (Deadline deadline(std::chrono::milliseconds(300)); !deadline.HasPassed();) {
        SleepATurn();
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
}

TEST(DeadlineTest, CountsATurnThatComesLateForNoMoreThanTheLongest) {
    Deadline deadline(std::chrono::milliseconds(300));
    StandStill();
    EXPECT_FALSE(deadline.HasPassed());
    StandStill();
    EXPECT_FALSE(deadline.HasPassed());
    StandStill();
    EXPECT_TRUE(deadline.HasPassed());
}

TEST(DeadlineTest, OfNoTimeHasPassedFromTheBeginning) {
    EXPECT_TRUE(Deadline(std::chrono::milliseconds(0)).HasPassed());
}

}  // namespace kennly::test
