#include "main/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "support/RecordedLog.h"
#include "unit/main/ForkedProcess.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LogTest : public ::testing::Test {
protected:
    LogTest() { Reset(); }
    ~LogTest() override { Reset(); }

    static void Reset() {
        ForgetLog();
        MakeSyslogThrow(false);
        roleTag = InitialTag;
    }

    /// A whole line of this process in the role "C ".
    static std::string Line(const std::string& texts) {
        return std::to_string(getpid()) + ":C : " + texts + "\n";
    }

    static const char* const InitialTag;
};

const char* const LogTest::InitialTag = roleTag;  // before anything has written it

TEST_F(LogTest, OpensTheLogUnderTheProgramsNameWithoutOptions) {
    OpenLog();

    const RecordedConnection connection = LogConnection();
    EXPECT_EQ(connection.identity, "kennly");
    EXPECT_EQ(connection.options, 0);
    EXPECT_EQ(connection.facility, LOG_LOCAL4);
}

TEST_F(LogTest, LogsOneToFourTextsAsErrors) {
    roleTag = "C ";

    LogError("a");
    LogError("a", "b b");
    LogError("a", "b", "c");
    LogError("a", "b", "c", "d");

    EXPECT_THAT(
        RecordedLines(),
        ElementsAre(RecordedLine{LOG_ERR, Line("a")}, RecordedLine{LOG_ERR, Line("a b b")},
                    RecordedLine{LOG_ERR, Line("a b c")}, RecordedLine{LOG_ERR, Line("a b c d")}));
}

TEST_F(LogTest, LogsOneToFourTextsAsDebugMessages) {
    roleTag = "C ";

    LogDebug("a");
    LogDebug("a", "b b");
    LogDebug("a", "b", "c");
    LogDebug("a", "b", "c", "d");

    EXPECT_THAT(RecordedLines(), ElementsAre(RecordedLine{LOG_DEBUG, Line("a")},
                                             RecordedLine{LOG_DEBUG, Line("a b b")},
                                             RecordedLine{LOG_DEBUG, Line("a b c")},
                                             RecordedLine{LOG_DEBUG, Line("a b c d")}));
}

TEST_F(LogTest, KeepsTheBlanksAroundEmptyTexts) {
    roleTag = "C ";

    LogError("", "");
    LogDebug("a", "", "c", "");

    EXPECT_THAT(RecordedLines(), ElementsAre(RecordedLine{LOG_ERR, Line(" ")},
                                             RecordedLine{LOG_DEBUG, Line("a  c ")}));
}

TEST_F(LogTest, StartsWithTwoBlanksAsTheRole) {
    LogError("a");

    EXPECT_THAT(RecordedLines(),
                ElementsAre(RecordedLine{LOG_ERR, std::to_string(getpid()) + ":  : a\n"}));
}

TEST_F(LogTest, PrintsWhateverRoleIsSet) {
    for (const char* const tag : {"??", "  ", "P ", "C ", "WP", "WC"}) {
        SCOPED_TRACE(tag);
        ForgetLog();
        roleTag = tag;

        LogError("a");

        EXPECT_THAT(RecordedLines(), ElementsAre(RecordedLine{
                                         LOG_ERR, std::to_string(getpid()) + ":" + tag + ": a\n"}));
    }
}

TEST_F(LogTest, PrintsPercentSignsAsTheyStand) {
    roleTag = "C ";

    LogError("100%", "%s", "%n", "%d%%");
    LogDebug("%s%s%s%s%s%n");

    EXPECT_THAT(RecordedLines(), ElementsAre(RecordedLine{LOG_ERR, Line("100% %s %n %d%%")},
                                             RecordedLine{LOG_DEBUG, Line("%s%s%s%s%s%n")}));
}

TEST_F(LogTest, PrintsTheProcessIdOfAFork) {
    const EndedProcess process = RunForked([] {
        roleTag = "C ";
        LogError("a");
        return 0;
    });

    ASSERT_TRUE(process.ExitedWith(0));
    EXPECT_NE(process.pid, getpid());
    EXPECT_THAT(process.lines, ElementsAre(process.Error("C ", "a")));
}

TEST_F(LogTest, LetsNoExceptionOutOfALine) {
    MakeSyslogThrow(true);

    LogError("a");
    LogError("a", "b", "c", "d");
    LogDebug("a", "b");

    MakeSyslogThrow(false);
    EXPECT_THAT(RecordedLines(), IsEmpty());
    LogError("a");
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("a")));
}

TEST_F(LogTest, ExitsWithTheStatusAfterALineWithoutColonAndNewline) {
    for (const int status : {0, 1, 42}) {
        SCOPED_TRACE(status);

        const EndedProcess process = RunForked([status]() -> int {
            roleTag = "C ";
            LogExit(status);
        });

        EXPECT_TRUE(process.ExitedWith(status));
        EXPECT_THAT(process.lines,
                    ElementsAre(RecordedLine{LOG_DEBUG, std::to_string(process.pid) + ":C  exit(" +
                                                            std::to_string(status) + ")"}));
    }
}

TEST_F(LogTest, PrintsANegativeStatusWithItsSign) {
    const EndedProcess process = RunForked([]() -> int {
        roleTag = "WP";
        LogExit(-1);
    });

    EXPECT_TRUE(process.ExitedWith(255));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("WP", -1)));
}

TEST_F(LogTest, ClosesTheLogBeforeItExits) {
    const EndedProcess process = RunForked([]() -> int { LogExit(0); });

    EXPECT_EQ(process.logClosed, 1);
}

TEST_F(LogTest, RunsStaticDestructorsAndExitHandlers) {
    struct Noting {
        ~Noting() { Note("destructor"); }
    };

    const EndedProcess process = RunForked([]() -> int {
        static const Noting noting;
        std::atexit([] { Note("handler, log closed " + std::to_string(LogConnection().closed)); });
        LogExit(0);
    });

    EXPECT_THAT(process.notes, ElementsAre("handler, log closed 1", "destructor"));
}

TEST_F(LogTest, ExitsWithTheStatusEvenIfTheLineCannotBeWritten) {
    const EndedProcess process = RunForked([]() -> int {
        MakeSyslogThrow(true);
        LogExit(3);
    });

    EXPECT_TRUE(process.ExitedWith(3));
    EXPECT_EQ(process.logClosed, 1);
    EXPECT_THAT(process.lines, IsEmpty());
}

TEST_F(LogTest, ExitsWithTheStatusAlthoughTheLogTakesNoLine) {
    const EndedProcess process = RunForked([]() -> int {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);  // as while the process starts
        MakeSyslogWait(3600);
        LogExit(3);
    });

    EXPECT_TRUE(process.ExitedWith(3));
}

TEST_F(LogTest, ExitsWithTheStatusAndTheReasonBefore) {
    const EndedProcess process = RunForked([]() -> int {
        roleTag = "P ";
        LogErrorAndExit(1, "100% sure");
    });

    EXPECT_TRUE(process.ExitedWith(1));
    EXPECT_THAT(process.lines,
                ElementsAre(process.Error("P ", "100% sure"), process.Exit("P ", 1)));
}

TEST_F(LogTest, ExitsWithTheStatusAlthoughTheLogTakesNoReason) {
    const EndedProcess process = RunForked([]() -> int {
        MakeSyslogWait(3600);
        LogErrorAndExit(3, "a");
    });

    EXPECT_TRUE(process.ExitedWith(3));
}

TEST_F(LogTest, LeavesTheExitLineSomeSeconds) {
    const EndedProcess process = RunForked([]() -> int {
        roleTag = "C ";
        MakeSyslogWait(3);
        LogExit(3);
    });

    EXPECT_TRUE(process.ExitedWith(3));
    EXPECT_THAT(process.lines, ElementsAre(process.Exit("C ", 3)));
}

TEST_F(LogTest, LimitsOnlyTheExitLineAndNotWhatFollowsIt) {
    const EndedProcess process = RunForked([]() -> int {
        std::atexit([] { Note("alarm left " + std::to_string(alarm(0))); });
        LogExit(0);
    });

    EXPECT_THAT(process.notes, ElementsAre("alarm left 0"));
}

}  // namespace kennly::test
