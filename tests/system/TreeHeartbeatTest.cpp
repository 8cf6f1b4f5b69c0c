#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::UnorderedElementsAreArray;

class TreeHeartbeatTest : public BackgroundTest {};

TEST_F(TreeHeartbeatTest, IsAFileOfItsOwnForEachProcess) {
    struct Row {
        std::vector<std::string> options;
        std::vector<std::string> tags;
        std::vector<std::string> files;
    };
    const std::vector<Row> rows = {
        {{}, MainTree, {"child", "parent"}},
        {{"-W"}, WatcherTree, {"watcherchild", "watcherparent"}},
        {{"-w", "-W"}, WatcherTree, {"watcherchild", "watcherparent"}},
        {{"-w"}, BothTrees, {"child", "parent", "watcherchild", "watcherparent"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.options));
        SetUp();

        StartTrees(row.options, row.tags);

        EXPECT_TRUE(WaitForBeatsOf(row.tags));
        EXPECT_EQ(Heartbeats(), row.files);
        for (const std::string& of : row.tags) {
            EXPECT_EQ(sandbox->ReadFile(HeartbeatOf.at(of)), " ") << of;
        }
    }
}

TEST_F(TreeHeartbeatTest, GoesStaleWithItsProcessAlone) {
    for (const std::string& stopped : BothTrees) {
        SCOPED_TRACE(stopped);
        SetUp();
        StartTrees({"-w"}, BothTrees);
        SendTo(stopped, SIGSTOP);
        ASSERT_TRUE(WaitUntil([&] { return StatusField(Role(stopped).outside, "State")[0] == 'T'; },
                              Generous));
        const std::int64_t last = TimeOf(HeartbeatOf.at(stopped));

        std::vector<std::string> others = BothTrees;
        others.erase(std::find(others.begin(), others.end(), stopped));
        EXPECT_TRUE(WaitForBeatsOf(others));

        EXPECT_EQ(TimeOf(HeartbeatOf.at(stopped)), last);
    }
}

TEST_F(TreeHeartbeatTest, OfAParentComesOnceASecond) {
    StartTrees({"-w"}, BothTrees);

    const auto beatsOfBoth =
        BeatsWithin(std::chrono::seconds(6), {ParentHeartbeat, WatcherParentHeartbeat});

    for (const std::vector<std::int64_t>& beats : beatsOfBoth) {
        EXPECT_GE(beats.size(), 4U);
        EXPECT_LE(beats.size(), Allowing(8));
        for (std::size_t index = 1; index < beats.size(); ++index) {
            EXPECT_LT(SecondsBetween(beats[index - 1], beats[index]), Allowing(2.8));
        }
    }
}

TEST_F(TreeHeartbeatTest, ReplacesOnlyTheFirstByteOfLongerContent) {
    for (const auto& [of, path] : HeartbeatOf) {
        ASSERT_TRUE(sandbox->WriteFile(path, "xyz")) << of;
        ASSERT_TRUE(sandbox->SetFileTime(path, 1000000000)) << of;
    }

    StartTrees({"-w"}, BothTrees);

    for (const auto& [of, path] : HeartbeatOf) {
        EXPECT_TRUE(WaitForHeartbeat(1000000001'000000000, path)) << of;
        EXPECT_EQ(sandbox->ReadFile(path), " yz") << of;
    }
}

TEST_F(TreeHeartbeatTest, IsDispensableWithoutAWord) {
    std::filesystem::remove(sandbox->PathInside(DataDirectory + "/heartbeats"));
    Configure(
        Configuration(Job("web", Check(Note("main") + "; true", "delay=\"1\"") + Remedy("true"))),
        MainConfiguration);
    Configure(Configuration(
                  Job("web", Check(Note("watcher") + "; true", "delay=\"1\"") + Remedy("true"))),
              WatcherConfiguration);

    StartTrees({"-w"}, BothTrees);

    EXPECT_TRUE(WaitForTraces("main", 2));
    EXPECT_TRUE(WaitForTraces("watcher", 2));
    StopTrees();
    EXPECT_FALSE(sandbox->FileExists(DataDirectory + "/heartbeats"));
    EXPECT_TRUE(WaitForExitsOf(BothTrees));
    EXPECT_THAT(Lines(), UnorderedElementsAreArray(ExitsOf(BothTrees)));
}

}  // namespace kennly::test
