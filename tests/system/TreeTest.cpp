#include <regex>

#include "support/Sanitizers.h"
#include "support/TracedProcess.h"
#include "system/GrowingTree.h"
#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::UnorderedElementsAreArray;

using Options = std::vector<std::string>;

class TreeTest : public BackgroundTest {
protected:
    struct Row {
        Options options;
        std::vector<std::string> tags;
    };
    const std::vector<Row> rows = {
        {{}, MainTree},
        {{"-w"}, BothTrees},
        {{"-W"}, WatcherTree},
        {{"-w", "-W"}, WatcherTree},
        {{"-watch", "-w", "-wx y"}, BothTrees},
        {{"-Wx", "-Wy"}, WatcherTree},
    };

    static std::vector<std::string> Executed(const Options& options, const Options& added) {
        std::vector<std::string> arguments = {KENNLY_PROGRAM};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), added.begin(), added.end());
        return arguments;
    }

    /// Expects a session and a process group of its own, and the starter gone.
    void ExpectDetached(const DaemonProcess& parent) const {
        EXPECT_TRUE(WaitUntil(  // its starter may take a moment to end
            [&] {
                return StatusField(parent.outside, "PPid") ==
                       std::to_string(sandbox->FirstProcess());
            },
            Generous));
        EXPECT_EQ(parent.session, parent.number);
        EXPECT_EQ(parent.group, parent.number);
    }

    static void ExpectChildOf(const DaemonProcess& parent, const DaemonProcess& child) {
        EXPECT_EQ(child.parent, parent.number);
        EXPECT_EQ(child.session, parent.number);
        EXPECT_EQ(child.group, parent.number);
    }

    /// A command that reports its signals and its descriptors.
    static std::string Reports(const std::string& name) {
        return Reporting("grep SigBlk /proc/self/status", name + "-signals") + "; " +
               Reporting("ls -l /proc/self/fd", name + "-descriptors");
    }

    /// A file with a check and a remedy that report.
    static std::string ReportingFile(const std::string& name) {
        return Configuration(
            Job("report", Check(Reports(name + "-check") + "; false", "delay=\"600\"") +
                              Remedy("sh -c '" + Reports(name + "-remedy") + "'")));
    }

    /// Expects of a command its output and the directory that it lists to be open, and `others`.
    void ExpectReport(const std::string& name, std::vector<std::string> others) const {
        EXPECT_EQ(ReportOf(name + "-signals"), "SigBlk:\t" + std::string(16, '0') + "\nend\n");
        const std::string report = name + "-descriptors";
        std::vector<std::string> targets = ListedTargets(ReportOf(report));
        for (std::string& target : targets) {
            const bool isListed = std::regex_match(target, std::regex("/proc/[0-9]+/fd"));
            target = isListed ? "the directory" : target;
        }
        others.insert(others.end(), {PathOf(report), "the directory"});
        EXPECT_THAT(targets, UnorderedElementsAreArray(others));
    }
};

TEST_F(TreeTest, PassesItsArgumentsOnAndAddsAnOptionToThem) {
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.options));
        SetUp();

        StartTrees(row.options, row.tags);

        if (row.tags != WatcherTree) {
            EXPECT_EQ(Role("P ").arguments, Executed(row.options, {}));
            EXPECT_EQ(Role("C ").arguments, Executed(row.options, {"-Z"}));
        }
        if (row.tags == WatcherTree) {
            EXPECT_EQ(Role("WP").arguments, Executed(row.options, {}));
            EXPECT_EQ(Role("WC").arguments, Executed(row.options, {"-Z"}));
        }
        if (row.tags == BothTrees) {
            EXPECT_EQ(Role("WP").arguments, Executed(row.options, {"-W"}));
            EXPECT_EQ(Role("WC").arguments, Executed(row.options, {"-W", "-Z"}));
        }
    }
}

TEST_F(TreeTest, ConsistsOfNothingButAParentAndItsChild) {
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.options));
        SetUp();

        StartTrees(row.options, row.tags);

        EXPECT_TRUE(WaitUntilOnly(row.tags));  // the starter of the watcher is no zombie either
    }
}

TEST_F(TreeTest, HasASessionOfItsOwnUnderItsParent) {
    StartTrees({"-w"}, BothTrees);

    ExpectDetached(Role("P "));
    ExpectChildOf(Role("P "), Role("C "));
    ExpectDetached(Role("WP"));
    ExpectChildOf(Role("WP"), Role("WC"));
}

TEST_F(TreeTest, LeavesTheFirstProcessNoMoreThanAnInstant) {
    StartDaemon({"-w"});

    EXPECT_EQ(EndOfDaemon(Prompt), std::optional<int>(0));
}

TEST_F(TreeTest, HasAWatcherStarterThatExitsWithoutAFailureStatus) {
    StartOptions start;  // it lives for two seconds
    start.environment = {
        {"LD_PRELOAD", KENNLY_HAMPERED_CALLS}, {"SLOW_CALL", "fork"}, NoLeakSearch};
    StartDaemon({"-w"}, start);
    const GrowingTree tree(*sandbox, daemon->Pid());
    GrowingTree::Found starter;
    const auto isFound = [&] {
        starter = tree.WatcherStarter();
        return starter.has_value();
    };
    ASSERT_TRUE(WaitUntil(isFound, Generous));

    TracedProcess traced(starter->outside);

    EXPECT_EQ(traced.WaitForEnd(Generous), std::optional<int>(0));
    EXPECT_TRUE(WaitForTrees(BothTrees));
    EXPECT_TRUE(WaitUntilOnly(BothTrees));
}

TEST_F(TreeTest, MarksEachLineWithItsRoleAndHasNoneOfItsStarters) {
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.options));
        SetUp();
        Configure(Configuration(Marker("main")), MainConfiguration);
        Configure(Configuration(Marker("watcher")), WatcherConfiguration);
        std::vector<std::string> expected;

        StartTrees(row.options, row.tags);

        if (row.tags != WatcherTree) {
            expected.push_back(LoadedOf("C ", "main"));
            EXPECT_TRUE(WaitForLine(expected.back()));
        }
        if (row.tags != MainTree) {
            expected.push_back(LoadedOf("WC", "watcher"));
            EXPECT_TRUE(WaitForLine(expected.back()));
        }
        StopTrees();
        for (const std::string& of : row.tags) {
            expected.push_back(ExitOf(of));
            EXPECT_TRUE(WaitForLine(expected.back()));
        }
        EXPECT_THAT(Lines(), UnorderedElementsAreArray(expected));
    }
}

TEST_F(TreeTest, TakesAsManyArgumentsAsItCanPassOn) {
    const std::vector<Row> full = {{Options(17, "-W"), WatcherTree},
                                   {Options(16, "-w"), BothTrees}};
    for (const Row& row : full) {
        SCOPED_TRACE(::testing::PrintToString(row.options));
        SetUp();

        StartTrees(row.options, row.tags);

        const Options added = row.tags == BothTrees ? Options{"-W", "-Z"} : Options{"-Z"};
        EXPECT_EQ(Role("WC").arguments, Executed(row.options, added));
        StopTrees();
        EXPECT_TRUE(WaitForExitsOf(row.tags));
        EXPECT_THAT(Lines(), UnorderedElementsAreArray(ExitsOf(row.tags)));
    }
}

TEST_F(TreeTest, KeepsNothingOpenButConnectionsToTheLog) {
    StartOptions start;
    start.captureOutput = true;
    start.captureError = true;

    StartTrees({"-w"}, BothTrees, start);

    for (const std::string& of : BothTrees) {
        SCOPED_TRACE(of);
        // At the instants of a heartbeat or a look at the configuration there is one more.
        std::map<int, std::string> open;
        EXPECT_TRUE(WaitUntil(
            [&] {
                open = OpenDescriptors(Role(of).outside);
                return std::all_of(open.begin(), open.end(), [](const auto& descriptor) {
                    return descriptor.second.rfind("socket:", 0) == 0;
                });
            },
            Generous))
            << ::testing::PrintToString(open);
    }
    EXPECT_EQ(daemon->OutputText(), "");
    EXPECT_EQ(daemon->ErrorText(), "");
}

TEST_F(TreeTest, RunsCommandsWithoutItsDescriptorsOrABlockedSignal) {
    Configure(ReportingFile("main"), MainConfiguration);
    Configure(ReportingFile("watcher"), WatcherConfiguration);

    StartTrees({"-w"}, BothTrees);

    for (const std::string name : {"main", "watcher"}) {
        SCOPED_TRACE(name);
        ExpectReport(name + "-check", {});
        // Its shell gives a command in the background an input.
        ExpectReport(name + "-remedy", {"/dev/null", "/dev/null"});
    }
}

TEST_F(TreeTest, StaysInTheDirectoryOfTheStart) {
    StartOptions start;
    start.workingDirectory = DataDirectory + "/heartbeats";

    StartTrees({"-w"}, BothTrees, start);

    for (const std::string& of : BothTrees) {
        EXPECT_TRUE(
            std::filesystem::equivalent("/proc/" + std::to_string(Role(of).outside) + "/cwd",
                                        sandbox->PathInside(start.workingDirectory)))
            << of;
    }
}

}  // namespace kennly::test
