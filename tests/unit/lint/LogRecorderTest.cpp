#include "lint/LogRecorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "main/Log.h"

namespace kennly::test {

class LogRecorderTest : public ::testing::Test {
protected:
    LogRecorderTest() { TakeDaemonLines(); }
};

TEST_F(LogRecorderTest, JoinsTheTextsOfALineByBlanks) {
    LogError("a");
    LogError("a", "b");
    LogError("a", "b", "c");
    LogError("a", "b", "c", "d");
    LogDebug("e");
    LogDebug("e", "f");
    LogDebug("e", "f", "g");
    LogDebug("e", "f", "g", "h");

    const std::vector<DaemonLine> lines = TakeDaemonLines();
    const std::vector<std::string> texts = {"a", "a b", "a b c", "a b c d",
                                            "e", "e f", "e f g", "e f g h"};
    ASSERT_EQ(lines.size(), texts.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].text, texts[i]);
        EXPECT_EQ(lines[i].isError, i < 4);
    }
}

TEST_F(LogRecorderTest, TakesTextsAsTheyStand) {
    const std::string longText(10000, 'x');
    LogError("%s %n", "", "\n");
    LogDebug(longText.c_str());

    const std::vector<DaemonLine> lines = TakeDaemonLines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "%s %n  \n");
    EXPECT_EQ(lines[1].text, longText);
}

TEST_F(LogRecorderTest, GivesEachLineOnce) {
    LogError("first");
    EXPECT_EQ(TakeDaemonLines().size(), 1U);
    EXPECT_TRUE(TakeDaemonLines().empty());
    LogError("second");
    const std::vector<DaemonLine> lines = TakeDaemonLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, "second");
}

TEST_F(LogRecorderTest, LosesNoLineOfManyThreads) {
    constexpr std::size_t threadCount = 8;
    constexpr std::size_t lineCount = 500;
    std::atomic<std::size_t> running{threadCount};
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < threadCount; ++number) {
        threads.emplace_back([number, &running] {
            const std::string name = std::to_string(number);
            for (std::size_t i = 0; i < lineCount; ++i) {
                const std::string line = std::to_string(i);
                if (number % 2 == 0) {
                    LogError(name.c_str(), line.c_str());
                } else {
                    LogDebug(name.c_str(), line.c_str());
                }
            }
            --running;
        });
    }
    std::vector<std::size_t> seen(threadCount);
    const auto takeAll = [&seen] {
        for (const DaemonLine& line : TakeDaemonLines()) {
            const std::size_t number = std::stoul(line.text);
            EXPECT_EQ(line.text, std::to_string(number) + " " + std::to_string(seen.at(number)));
            EXPECT_EQ(line.isError, number % 2 == 0);
            ++seen.at(number);
        }
    };
    while (running > 0) {
        takeAll();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    takeAll();
    EXPECT_EQ(seen, std::vector<std::size_t>(threadCount, lineCount));
}

}  // namespace kennly::test
