#include "status/DaemonProcesses.h"

#include <optional>

#include "support/WithoutPrivileges.h"
#include "unit/status/OwnDataTest.h"
#include "unit/status/PlainProcess.h"

namespace kennly::test {

using Role = DaemonProcess::Role;

/// Processes of a program that is called like the daemon's.
class DaemonProcessesTest : public OwnDataTest {
protected:
    static std::optional<DaemonProcess> Find(pid_t number) {
        for (const DaemonProcess& process : FindDaemonProcesses()) {
            if (process.number == number) {
                return process;
            }
        }
        return std::nullopt;
    }
    static bool HasMarked(const std::string& mark) {
        for (const DaemonProcess& process : FindDaemonProcesses()) {
            if (!process.arguments.empty() && process.arguments.back() == mark) {
                return true;
            }
        }
        return false;
    }

    const StandInProgram program;
};

TEST_F(DaemonProcessesTest, TellsTheRoleByTheOptions) {
    struct Row {
        std::vector<std::string> options;
        Role role;
        bool isWatcher;
    };
    const std::vector<Row> rows = {
        {{}, Role::Parent, false},
        {{"-w"}, Role::Parent, false},
        {{"-W"}, Role::Parent, true},
        {{"-w", "-W"}, Role::Parent, true},
        {{"-Z"}, Role::Child, false},
        {{"-w", "-Z"}, Role::Child, false},
        {{"-w", "-W", "-Z"}, Role::Child, true},
        {{"-f"}, Role::Foreground, false},
        {{"-fast"}, Role::Foreground, false},
        {{"-f", "-W"}, Role::Foreground, true},
        {{"-f", "-Z"}, Role::Child, false},
        {{"f", "W", "Z"}, Role::Parent, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.options));
        const PlainProcess process(program.path, program.With(row.options));

        const auto found = Find(process.Number());

        ASSERT_TRUE(found);
        EXPECT_EQ(found->role, row.role);
        EXPECT_EQ(found->isWatcher, row.isWatcher);
        EXPECT_EQ(found->parent, getpid());
        EXPECT_EQ(found->threads, 1);
        EXPECT_EQ(found->arguments, program.With(row.options));
        EXPECT_FALSE(found->hasEnded);
        EXPECT_TRUE(found->dataKnown);
    }
    EXPECT_STREQ(NameOf(Role::Parent), "parent");
    EXPECT_STREQ(NameOf(Role::Child), "child");
    EXPECT_STREQ(NameOf(Role::Foreground), "foreground");
}

TEST_F(DaemonProcessesTest, LeavesOutWhatOnlyHasASimilarName) {
    for (const char* const name : {"kennly2", "kenn", "Kennly", "xkennly"}) {
        SCOPED_TRACE(name);
        const StandInProgram other(name);
        const PlainProcess process(other.path, {"/usr/sbin/kennly", "-f"});
        EXPECT_FALSE(Find(process.Number()));
    }
}

TEST_F(DaemonProcessesTest, LeavesOutAScriptOfThatName) {
    const TemporaryDirectory directory;
    const std::string script = directory.Write("kennly", "#!/bin/sh\nread line\n");
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    const PlainProcess process(script, {script, "-f"});
    EXPECT_FALSE(Find(process.Number()));
}

TEST_F(DaemonProcessesTest, LeavesOutWhatIsJustEnding) {
    const PlainProcess process(program.path, program.With({"-W"}));
    ASSERT_TRUE(Find(process.Number()));
    EXPECT_FALSE(IsAnyJustEnding());
    process.Ask({"forget"});
    EXPECT_FALSE(Find(process.Number())) << "nobody knows of which tree it was";
    EXPECT_TRUE(IsAnyJustEnding());
}

TEST_F(DaemonProcessesTest, LeavesOutCopiesThatAreAboutToBecomeSomethingElse) {
    struct Row {
        std::vector<std::string> parent;
        std::vector<std::string> child;
        bool isShown;
    };
    const std::vector<Row> rows = {
        {{"-w"}, {"-w", "-Z"}, true},         // a tree
        {{"-w"}, {"-w"}, false},              // a copy of a parent, before it executes the child
        {{"-w", "-Z"}, {"-w", "-Z"}, false},  // a copy of a child, before it executes a command
        {{"-f"}, {"-f"}, false},
        {{"-f"}, {"-W"}, true},  // another tree, which the first process of a container adopts
        {{"-f"}, {"-W", "-Z"}, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.parent) + ::testing::PrintToString(row.child));
        const PlainProcess parent(program.path, program.With(row.parent));
        std::vector<std::string> request = {"child"};
        request.insert(request.end(), row.child.begin(), row.child.end());
        const pid_t child = parent.Ask(request);

        EXPECT_TRUE(Find(parent.Number()));
        EXPECT_EQ(Find(child).has_value(), row.isShown);
    }
}

TEST_F(DaemonProcessesTest, TakesWhatHasEndedForAChildOfItsParentsTree) {
    for (const bool isWatcher : {false, true}) {
        SCOPED_TRACE(isWatcher);
        const PlainProcess parent(program.path, program.With({isWatcher ? "-W" : "-w"}));
        const auto found = Find(parent.Ask({"ended"}));
        ASSERT_TRUE(found);
        EXPECT_TRUE(found->hasEnded);
        EXPECT_EQ(found->role, Role::Child);
        EXPECT_EQ(found->isWatcher, isWatcher);
        EXPECT_EQ(found->parent, parent.Number());
    }
}

TEST_F(DaemonProcessesTest, SeesThatTheProgramHasBeenReplaced) {
    namespace fs = std::filesystem;
    struct Row {
        const char* name;
        void (*replace)(const std::string& path);
        bool isReplaced;
    };
    const std::vector<Row> rows = {
        {"left alone", [](const std::string&) {}, false},
        {"touched", [](const std::string& path) { fs::last_write_time(path, {}); }, false},
        {"removed", [](const std::string& path) { fs::remove(path); }, true},
        {"another one renamed over it",
         [](const std::string& path) {
             fs::copy_file(path, path + ".new");
             fs::rename(path + ".new", path);
         },
         true},
        {"moved away, and another one put there",
         [](const std::string& path) {
             fs::rename(path, path + ".old");
             fs::copy_file(path + ".old", path);
         },
         true},
        {"moved away", [](const std::string& path) { fs::rename(path, path + ".old"); }, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const StandInProgram own;
        const PlainProcess process(own.path, own.With({"-f"}));
        row.replace(own.path);

        const auto found = Find(process.Number());

        ASSERT_TRUE(found);
        EXPECT_EQ(found->programReplaced, row.isReplaced);
        EXPECT_EQ(found->program.compare(0, own.path.size(), own.path), 0) << found->program;
        EXPECT_EQ(found->program.find("(deleted)"), std::string::npos);
    }
}

TEST_F(DaemonProcessesTest, SeesThatALinkToTheProgramHasBeenChanged) {
    const StandInProgram next;
    const TemporaryDirectory directory;
    const std::string link = directory.Path("kennly");
    std::filesystem::create_symlink(program.path, link);
    const PlainProcess process(link, {link, "-f"});
    ASSERT_TRUE(Find(process.Number()));
    EXPECT_FALSE(Find(process.Number())->programReplaced);

    std::filesystem::remove(link);
    std::filesystem::create_symlink(next.path, link);

    EXPECT_TRUE(Find(process.Number())->programReplaced);
    EXPECT_EQ(Find(process.Number())->program, program.path);
}

TEST_F(DaemonProcessesTest, KnowsTheDirectoryItWasStartedInWhileThatIsThere) {
    const TemporaryDirectory directory;
    const std::string start = directory.Path("start");
    std::filesystem::create_directory(start);
    PlainStart there;
    there.directory = start;
    const PlainProcess process(program.path, program.With({"-f"}), there);
    ASSERT_TRUE(Find(process.Number()));
    EXPECT_EQ(Find(process.Number())->directory, start);

    std::filesystem::remove(start);

    EXPECT_EQ(Find(process.Number())->directory, "");
}

TEST_F(DaemonProcessesTest, LeavesOutThoseWithOtherData) {
    PlainStart other;
    other.hasOtherData = true;
    {
        const PlainProcess process(program.path, program.With({"-f"}), other);
        EXPECT_FALSE(Find(process.Number())) << "it has no configuration directory";
    }
    other.otherDirectories = {"config"};
    {
        const PlainProcess process(program.path, program.With({"-f"}), other);
        EXPECT_FALSE(Find(process.Number())) << "it has one of its own";
    }
    std::filesystem::remove_all(ConfigDirectoryPath);
    {
        const PlainProcess process(program.path, program.With({"-f"}), other);
        EXPECT_FALSE(Find(process.Number())) << "it has one, and this process has none";
    }
    const PlainProcess process(program.path, program.With({"-f"}));
    EXPECT_TRUE(Find(process.Number())) << "neither has one";
}

TEST_F(DaemonProcessesTest, ShowsAnotherUserWhatCanBeKnownAndNoMore) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const PlainProcess process(program.path, program.With({"-f", "-W"}));
    PlainStart contained;
    contained.hasOwnNumbers = true;
    const PlainProcess container(program.path, program.With({"-f", "contained"}), contained);
    EXPECT_TRUE(HasMarked("contained"));  // it has the same data, which root can see

    const WithoutPrivileges anybody;

    const auto found = Find(process.Number());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->role, Role::Foreground);
    EXPECT_TRUE(found->isWatcher);
    EXPECT_FALSE(found->dataKnown);
    EXPECT_EQ(found->program, "");
    EXPECT_EQ(found->directory, "");
    EXPECT_FALSE(found->programReplaced);
    EXPECT_FALSE(HasMarked("contained"));
}

}  // namespace kennly::test
