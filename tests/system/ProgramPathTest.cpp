#include "system/TreeFixture.h"

namespace kennly::test {

using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

/// The path under which the program is started is the one under which it executes itself again.
class ProgramPathTest : public BackgroundTest {
protected:
    static std::string DirectoryOfProgram() {
        return std::filesystem::path(KENNLY_PROGRAM).parent_path();
    }

    static StartOptions In(const std::string& directory) {
        StartOptions start;
        start.workingDirectory = directory;
        start.environment = {{"PATH", DirectoryOfProgram() + ":/usr/bin:/bin"}};
        return start;
    }

    /// A command that becomes the program, under another path.
    static std::vector<std::string> StartAs(const std::string& path, const std::string& option) {
        return {"bash", "-c", "exec -a '" + path + "' " KENNLY_PROGRAM " " + option};
    }
};

TEST_F(ProgramPathTest, IsResolvedAgainstTheWorkingDirectory) {
    const std::string directory = std::filesystem::path(DirectoryOfProgram()).filename();
    struct Row {
        std::string path;
        std::string workingDirectory;
    };
    const std::vector<Row> rows = {
        {"./kennly", DirectoryOfProgram()},
        {"kennly", DirectoryOfProgram()},
        {directory + "/../" + directory + "/kennly", DirectoryOfProgram() + "/.."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        SetUp();

        StartTreesBy(StartAs(row.path, "-w"), BothTrees, In(row.workingDirectory));

        for (const std::string& of : BothTrees) {
            EXPECT_EQ(Role(of).arguments.front(), row.path);
        }
        StopTrees();
        EXPECT_TRUE(WaitForExitsOf(BothTrees));
        EXPECT_THAT(Lines(), UnorderedElementsAreArray(ExitsOf(BothTrees)));
    }
}

TEST_F(ProgramPathTest, IsNotSearchedForWhenItDoesNotResolve) {
    for (const std::string path : {"kennly", "./kennly", "nonsense", ""}) {
        SCOPED_TRACE(path);
        SetUp();

        StartTreesBy(StartAs(path, "-w"), {"P "}, In("/"));

        EXPECT_TRUE(WaitForLines(4));
        EXPECT_TRUE(WaitUntilOnly({"P "}));
        EXPECT_TRUE(WaitForBeatsOf({"P "}));
        EXPECT_THAT(
            LinesWithoutNumbers(),
            UnorderedElementsAre(
                ErrorLine("", "P ", "create_watchdogwatcher - cannot execv"), ExitLine("", "P ", 1),
                ErrorLine("", "P ", "createchildprocess - cannot execv"), ExitLine("", "P ", 1)));
        EXPECT_EQ(Heartbeats(), std::vector<std::string>{"parent"});
        StopTrees();
        EXPECT_TRUE(WaitForLine(ExitOf("P ")));
    }
}

}  // namespace kennly::test
