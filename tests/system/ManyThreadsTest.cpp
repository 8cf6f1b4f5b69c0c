#include <future>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>

#include "system/DaemonFixture.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::SizeIs;

namespace {

/// Whether this machine lets one process have so many threads at once.
bool AllowsThreads(std::size_t count) {
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    std::vector<std::thread> threads;
    try {
        while (threads.size() < count) {
            threads.emplace_back([ended] { ended.wait(); });
        }
    } catch (const std::system_error&) {  // then it is as many as there are
    }
    end.set_value();
    const bool allowed = threads.size() == count;
    for (std::thread& thread : threads) {
        thread.join();
    }
    return allowed;
}

}  // namespace

class ManyThreadsTest : public DaemonTest {
protected:
    /// Jobs whose checks append their names to `file`.
    static std::string Jobs(int count, const std::string& file) {
        std::string jobs;
        for (int number = 0; number < count; ++number) {
            const std::string name = "job" + std::to_string(number);
            const std::string check = "echo " + name + " >>" + file + "; true";
            jobs += Job(name, Check(check, "delay=\"15\"") + Remedy("true"));
        }
        return jobs;
    }

    /// The names that checks have written to the file so far.
    std::set<std::string> NamesIn(const std::string& file) const {
        std::istringstream content(sandbox->ReadFile(file).value_or(""));
        std::set<std::string> names;
        for (std::string name; std::getline(content, name) && !content.eof();) {
            names.insert(name);
        }
        return names;
    }

    bool WaitForThreads(int count, std::chrono::seconds limit = Generous) const {
        return WaitUntil(
            [&] { return StatusField(daemon->Pid(), "Threads") == std::to_string(count); }, limit);
    }
};

TEST_F(ManyThreadsTest, ThatCannotBeStartedAreReportedAndFewerStillCan) {
    Configure(Configuration(Jobs(200, "/dev/null")));
    // Address space for some thirty threads with stacks of this size.
    daemon = sandbox->Start(
        {"sh", "-c", "ulimit -s 16384; ulimit -v 500000; exec " KENNLY_PROGRAM " -f"});
    number = NumberInside(daemon->Pid());

    ASSERT_TRUE(WaitForLine(Error("Error creating Thread Pool")));

    EXPECT_TRUE(WaitForThreads(1));
    EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
    EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
    Configure(Configuration(Job("few", Check(Note("few") + "; true") + Remedy("true"))));
    EXPECT_TRUE(WaitForTraces("few", 2));
    EXPECT_TRUE(WaitForThreads(4));
    StopDaemon();
    EXPECT_THAT(ArrivalsOf(Error("Error creating Thread Pool")), SizeIs(1));
}

TEST_F(ManyThreadsTest, RunTheChecksOfAThousandJobsAreReplacedAndEnd) {
    constexpr int jobs = 1000;
    constexpr std::chrono::seconds limit(60);
    if (!AllowsThreads(3 * jobs + 100)) {
        GTEST_SKIP() << "this machine allows no three threads for each of a thousand jobs";
    }
    const std::string first = DataDirectory + "/first";
    const std::string second = DataDirectory + "/second";
    Configure(Configuration(Jobs(jobs, first)));
    StartDaemon();
    ASSERT_TRUE(WaitForThreads(3 * jobs + 1, limit));
    ASSERT_TRUE(WaitUntil([&] { return NamesIn(first).size() == jobs; }, limit));

    Configure(Configuration(Jobs(jobs, second)));

    ASSERT_TRUE(WaitUntil([&] { return NamesIn(second).size() == jobs; }, limit));
    ASSERT_TRUE(WaitForThreads(3 * jobs + 1, limit));
    ASSERT_TRUE(daemon->Signal(SIGTERM));
    EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
    EXPECT_TRUE(WaitForLine(Exit(0)));
    EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
}

}  // namespace kennly::test
