#include "ctl/StatusVerb.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include "ctl/ExitStatus.h"
#include "ctl/Json.h"
#include "support/WithoutPrivileges.h"
#include "unit/status/OwnDataTest.h"
#include "unit/status/PlainProcess.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Format = StatusOptions::Format;

/// The verb, with a process that stands in for a daemon in the foreground.
class StatusVerbTest : public OwnDataTest {
protected:
    int Status(Format format = Format::People, bool watcher = false) {
        out.str("");
        return RunStatusVerb({format, watcher, false}, {out, out, false});
    }
    /// Everything as if it ran well.
    void PretendHealth() {
        Write(MainConfigPath, RootOf(CommandJob("web", "true", "true", "blockaction='block'")));
        Write(ChildHeartbeatPath, "");
        std::filesystem::permissions(ChildHeartbeatPath, static_cast<std::filesystem::perms>(0666));
        beat = std::thread([this] {
            while (!end) {
                utimensat(AT_FDCWD, ChildHeartbeatPath, nullptr, 0);
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        });
        worker.Ask({"threads", "3"});
    }

    void TearDown() override {
        end = true;
        if (beat.joinable()) {
            beat.join();
        }
    }

    const StandInProgram program;
    PlainProcess worker{program.path, program.With({"-f"})};
    std::ostringstream out;
    std::atomic<bool> end{false};
    std::thread beat;
};

TEST_F(StatusVerbTest, EndsWithWhatIsWrong) {
    PretendHealth();
    EXPECT_EQ(Status(), ExitClean) << out.str();
    EXPECT_THAT(out.str(),
                StartsWith("main tree: runs\n  foreground " + std::to_string(worker.Number())));
    EXPECT_EQ(Status(Format::Json), ExitClean) << out.str();
    EXPECT_EQ(Json::parse(out.str()).at("main").at("configuration").at("newer_than_loaded"), false);
    EXPECT_EQ(Status(Format::Plugin), 0) << out.str();
    EXPECT_THAT(out.str(), StartsWith("KENNLY OK - main tree runs, 1 job | "));
    EXPECT_EQ(Status(Format::People, true), ExitFindings) << "no watcher tree runs";
    EXPECT_EQ(Status(Format::Plugin, true), 2);
    EXPECT_EQ(Status(Format::Prometheus, true), ExitClean);
    EXPECT_THAT(out.str(), HasSubstr("kennly_problems{code=\"not-running\",level=\"critical\"} 1"));
}

TEST_F(StatusVerbTest, EndsWithWhatDoesNotRun) {
    worker.End();
    EXPECT_EQ(Status(), ExitUnavailable);
    EXPECT_EQ(Status(Format::Json), ExitUnavailable);
    EXPECT_EQ(Status(Format::Plugin), 2);
    EXPECT_EQ(Status(Format::Prometheus), ExitClean);
}

TEST_F(StatusVerbTest, EndsWithWhatCannotBeKnown) {
    PretendHealth();
    ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
    const int people = Status();
    const std::string text = out.str();
    const int json = Status(Format::Json);
    const Json shown = Json::parse(out.str());
    const int plugin = Status(Format::Plugin);
    const std::string line = out.str();
    ASSERT_EQ(umount("/proc"), 0);

    EXPECT_EQ(people, ExitNoPermission);
    EXPECT_THAT(text, AllOf(StartsWith("main tree: unknown\n"), Not(HasSubstr("critical"))));
    EXPECT_EQ(json, ExitNoPermission);
    EXPECT_TRUE(shown.at("main").at("runs").is_null());
    EXPECT_EQ(shown.at("processes_hidden"), true);
    EXPECT_EQ(plugin, 3);
    EXPECT_THAT(line, StartsWith("KENNLY UNKNOWN - the processes of other users cannot be seen"));
}

TEST_F(StatusVerbTest, TellsAnotherUserWhatItCan) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    PretendHealth();
    {
        const WithoutPrivileges anybody;
        EXPECT_EQ(Status(), ExitClean) << out.str();
        EXPECT_THAT(out.str(),
                    AllOf(HasSubstr("unknown: which programs"),
                          HasSubstr("    remedy blocked by block: unknown, as the path")));
        EXPECT_EQ(Status(Format::Json), ExitClean);
        const Json shown = Json::parse(out.str()).at("main");
        EXPECT_TRUE(shown.at("jobs").at(0).at("blocked").is_null());
        EXPECT_TRUE(shown.at("jobs").at(0).at("remedies_probably_running").is_null());
        EXPECT_TRUE(shown.at("processes").at(0).at("program_replaced").is_null());
        EXPECT_EQ(Status(Format::Plugin), 0) << out.str();
    }
    std::filesystem::permissions(MainConfigPath, std::filesystem::perms::owner_all);
    const WithoutPrivileges anybody;
    EXPECT_EQ(Status(Format::Plugin), 3);
    EXPECT_THAT(out.str(), HasSubstr("UNKNOWN - " + std::string(MainConfigPath)));
}

TEST_F(StatusVerbTest, StopsToRepeatWhenNobodyReads) {
    PretendHealth();
    out.setstate(std::ios::badbit);
    EXPECT_EQ(RunStatusVerb({Format::People, false, true}, {out, out, false}), ExitClean);
}

}  // namespace kennly::test
