#include "status/RunningCommands.h"

#include "lint/DaemonVerdict.h"
#include "status/ProcFile.h"
#include "support/SandboxPolling.h"
#include "unit/status/OwnDataTest.h"
#include "unit/status/PlainProcess.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Commands that run under a process that stands in for the daemon's child. They wait for the end
/// of an input that ends with it.
class RunningCommandsTest : public ::testing::Test {
protected:
    void Load(const std::string& content) {
        jobs = AskDaemon(directory.Write("kennly.xml", RootOf(content))).jobs;
    }
    DaemonProcess Daemon() const {
        DaemonProcess process;
        process.number = worker.Number();
        process.program = program.path;
        process.arguments = program.With({"-Z"});
        process.startTicks = ReadProcStat(worker.Number())->startTicks;
        return process;
    }
    RunningCommands Find() const { return FindRunningCommands(Daemon(), jobs); }
    pid_t Run(std::vector<std::string> words) const {
        words.insert(words.begin(), "run");
        return worker.Ask(words);
    }

    const TemporaryDirectory directory;
    const StandInProgram program;
    const PlainProcess worker{program.path, program.With({"-Z"})};
    // The last word of remedies. They are looked for among the processes of the whole machine, and
    // no other test has a command with such a word.
    const std::string file = directory.Path("input");
    std::vector<JobHandle> jobs;
};

TEST_F(RunningCommandsTest, FindsTheShellOfACheck) {
    Load(CommandJob("web", "read line; true") + CommandJob("mail", "true"));
    const std::string line = DogCheckCommandWatch::CommandLineOf("read line; true");
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"/bin/sh", "sh", "-c", line}, {"/bin/bash", "sh", "-c", "--", line}}) {
        SCOPED_TRACE(::testing::PrintToString(words));
        const pid_t number = Run(words);

        const RunningCommands found = Find();

        ASSERT_THAT(found.checks, SizeIs(1));
        EXPECT_EQ(found.checks[0].number, number);
        EXPECT_EQ(found.checks[0].text, "read line; true");
        EXPECT_THAT(found.checks[0].jobs, ElementsAre("web"));
        EXPECT_GE(found.checks[0].seconds, 0);
        EXPECT_LT(found.checks[0].seconds, 600);
        EXPECT_THAT(found.remedies, IsEmpty());
        EXPECT_TRUE(found.remediesKnown);
        kill(number, SIGKILL);
        ASSERT_TRUE(WaitUntil([&] { return ReadProcStat(number)->state == 'Z'; },
                              std::chrono::seconds(60)));
    }
}

TEST_F(RunningCommandsTest, FindsTheLastCommandOfACheckThatHasTakenTheShellsPlace) {
    Load(CommandJob("web", "true; FOO=1 cat &quot;-&quot;") + CommandJob("mail", "cat -") +
         CommandJob("dns", "cat -u -"));
    Run({"/bin/cat", "cat", "-"});
    const RunningCommands found = Find();
    ASSERT_THAT(found.checks, SizeIs(1));
    EXPECT_THAT(found.checks[0].jobs, ElementsAre("web", "mail"));
}

TEST_F(RunningCommandsTest, FindsAScriptBehindItsInterpreter) {
    const std::string script = directory.Write("probe", "read line\n");
    Load(CommandJob("web", script + " fast"));
    Run({"/bin/sh", "/bin/sh", script, "fast"});
    const RunningCommands found = Find();
    ASSERT_THAT(found.checks, SizeIs(1));
    EXPECT_THAT(found.checks[0].jobs, ElementsAre("web"));
    EXPECT_EQ(found.checks[0].text, script + " fast");
}

TEST_F(RunningCommandsTest, ShowsChildrenOfNoKnownJob) {
    Load(CommandJob("web", "true"));
    Run({"/bin/cat", "cat", "-u"});
    const RunningCommands found = Find();
    ASSERT_THAT(found.checks, SizeIs(1));
    EXPECT_THAT(found.checks[0].jobs, IsEmpty());
    EXPECT_EQ(found.checks[0].text, "cat -u");
}

TEST_F(RunningCommandsTest, LeavesOutWhatIsNoCheck) {
    Load(CommandJob("web", "true", "cat"));
    Run({"/bin/sh", "sh", "-c", "read line; nohup cat 1>/dev/null 2>/dev/null &"});  // a remedy's
    worker.Ask({"child", "-Z"});  // a copy that is about to become a command
    worker.Ask({"ended"});
    const PlainProcess other("/bin/cat", {"cat", "-u"});  // of another parent
    EXPECT_THAT(Find().checks, IsEmpty());
}

TEST_F(RunningCommandsTest, FindsARemedyByAllItsMarks) {
    Load(CommandJob("web", "true", "cat - " + file) +
         CommandJob("mail", "true", "cat '-' " + file) + CommandJob("dns", "true", "cat " + file));
    PlainStart remedy;
    remedy.ignoresHangup = remedy.writesToNowhere = remedy.leadsSession = true;
    const PlainProcess process("/bin/cat", {"cat", "-", file}, remedy);

    const RunningCommands found = Find();

    ASSERT_THAT(found.remedies, SizeIs(1));
    EXPECT_EQ(found.remedies[0].number, process.Number());
    EXPECT_THAT(found.remedies[0].jobs, ElementsAre("web", "mail"));
    EXPECT_EQ(found.remedies[0].text, "cat '-' " + file);
    EXPECT_THAT(found.checks, IsEmpty());
}

TEST_F(RunningCommandsTest, TakesNothingForARemedyThatLacksAMark) {
    Load(CommandJob("web", "true", "cat - " + file));
    PlainStart remedy;
    remedy.ignoresHangup = remedy.writesToNowhere = remedy.leadsSession = true;
    for (bool PlainStart::*const mark :
         {&PlainStart::ignoresHangup, &PlainStart::writesToNowhere, &PlainStart::leadsSession}) {
        PlainStart lacking = remedy;
        lacking.*mark = false;
        const PlainProcess process("/bin/cat", {"cat", "-", file}, lacking);
        EXPECT_THAT(Find().remedies, IsEmpty());
    }
    const PlainProcess other("/bin/cat", {"cat", "-", file, "-"}, remedy);
    EXPECT_THAT(Find().remedies, IsEmpty());
    const PlainProcess process("/bin/cat", {"cat", "-", file}, remedy);
    DaemonProcess later = Daemon();
    later.startTicks = ReadProcStat(process.Number())->startTicks + 1;
    EXPECT_THAT(FindRunningCommands(later, jobs).remedies, IsEmpty());
}

TEST_F(RunningCommandsTest, DoesNotKnowTheRemediesOfAnotherUser) {
    Load(CommandJob("web", "true", "cat - " + file));
    DaemonProcess hidden = Daemon();
    hidden.program = "";
    EXPECT_FALSE(FindRunningCommands(hidden, jobs).remediesKnown);
}

}  // namespace kennly::test
