#include <cerrno>

#include "support/Lanes.h"
#include "system/FaultFixture.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

/// Files cannot be looked at, opened, read or written.
class FileFailureTest : public FaultTest {
public:
    struct Row {
        const char* call;
        int error;
    };
    static inline const std::vector<Row> HeartbeatRows = {
        {"open", EIO}, {"open", ENOSPC}, {"open", EMFILE}, {"write", EIO}, {"write", ENOSPC}};

    void StartWithJobBeside() {
        Configure(Configuration(Beside(), "maxloaderrors=\"100\""));
        StartFaultyDaemon();
        ASSERT_TRUE(WaitForTraces("beside", 1));
    }

    void ExpectMissedHeartbeats(const Row& row) {
        StartWithJobBeside();
        Fail(Fault(row.call, row.error, "heartbeats/child"));
        ASSERT_TRUE(WaitForMoreFailures(row.call, "heartbeats/child", 1));
        const std::int64_t last = TimeOf(ChildHeartbeat);
        EXPECT_TRUE(WaitForMoreFailures(row.call, "heartbeats/child", 4));
        EXPECT_TRUE(WaitForMoreTraces("beside", 2));
        EXPECT_EQ(TimeOf(ChildHeartbeat), last);

        FailNoLonger();
        EXPECT_TRUE(WaitForHeartbeat(last));
        ExpectRecovery();
        StopDaemon();
        EXPECT_THAT(Lines(), ElementsAre(Exit(0)));
    }

    void ExpectMissedHeartbeatsOfParent(const Row& row) {
        const std::string text = "heartbeats/parent";
        Configure(Configuration(Beside()));
        StartTreeWithFaultyParent();
        Fail(Fault(row.call, row.error, text));
        ASSERT_TRUE(WaitForMoreFailures(row.call, text, 1));
        const std::int64_t last = TimeOf(ParentHeartbeat);
        EXPECT_TRUE(WaitForMoreFailures(row.call, text, 4));
        EXPECT_TRUE(WaitForBeatsOf({"C "}));
        EXPECT_EQ(TimeOf(ParentHeartbeat), last);

        FailNoLonger();
        EXPECT_TRUE(WaitForHeartbeat(last, ParentHeartbeat));
        ExpectRecovery();
        Fail(Fault(row.call, row.error, text));
        EXPECT_TRUE(WaitForMoreFailures(row.call, text, 1));
        StopTrees();
        EXPECT_TRUE(WaitForExitsOf(MainTree));
        EXPECT_THAT(Lines(), UnorderedElementsAreArray(ExitsOf(MainTree)));
    }

    /// Expects that a load fails, and is tried again, as long as the call does.
    void ExpectFailedLoads(const std::string& call, int error, const std::string& content) {
        StartWithJobBeside();
        Fail(Fault(call, error, "kennly.xml"));
        Configure(content);
        ASSERT_TRUE(WaitForLine(ParseError(), 3));
        EXPECT_GE(SecondsBetween(ArrivalsOf(ParseError()).at(0), ArrivalsOf(ParseError()).at(2)),
                  3);
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
        EXPECT_GE(FailuresOf(call, "kennly.xml"), 3U);

        FailNoLonger();
        ExpectRecovery();
        StopDaemon();
        const std::vector<std::string> lines = Lines();
        EXPECT_THAT(lines,
                    Each(AnyOf(NotLoaded(), TooDeep(), ParseError(), Loaded("unseen"), Exit(0))));
        EXPECT_EQ(ArrivalsOf(NotLoaded()).size() + ArrivalsOf(TooDeep()).size(),
                  ArrivalsOf(ParseError()).size());
    }

    void ExpectJobsKeptWithoutTime(int error) {
        StartWithJobBeside();
        Fail(Fault("stat", error, "kennly.xml"));
        ASSERT_TRUE(WaitForMoreFailures("stat", "kennly.xml", 1));
        Configure(Configuration(Beside() + Marker("later"), "maxloaderrors=\"2\""));
        EXPECT_TRUE(WaitForMoreFailures("stat", "kennly.xml", 2));
        EXPECT_TRUE(WaitForMoreTraces("beside", 2));
        EXPECT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
        EXPECT_THAT(Lines(), IsEmpty());
        FailNoLonger();
        EXPECT_TRUE(WaitForLine(Loaded("later")));
    }

    /// Expects that as many failures as were not tolerated end the daemon.
    void ExpectEndWithoutTime(int error) {
        Fail(Fault("stat", error, "kennly.xml"));
        EXPECT_EQ(EndOfDaemon(), std::optional<int>(0));
        EXPECT_TRUE(WaitForLine(Exit(0)));
        EXPECT_THAT(Lines(), ElementsAre(Loaded("later"), TooManyErrors(), Exit(0)));
    }

    /// Two jobs, one for each kind of check that asks for a time.
    void StartWithWatchers() {
        const std::string change = CheckOfType("CheckForFileChange", {PathOf("watched-change")});
        const std::string stale =
            CheckOfType("CheckForNoFileChange", {PathOf("watched-stale"), "600"});
        PutWatched(10);
        Configure(Configuration(Beside() + Job("change", change + Remedy("true")) +
                                Job("stale", stale + Remedy("true"))));
        StartFaultyDaemon();
        ASSERT_TRUE(WaitForRemedies("change", 1));
        ASSERT_TRUE(WaitForTraces("beside", 3));
        EXPECT_EQ(RemediesOf("stale"), 0U);
    }

    void ExpectUnchangedWithoutTime(int error) {
        Fail(Fault("stat", error, "watched-change") + Fault("stat", error, "watched-stale"));
        ASSERT_TRUE(WaitForMoreFailuresOfWatchers(1));
        PutWatched(10'000);
        EXPECT_TRUE(WaitForMoreFailuresOfWatchers(3));
        EXPECT_EQ(RemediesOf("change"), 1U);
        EXPECT_EQ(RemediesOf("stale"), 0U);
    }

    void ExpectRemediesForWhatCameMeanwhile() {
        FailNoLonger();
        EXPECT_TRUE(WaitForRemedies("change", 2));
        EXPECT_TRUE(WaitForRemedies("stale", 2));
        EXPECT_TRUE(WaitForMoreTraces("beside", 3));
        EXPECT_EQ(RemediesOf("change"), 2U);
        ExpectRecovery();
        StopDaemon();
        EXPECT_THAT(Lines(), Each(AnyOf(RemedyRuns("change", "true"), RemedyRuns("stale", "true"),
                                        Exit(0))));
    }

    void StartWithBlockFile() {
        ASSERT_TRUE(sandbox->WriteFile(PathOf("block"), ""));
        Configure(Configuration(
            Job("web", Check(Note("check") + "; false", "delay=\"1\"") +
                           Remedy("true", "blockaction=\"" + PathOf("block") + "\""))));
        StartFaultyDaemon();
        ASSERT_TRUE(WaitForTraces("check", 3));
        EXPECT_EQ(RemediesOf("web"), 0U);
    }

    void ExpectRemediesWithoutLookAtBlockFile(int error) {
        Fail(Fault("access", error, "block"));
        EXPECT_TRUE(WaitForRemedies("web", 2));
        EXPECT_GE(FailuresOf("access", "block"), 2U);

        FailNoLonger();
        ASSERT_TRUE(WaitForMoreTraces("check", 1));  // a remedy may have been under way
        const std::size_t count = RemediesOf("web");
        EXPECT_TRUE(WaitForMoreTraces("check", 3));
        EXPECT_EQ(RemediesOf("web"), count);
        StopDaemon();
        EXPECT_THAT(Lines(), Each(AnyOf(RemedyRuns("web", "true"), Exit(0))));
    }

protected:
    /// Of more than one piece. The parser would overflow its stack.
    static std::string DeadlyToTheParser() {
        std::string text;
        while (text.size() < 300'000) {
            text += "<a>";
        }
        return text;
    }

    void PutWatched(std::time_t age) {
        for (const char* const name : {"watched-change", "watched-stale"}) {
            PutFile(PathOf(name), std::time(nullptr) - age);
        }
    }
    bool WaitForMoreFailuresOfWatchers(std::size_t count) const {
        return WaitForMoreFailures("stat", "watched-change", count) &&
               WaitForMoreFailures("stat", "watched-stale", count);
    }

    std::string NotLoaded() const {
        return Error("config file failed to load, error: Failed to open file");
    }
    std::string TooDeep() const {
        return Error("config file failed to load, error: elements nested too deep");
    }
    std::string ParseError() const { return Error("Configuration file parse error"); }
    std::string TooManyErrors() const {
        return Error("watchdog closing down as there have been too many load config errors");
    }
};

TEST_F(FileFailureTest, OfTheHeartbeatIsSilentAndLeavesTheFileAsItIs) {
    RunAtOnce<FileFailureTest>(HeartbeatRows, [](FileFailureTest& lane, const Row& row) {
        lane.ExpectMissedHeartbeats(row);
    });
}

TEST_F(FileFailureTest, OfTheHeartbeatOfAParentIsSilentAndLeavesItsChildAlone) {
    RunAtOnce<FileFailureTest>(HeartbeatRows, [](FileFailureTest& lane, const Row& row) {
        lane.ExpectMissedHeartbeatsOfParent(row);
    });
}

// The look and the parser open and read it one after the other.
TEST_F(FileFailureTest, OfOpeningOrReadingTheConfigurationIsAFailedLoad) {
    struct Call {
        std::string name;
        int error;
        std::string content;
    };
    const std::string ordinary = Configuration(Marker("unseen"));
    const std::string deadly = DeadlyToTheParser();
    const std::vector<Call> rows = {{"open", EMFILE, deadly},   {"open", EIO, deadly},
                                    {"read", EIO, deadly},      {"read-on", EIO, deadly},
                                    {"open", EMFILE, ordinary}, {"fopen", EMFILE, ordinary},
                                    {"fopen", EIO, ordinary},   {"fread", EIO, ordinary}};
    RunAtOnce<FileFailureTest>(rows, [](FileFailureTest& lane, const Call& call) {
        lane.ExpectFailedLoads(call.name, call.error, call.content);
    });
}

TEST_F(FileFailureTest, OfAskingForTheTimeOfTheConfigurationKeepsTheJobsForAWhile) {
    const std::vector<int> errors = {EIO, EACCES, ENOMEM};
    RunAtOnce<FileFailureTest>(errors, [](FileFailureTest& lane, int error) {
        lane.ExpectJobsKeptWithoutTime(error);
        lane.ExpectEndWithoutTime(error);
    });
}

TEST_F(FileFailureTest, OfAskingForTheTimeOfAWatchedFileCountsAsHealthy) {
    const std::vector<int> errors = {EIO, EACCES};
    RunAtOnce<FileFailureTest>(errors, [](FileFailureTest& lane, int error) {
        lane.StartWithWatchers();
        lane.ExpectUnchangedWithoutTime(error);
        lane.ExpectRemediesForWhatCameMeanwhile();
    });
}

TEST_F(FileFailureTest, OfLookingForABlockFileHoldsNoRemedyBack) {
    const std::vector<int> errors = {EIO, ELOOP};
    RunAtOnce<FileFailureTest>(errors, [](FileFailureTest& lane, int error) {
        lane.StartWithBlockFile();
        lane.ExpectRemediesWithoutLookAtBlockFile(error);
    });
}

}  // namespace kennly::test
