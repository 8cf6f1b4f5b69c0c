#include <random>
#include <thread>

#include "system/GrowingTree.h"
#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAreArray;

/// A SIGTERM that comes while the program starts. Each start has a sandbox of its own; they are all
/// begun before the first is looked at.
class EarlySignalTest : public BackgroundTest {
protected:
    struct Start {
        std::unique_ptr<Sandbox> sandbox;
        std::unique_ptr<SandboxProcess> daemon;
        std::string number;  // of the process that has been asked to end
    };
    static constexpr int Starts = 40;

    using Found = GrowingTree::Found;
    using Search = Found (GrowingTree::*)() const;

    void Begin(const std::vector<std::string>& options, const StartOptions& start = {}) {
        SetUp();
        Configure(Configuration(""), MainConfiguration);
        Configure(Configuration(""), WatcherConfiguration);
        StartDaemon(options, start);
    }

    /// Asks the process that the search finds to end, a random time later.
    Start Terminate(Search search, int microseconds) {
        const GrowingTree tree(*sandbox, daemon->Pid());
        Found chosen;
        do {
            chosen = (tree.*search)();
        } while (!chosen && Clock::now() - started < Generous);
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
        Start start;
        if (chosen) {
            start.number = chosen->number;
            EXPECT_EQ(kill(chosen->outside, SIGTERM), 0);
        } else {
            ADD_FAILURE() << "no such process";
        }
        start.sandbox = std::move(sandbox);
        start.daemon = std::move(daemon);
        return start;
    }

    /// Starts the program many times and asks a process of it to end within the time that the
    /// others take to get ready.
    std::vector<Start> TerminateManyEarly(const std::vector<std::string>& options, Search search) {
        std::vector<Start> all;
        for (int count = 0; count < Starts; ++count) {
            Begin(options);
            all.push_back(Terminate(search, delays(engine)));
        }
        return all;
    }

    /// Starts the program, each fork of which takes long, and asks a process of it to end that is
    /// about to fork.
    Start TerminateBeforeFork(const std::vector<std::string>& options, Search search) {
        StartOptions start;
        start.environment = {{"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {"SLOW_CALL", "fork"}};
        Begin(options, start);
        return Terminate(search, 0);
    }

    /// Makes a start the one that the fixture tells of.
    void Take(Start& start) {
        sandbox = std::move(start.sandbox);
        daemon = std::move(start.daemon);
    }
    void LookAt(Start& start) {
        Take(start);
        EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
    }

    void ExpectEndOf(const std::vector<std::string>& tags) const {
        std::vector<std::string> expected;
        for (const std::string& of : tags) {
            expected.push_back(ExitLine("", of, 0));
        }
        EXPECT_TRUE(WaitForLines(expected.size()));
        EXPECT_THAT(LinesWithoutNumbers(), UnorderedElementsAreArray(expected));
    }

    /// Starts the program and asks its first process to end, a random time later. Returns whether
    /// that still was the only one then.
    bool TerminateFirst() {
        std::this_thread::sleep_for(std::chrono::microseconds(delays(engine) / 4));
        const bool sent = kill(daemon->Pid(), SIGTERM) == 0;
        return sent && sandbox->Processes() == std::vector<pid_t>{daemon->Pid()};
    }

    std::mt19937 engine{1};
    std::uniform_int_distribution<int> delays{0, 6000};
};

TEST_F(EarlySignalTest, EndsTheParentInOrderWithItsChild) {
    for (Start& start : TerminateManyEarly({}, &GrowingTree::Parent)) {
        LookAt(start);
        EXPECT_TRUE(WaitUntilOnly({}));
        ExpectEndOf(MainTree);
        EXPECT_EQ(ArrivalsOf(ExitLine(start.number, "P ", 0)).size(), 1U);
        ASSERT_FALSE(HasFailure());  // of which the log is printed
    }
}

TEST_F(EarlySignalTest, LeavesTheOtherTreeAlone) {
    for (Start& start : TerminateManyEarly({"-w"}, &GrowingTree::Parent)) {
        LookAt(start);
        ExpectEndOf(MainTree);
        EXPECT_TRUE(WaitForTrees(WatcherTree));
        EXPECT_TRUE(WaitUntilOnly(WatcherTree));
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(EarlySignalTest, EndsTheChildAloneInOrder) {
    for (Start& start : TerminateManyEarly({}, &GrowingTree::Child)) {
        LookAt(start);
        EXPECT_TRUE(WaitForLines(1));
        EXPECT_TRUE(WaitForTrees({"P "}));
        EXPECT_TRUE(WaitUntilOnly({"P "}));
        EXPECT_THAT(Lines(), ElementsAre(ExitLine(start.number, "C ", 0)));
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(EarlySignalTest, ToTheFirstProcessEndsTheTreeInOrder) {
    Start start = TerminateBeforeFork({}, &GrowingTree::FirstProcess);
    LookAt(start);
    EXPECT_TRUE(WaitUntilOnly({}));
    ExpectEndOf(MainTree);
}

TEST_F(EarlySignalTest, ToTheFirstProcessLeavesTheOtherTreeAlone) {
    Start start = TerminateBeforeFork({"-w"}, &GrowingTree::FirstProcess);
    LookAt(start);
    ExpectEndOf(MainTree);
    EXPECT_TRUE(WaitForTrees(WatcherTree));
    EXPECT_TRUE(WaitUntilOnly(WatcherTree));
}

TEST_F(EarlySignalTest, ToTheStarterOfTheWatcherEndsThatTreeAloneInOrder) {
    Start start = TerminateBeforeFork({"-w"}, &GrowingTree::WatcherStarter);
    LookAt(start);
    ExpectEndOf(WatcherTree);
    EXPECT_TRUE(WaitForTrees(MainTree));
    EXPECT_TRUE(WaitUntilOnly(MainTree));
}

TEST_F(EarlySignalTest, BeforeThereIsAParentLeavesNothingRunning) {
    int early = 0;
    for (int count = 0; count < Starts; ++count) {
        Begin({});
        if (!TerminateFirst()) {
            continue;  // the first process has no more to do with it
        }
        ++early;
        const std::optional<int> end = EndOfDaemon();
        ASSERT_TRUE(end);
        EXPECT_TRUE(WaitUntilOnly({}));
        ExpectEndOf(WIFSIGNALED(*end) ? std::vector<std::string>() : MainTree);
        EXPECT_TRUE(*end == 0 || *end == SIGTERM) << *end;
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(early, 0);
}

}  // namespace kennly::test
