#include "main/CommandLine.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "main/ProcessState.h"

namespace kennly::test {

constexpr char Directory[] = "/opt/qrv/data/kennly/config";
constexpr char MainFile[] = "/opt/qrv/data/kennly/config/kennly.xml";
constexpr char WatcherFile[] = "/opt/qrv/data/kennly/config/dogdog.xml";

class CommandLineTest : public ::testing::Test {
protected:
    CommandLineTest() { Reset(); }
    ~CommandLineTest() override { Reset(); }

    static void Reset() {
        foregroundMode = false;
        childMode = false;
        watcherMode = false;
        createWatcher = false;
        configDir[0] = '\0';
        configFile[0] = '\0';
    }

    /// Reads these arguments after the program's path.
    static bool Read(const std::vector<const char*>& options) {
        std::vector<const char*> arguments = {"/usr/sbin/kennly"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return ReadCommandLine(static_cast<int>(arguments.size()), arguments.data());
    }
};

struct Row {
    std::vector<const char*> options;
    bool foreground;
    bool child;
    bool watcher;
    bool createsWatcher;
    const char* file;
};

std::string Joined(const std::vector<const char*>& options) {
    std::string all;
    for (const char* const option : options) {
        all += std::string("[") + option + "]";
    }
    return all;
}

TEST_F(CommandLineTest, TakesUpEveryCombinationOfOptions) {
    const std::vector<Row> rows = {
        {{"-f"}, true, false, false, false, MainFile},
        {{"-w"}, false, false, false, true, MainFile},
        {{"-Z"}, false, true, false, false, MainFile},
        {{"-W"}, false, false, true, false, WatcherFile},
        {{"-w", "-W"}, false, false, true, false, WatcherFile},
        {{"-W", "-w"}, false, false, true, false, WatcherFile},
        {{"-W", "-Z"}, false, true, true, false, WatcherFile},
        {{"-Z", "-W"}, false, true, true, false, WatcherFile},
        {{"-w", "-Z"}, false, true, false, true, MainFile},
        {{"-f", "-W"}, true, false, true, false, WatcherFile},
        {{"-f", "-w", "-Z"}, true, true, false, true, MainFile},
        {{"-f", "-f", "-w", "-w", "-f"}, true, false, false, true, MainFile},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Joined(row.options));
        Reset();

        EXPECT_TRUE(Read(row.options));

        EXPECT_EQ(foregroundMode, row.foreground);
        EXPECT_EQ(childMode, row.child);
        EXPECT_EQ(watcherMode, row.watcher);
        EXPECT_EQ(createWatcher, row.createsWatcher);
        EXPECT_STREQ(configDir, Directory);
        EXPECT_STREQ(configFile, row.file);
    }
}

TEST_F(CommandLineTest, LooksAtTwoCharactersOfAnOptionOnly) {
    EXPECT_TRUE(Read({"-fast", "-Zebra", "-wW", "-f-x"}));

    EXPECT_TRUE(foregroundMode);
    EXPECT_TRUE(childMode);
    EXPECT_TRUE(createWatcher);
    EXPECT_FALSE(watcherMode);
}

TEST_F(CommandLineTest, ChangesNothingWithoutArguments) {
    EXPECT_TRUE(Read({}));

    EXPECT_FALSE(foregroundMode);
    EXPECT_FALSE(childMode);
    EXPECT_FALSE(watcherMode);
    EXPECT_FALSE(createWatcher);
    EXPECT_STREQ(configDir, "");
    EXPECT_STREQ(configFile, "");
}

TEST_F(CommandLineTest, ReadsNothingWithoutEvenAProgramPath) {
    const char* const none[] = {nullptr};

    EXPECT_TRUE(ReadCommandLine(0, none));

    EXPECT_STREQ(configFile, "");
}

TEST_F(CommandLineTest, RefusesWhatIsNoOption) {
    for (const char* const argument :
         {"-x", "", "-", "f", "--f", "--foreground", "-F", "-z", "- f", " -f", "kennly.xml"}) {
        SCOPED_TRACE(std::string("[") + argument + "]");
        Reset();

        EXPECT_FALSE(Read({argument}));

        EXPECT_FALSE(foregroundMode || childMode || watcherMode || createWatcher);
    }
}

TEST_F(CommandLineTest, StopsReadingAtTheFirstArgumentThatIsNoOption) {
    EXPECT_FALSE(Read({"-f", "-x", "-Z"}));

    EXPECT_TRUE(foregroundMode);
    EXPECT_FALSE(childMode);
}

TEST_F(CommandLineTest, DoesNotTakeTheProgramsPathForAnOption) {
    const char* const arguments[] = {"-f", "-w"};

    EXPECT_TRUE(ReadCommandLine(2, arguments));

    EXPECT_FALSE(foregroundMode);
    EXPECT_TRUE(createWatcher);
}

TEST_F(CommandLineTest, WritesFourLinesOfUsage) {
    std::ostringstream out;

    WriteUsage(out);

    EXPECT_EQ(out.str(),
              "Usage: kennly\n"
              "Optional arguments:\n"
              "    -w                  (to run a watchdog watcher)\n"
              "    -f                  (to run in foreground)\n");
}

}  // namespace kennly::test
