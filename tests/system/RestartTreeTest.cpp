#include "system/RecoveryFixture.h"

namespace kennly::test {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

inline const std::string LockFile = DataDirectory + "/restart-tree.lock";

/// The command in the place of a remedy, beside trees that do not watch each other.
class RestartTreeTest : public BackgroundTest {
protected:
    void SetUp() override {
        BackgroundTest::SetUp();
        ASSERT_TRUE(sandbox);
        Configure(Configuration(Marker("main")));
        Configure(Configuration(Marker("watcher")), WatcherConfiguration);
    }

    std::unique_ptr<SandboxProcess> StartScript(const std::vector<std::string>& arguments,
                                                StartOptions start = {}) const {
        std::vector<std::string> command = {KENNLY_SAMPLES "/restart-tree"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        start.captureError = true;
        return sandbox->Start(command, start);
    }

    /// The exit status, -1 when it did not exit.
    static int StatusOf(SandboxProcess& script) {
        const int status = script.WaitForEnd(2 * Generous).value_or(-1);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int RunScript(const std::vector<std::string>& arguments, const StartOptions& start = {}) const {
        return StatusOf(*StartScript(arguments, start));
    }

    /// What the command has said so far, each line complete.
    std::vector<std::string> Reasons() const {
        std::vector<std::string> reasons;
        for (const std::string& line : Lines()) {
            if (line.find("restart-tree") != std::string::npos) {
                reasons.push_back(line);
            }
        }
        return reasons;
    }
    static std::string Reason(const std::string& text) {
        return "kennly local4.err restart-tree: " + text;
    }

    /// Runs the command, which has to fail with one line in the log and another one on standard
    /// error, and to change nothing.
    void ExpectRefusal(const std::vector<std::string>& arguments, const std::string& reason,
                       const StartOptions& start = {}) const {
        const std::vector<pid_t> before = sandbox->Processes();
        const std::size_t count = Reasons().size();

        const auto script = StartScript(arguments, start);

        EXPECT_EQ(StatusOf(*script), 1);
        EXPECT_THAT(script->ErrorText(), HasSubstr("restart-tree: " + reason + "\n"));
        EXPECT_TRUE(
            sandbox->WaitForLog([&](const auto&) { return Reasons().size() > count; }, Generous));
        ASSERT_THAT(Reasons(), SizeIs(count + 1));
        EXPECT_EQ(Reasons().back(), Reason(reason));
        EXPECT_EQ(sandbox->Processes(), before);
    }

    /// Has a child stop in such a way that its tree needs to be restarted.
    void Hang(const std::string& child) const {
        SendTo(child, SIGSTOP);
        ASSERT_TRUE(WaitUntil([&] { return StatusField(Role(child).outside, "State")[0] == 'T'; },
                              Generous));
        ASSERT_TRUE(sandbox->SetFileTime(HeartbeatOf.at(child), 1));
    }

    /// Waits until the hanging child is to end, and has it go on.
    void GoOnToEnd(const std::string& child) const {
        ASSERT_TRUE(WaitUntil(
            [&] { return HasSignal(StatusField(Role(child).outside, "ShdPnd"), SIGTERM); },
            Generous));
        SendTo(child, SIGCONT);
    }

    /// The running tree hangs and is restarted: `others` stay, and no one else does.
    void ExpectRestart(const std::string& program, const std::vector<std::string>& others = {}) {
        const std::map<std::string, DaemonProcess> before = roles;
        ASSERT_NO_FATAL_FAILURE(Hang("C "));
        const auto script = StartScript({"main", program});
        ASSERT_NO_FATAL_FAILURE(GoOnToEnd("C "));
        EXPECT_EQ(StatusOf(*script), 0) << script->ErrorText();

        std::vector<std::string> all = MainTree;
        all.insert(all.end(), others.begin(), others.end());
        ASSERT_TRUE(WaitForTrees(all));
        for (const std::string& of : MainTree) {
            EXPECT_NE(Role(of).number, before.at(of).number) << of;
        }
        for (const std::string& of : others) {
            EXPECT_EQ(Role(of).number, before.at(of).number) << of;
        }
        ExpectOneRestart();
    }

    /// Ends the trees: of the main one there have been two.
    void ExpectOneRestart() const {
        StopTrees();
        EXPECT_TRUE(WaitForExitsOf(MainTree));
        EXPECT_THAT(ExitsOfMainParents(), SizeIs(2));
        EXPECT_THAT(Reasons(), IsEmpty());
    }

    /// One line for each tree that has been started and has ended as it was told.
    std::vector<std::string> ExitsOfMainParents() const {
        std::vector<std::string> exits;
        for (const std::string& line : Lines()) {
            if (line.find(":P  exit(0)") != std::string::npos) {
                exits.push_back(line);
            }
        }
        return exits;
    }

    /// Makes a directory inside and returns its path.
    std::string MakeDirectory(const std::string& name) const {
        std::filesystem::create_directories(sandbox->PathInside(PathOf(name)));
        return PathOf(name);
    }

    /// An executable file with that content.
    std::string MakeProgram(const std::string& name, const std::string& content) const {
        EXPECT_TRUE(sandbox->WriteFile(PathOf(name), content));
        std::filesystem::permissions(sandbox->PathInside(PathOf(name)),
                                     std::filesystem::perms{0755});
        return PathOf(name);
    }

    unsigned ModeOf(const std::string& path) const {
        struct stat status = {};
        EXPECT_EQ(stat(sandbox->PathInside(path).c_str(), &status), 0) << path;
        return status.st_mode & 07777U;
    }
};

// ---- what it refuses

TEST_F(RestartTreeTest, RefusesWhatIsNoTreeAndNoProgram) {
    StartTrees({}, MainTree);
    ASSERT_NO_FATAL_FAILURE(Hang("C "));
    const std::string usage = "usage: restart-tree main|watcher PROGRAM";
    const std::string file = PathOf("file");
    ASSERT_TRUE(sandbox->WriteFile(file, ""));
    struct Row {
        std::vector<std::string> arguments;
        std::string reason;
    };
    const std::vector<Row> rows = {
        {{}, usage},
        {{"main"}, usage},
        {{"main", KENNLY_PROGRAM, "more"}, usage},
        {{"both", KENNLY_PROGRAM}, "there is no tree both"},
        {{"", KENNLY_PROGRAM}, "there is no tree "},
        {{"main", "kennly"}, "not an absolute path: kennly"},
        {{"main", ""}, "not an absolute path: "},
        {{"main", "/nonsense"}, "cannot be executed: /nonsense"},
        {{"main", "/"}, "cannot be executed: /"},
        {{"main", file}, "cannot be executed: " + file},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.arguments));

        ASSERT_NO_FATAL_FAILURE(ExpectRefusal(row.arguments, row.reason));
    }
    SendTo("C ", SIGCONT);
    StopTrees();
}

TEST_F(RestartTreeTest, RefusesToWorkWithoutOneOfItsTools) {
    StartTrees({}, MainTree);
    ASSERT_NO_FATAL_FAILURE(Hang("C "));
    const std::vector<std::string> tools = {"cut",      "date", "find",  "flock", "logger",
                                            "readlink", "sed",  "sleep", "stat",  "tr"};
    for (const std::string& missing : tools) {
        SCOPED_TRACE(missing);
        const std::string directory = MakeDirectory("without-" + missing);
        for (const std::string& tool : tools) {
            if (tool != missing) {
                std::filesystem::create_symlink("/usr/bin/" + tool,
                                                sandbox->PathInside(directory) + "/" + tool);
            }
        }
        StartOptions start;
        start.environment = {{"PATH", directory}};

        if (missing == "logger") {
            EXPECT_EQ(RunScript({"main", KENNLY_PROGRAM}, start), 1);
        } else {
            ASSERT_NO_FATAL_FAILURE(
                ExpectRefusal({"main", KENNLY_PROGRAM}, missing + " is missing", start));
        }
    }
    SendTo("C ", SIGCONT);
    StopTrees();
}

TEST_F(RestartTreeTest, RefusesToRestartWhatRunsInTheForeground) {
    StartDaemon({"-f"});
    ASSERT_TRUE(WaitForHeartbeat());
    ASSERT_NO_FATAL_FAILURE(
        ExpectRefusal({"main", KENNLY_PROGRAM}, "process " + number +
                                                    " runs in the foreground: have its starter "
                                                    "restart it"));

    EXPECT_EQ(RunScript({"watcher", KENNLY_PROGRAM}), 0);

    EXPECT_TRUE(OnlyDaemonProcess(*sandbox, "WP"));
    EXPECT_TRUE(daemon->Running());
}

TEST_F(RestartTreeTest, RefusesToWorkWithoutItsLock) {
    StartTrees({}, MainTree);
    ASSERT_NO_FATAL_FAILURE(Hang("C "));
    MakeDirectory("restart-tree.lock");

    ExpectRefusal({"main", KENNLY_PROGRAM}, "cannot open " + LockFile);

    SendTo("C ", SIGCONT);
    StopTrees();
}

// ---- when it has nothing to do

TEST_F(RestartTreeTest, LeavesATreeAloneWhoseHeartbeatsAreFresh) {
    StartTrees({}, MainTree);
    ASSERT_TRUE(WaitForBeatsOf(MainTree));

    EXPECT_EQ(RunScript({"main", KENNLY_PROGRAM}), 0);

    EXPECT_TRUE(WaitUntilOnly(MainTree));
    EXPECT_EQ(ModeOf(LockFile), 0600U);  // nobody else can hold it, and so hold up restarts
    StopTrees();
    EXPECT_TRUE(WaitForExitsOf(MainTree));
    EXPECT_THAT(Lines(), UnorderedElementsAre(LoadedOf("C ", "main"), ExitOf("P "), ExitOf("C ")));
}

TEST_F(RestartTreeTest, DoesNothingWhileAnotherRestartIsUnderWay) {
    StartTrees({}, MainTree);
    ASSERT_NO_FATAL_FAILURE(Hang("C "));
    const auto first = StartScript({"main", KENNLY_PROGRAM});
    ASSERT_TRUE(WaitUntil(
        [&] { return HasSignal(StatusField(Role("C ").outside, "ShdPnd"), SIGTERM); }, Generous));

    for (const char* const tree : {"main", "watcher"}) {
        EXPECT_EQ(RunScript({tree, KENNLY_PROGRAM}), 0) << tree;
        EXPECT_TRUE(first->Running());
    }

    SendTo("C ", SIGCONT);
    EXPECT_EQ(StatusOf(*first), 0);
    ASSERT_TRUE(WaitForTrees(MainTree));
    ExpectOneRestart();
}

// ---- whom it ends

TEST_F(RestartTreeTest, EndsNotTheOtherTree) {
    StartTrees({"-wx y"}, BothTrees);

    ExpectRestart(KENNLY_PROGRAM, WatcherTree);
}

// As in the program itself, only the first two characters of an option count.
TEST_F(RestartTreeTest, KnowsTheOtherTreeByABeginOfAnOption) {
    StartTrees({}, MainTree);
    StartTrees({"-Wx y"}, BothTrees);

    ExpectRestart(KENNLY_PROGRAM, WatcherTree);
}

TEST_F(RestartTreeTest, KnowsAProgramWithAnyPath) {
    const std::string program = MakeDirectory("an 'odd' [$x]* \"path\" (deleted)") + "/kennly";
    std::filesystem::copy_file(KENNLY_PROGRAM, sandbox->PathInside(program));
    StartTreesBy({program}, MainTree);

    ExpectRestart(program);
}

TEST_F(RestartTreeTest, KnowsATreeThatWasStartedByAnotherPath) {
    std::vector<std::string> links;
    for (const char* const name : {"one", "another"}) {
        links.push_back(MakeDirectory(name) + "/kennly");
        std::filesystem::create_symlink(KENNLY_PROGRAM, sandbox->PathInside(links.back()));
    }
    StartTreesBy({links[0]}, MainTree);

    ExpectRestart(links[1]);
}

TEST_F(RestartTreeTest, KnowsATreeWhoseFileHasBeenReplaced) {
    const std::string program = MakeDirectory("new") + "/kennly";
    std::filesystem::copy_file(KENNLY_PROGRAM, sandbox->PathInside(program));
    StartTreesBy({program}, MainTree);
    ASSERT_TRUE(sandbox->RemoveFile(program));
    std::filesystem::copy_file(KENNLY_PROGRAM, sandbox->PathInside(program));

    ExpectRestart(program);
}

TEST_F(RestartTreeTest, LeavesTheProgramInAContainerAlone) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "a container needs root";
    }
    const std::string ownData = "mount -t tmpfs none " + DataDirectory + " && mkdir -p " +
                                DataDirectory + "/config/filetimes && echo '" +
                                Configuration(Marker("container")) + "' >" + MainConfiguration;
    daemon = sandbox->Start({"unshare", "--mount", "--pid", "--fork", "--mount-proc", "sh", "-c",
                             ownData + " && exec " KENNLY_PROGRAM " -f"});
    ASSERT_TRUE(WaitForLine(DebugLine("1", "  ", LoadedText("container"))));

    EXPECT_EQ(RunScript({"main", KENNLY_PROGRAM}), 0);

    EXPECT_TRUE(OnlyDaemonProcess(*sandbox, "P "));
    EXPECT_TRUE(daemon->Running());
    EXPECT_THAT(Reasons(), IsEmpty());
}

// ---- what it starts

TEST_F(RestartTreeTest, StartsATreeThatInheritsNothing) {
    ASSERT_EQ(RunScript({"watcher", KENNLY_PROGRAM}), 0);

    ASSERT_TRUE(WaitForTrees(WatcherTree));
    for (const std::string& of : WatcherTree) {
        EXPECT_EQ(ModeOf(HeartbeatOf.at(of)), 0644U) << of;
        for (const auto& [descriptor, file] : OpenDescriptors(Role(of).outside)) {
            EXPECT_NE(file, LockFile) << of << " has descriptor " << descriptor;
        }
    }
    StopTrees();
}

TEST_F(RestartTreeTest, TellsOfATreeThatDoesNotComeUp) {
    const std::string idle = MakeProgram("idle", "#!/bin/sh\nexit 0\n");
    const std::string failing = MakeProgram("failing", "#!/bin/sh\nexit 3\n");

    ExpectRefusal({"main", idle},
                  "the main tree has been started, and its heartbeats are not fresh");
    ExpectRefusal({"watcher", failing}, failing + " has not started");
}

// ---- as a remedy

using RestartRemedyTest = RecoveryFixture;

TEST_F(RestartRemedyTest, RestartsNothingDuringMaintenance) {
    ASSERT_TRUE(sandbox->WriteFile(DataDirectory + "/maintenance", ""));
    StartTrees({"-w"}, BothTrees);
    const std::map<std::string, DaemonProcess> before = roles;

    SendTo("P ", SIGKILL);

    ASSERT_TRUE(WaitUntilOnly(WatcherTree));
    // For longer than the greatest age: without the file the remedies would have run.
    const std::int64_t last = TimeOf(ChildHeartbeat);
    ASSERT_TRUE(WaitForHeartbeat(last + std::int64_t{14} * 1'000'000'000, WatcherChildHeartbeat));
    EXPECT_TRUE(WaitUntilOnly(WatcherTree));
    EXPECT_THAT(Lines(), Not(Contains(HasSubstr("running remedy"))));
    ASSERT_TRUE(sandbox->RemoveFile(DataDirectory + "/maintenance"));
    ASSERT_NO_FATAL_FAILURE(ExpectTreeReplaced(before, "P ", last));
    StopTrees();
}

TEST_F(RestartRemedyTest, RestartsOnceForOneFailureAlsoWhenARemedyComesLate) {
    // The child's heartbeat goes stale up to a second or two after the parent's, before the remedy
    // of the parent's job; its own remedy waits until that one has long done its work.
    std::string configuration = Adapted("dogdog.xml", {});
    const std::string remedy = "type=\"Execute\"";
    configuration.insert(configuration.rfind(remedy) + remedy.size(), " delay=\"16\"");
    configuration.insert(configuration.find(remedy) + remedy.size(), " delay=\"6\"");
    Configure(configuration, WatcherConfiguration);
    StartTrees({"-w"}, BothTrees);

    ASSERT_NO_FATAL_FAILURE(ExpectTreeReplacedAfter(SIGKILL, "P "));

    ASSERT_TRUE(WaitForHeartbeat(TimeOf(WatcherChildHeartbeat) + std::int64_t{18} * 1'000'000'000,
                                 WatcherChildHeartbeat));
    EXPECT_TRUE(WaitUntilOnly(BothTrees));
    EXPECT_THAT(Lines(), Contains(HasSubstr("child check failed - running remedy")));
    StopTrees();
    EXPECT_THAT(Lines(), Not(Contains(HasSubstr(".err "))));
}

}  // namespace kennly::test
