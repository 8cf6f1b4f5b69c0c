#include "ctl/Replacement.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <set>
#include <thread>

#include "support/AccessTimes.h"
#include "support/SandboxPolling.h"
#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class ReplacementTest : public ::testing::Test {
protected:
    std::unique_ptr<Replacement> Prepare(const std::string& name, const std::string& content) {
        failure.clear();
        return Replacement::Prepare(directory.Path(name), content, failure);
    }
    std::string Replace(const std::string& name, const std::string& content) {
        const auto replacement = Prepare(name, content);
        return replacement ? replacement->TakePlace() : failure;
    }
    struct stat StatusOf(const std::string& name) const {
        struct stat status = {};
        EXPECT_EQ(lstat(directory.Path(name).c_str(), &status), 0) << name;
        return status;
    }
    std::set<std::string> Entries() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory.Path(""))) {
            names.insert(entry.path().filename());
        }
        return names;
    }

    const TemporaryDirectory directory;
    std::string failure;
};

TEST_F(ReplacementTest, GivesATimeThatDiffersInItsSecond) {
    EXPECT_EQ(TimeOfReplacement(100, 200), 200);
    EXPECT_EQ(TimeOfReplacement(199, 200), 200);
    EXPECT_EQ(TimeOfReplacement(200, 200), 201);
    EXPECT_EQ(TimeOfReplacement(201, 200), 202);  // as twice in one second
    EXPECT_EQ(TimeOfReplacement(500, 200), 501);
}

TEST_F(ReplacementTest, TakesThePlaceWithOwnerGroupAndMode) {
    directory.Write("live", "old");
    ASSERT_EQ(chmod(directory.Path("live").c_str(), 0640), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(directory.Path("live").c_str(), 1234, 4321), 0);
    }
    const struct stat before = StatusOf("live");

    const auto replacement = Prepare("live", "new");
    ASSERT_TRUE(replacement) << failure;
    EXPECT_EQ(directory.Read("live"), "old");
    EXPECT_EQ(replacement->DraftPath(), directory.Path("live.new.") + std::to_string(getpid()));
    EXPECT_EQ(replacement->TakePlace(), "");

    EXPECT_EQ(directory.Read("live"), "new");
    const struct stat after = StatusOf("live");
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_THAT(Entries(), ElementsAre("live"));
}

TEST_F(ReplacementTest, MakesAFileThatThereIsNotYet) {
    umask(077);  // which is not asked
    EXPECT_EQ(Replace("live", "new"), "");
    umask(022);
    EXPECT_EQ(directory.Read("live"), "new");
    EXPECT_EQ(StatusOf("live").st_mode, mode_t{S_IFREG | 0644});
    EXPECT_EQ(StatusOf("live").st_uid, geteuid());
}

TEST_F(ReplacementTest, HasAnotherSecondEachTimeHoweverFast) {
    directory.Write("live", "0");
    std::time_t last = StatusOf("live").st_mtime;
    for (int i = 1; i <= 5; ++i) {
        ASSERT_EQ(Replace("live", std::to_string(i)), "");
        EXPECT_GT(StatusOf("live").st_mtime, last);
        last = StatusOf("live").st_mtime;
    }
    ASSERT_TRUE(directory.SetTime("live", last + 1000));
    ASSERT_EQ(Replace("live", "later"), "");
    EXPECT_EQ(StatusOf("live").st_mtime, last + 1001);
    ASSERT_TRUE(directory.SetTime("live", 1000));
    const std::time_t now = std::time(nullptr);
    ASSERT_EQ(Replace("live", "now"), "");
    EXPECT_GE(StatusOf("live").st_mtime, now);
    EXPECT_LE(StatusOf("live").st_mtime, std::time(nullptr));
}

TEST_F(ReplacementTest, ShowsEachReaderAllOfOneFile) {
    const std::string first(200'000, 'a');
    const std::string second(300'000, 'b');
    directory.Write("live", first);
    std::atomic<bool> done{false};
    std::atomic<int> reads{0};
    std::atomic<int> mixed{0};
    std::thread reader([&] {
        while (!done) {
            const std::string content = directory.Read("live");
            mixed += content != first && content != second;
            ++reads;
        }
    });
    int replacements = 0;
    EXPECT_TRUE(WaitUntil(
        [&] {
            EXPECT_EQ(Replace("live", ++replacements % 2 != 0 ? second : first), "");
            return replacements >= 20 && reads >= 20;
        },
        std::chrono::seconds(120)));
    done = true;
    reader.join();
    EXPECT_EQ(mixed, 0);
}

TEST_F(ReplacementTest, RemovesADraftThatHasNotTakenThePlace) {
    directory.Write("live", "old");
    Prepare("live", "new").reset();
    EXPECT_THAT(Entries(), ElementsAre("live"));
    EXPECT_EQ(directory.Read("live"), "old");
}

TEST_F(ReplacementTest, KeepsLinksAndReplacesWhatTheyLeadTo) {
    namespace fs = std::filesystem;
    fs::create_directories(directory.Path("etc/versions"));
    directory.Write("etc/versions/one", "old");
    fs::create_symlink("etc/link", directory.Path("live"));          // relative
    fs::create_symlink("versions/one", directory.Path("etc/link"));  // to another link
    ASSERT_EQ(chmod(directory.Path("etc/versions/one").c_str(), 0600), 0);
    ASSERT_TRUE(directory.SetTime("etc/versions/one", std::time(nullptr) + 500));
    const std::time_t old = StatusOf("etc/versions/one").st_mtime;

    ASSERT_EQ(Replace("live", "new"), "");

    EXPECT_EQ(fs::read_symlink(directory.Path("live")), "etc/link");
    EXPECT_EQ(fs::read_symlink(directory.Path("etc/link")), "versions/one");
    EXPECT_EQ(directory.Read("etc/versions/one"), "new");
    EXPECT_EQ(StatusOf("etc/versions/one").st_mode, mode_t{S_IFREG | 0600});
    EXPECT_EQ(StatusOf("etc/versions/one").st_mtime, old + 1);
    EXPECT_THAT(Entries(), UnorderedElementsAre("etc", "live"));
}

TEST_F(ReplacementTest, FollowsLinksToWhatIsNotThereAndNotForEver) {
    namespace fs = std::filesystem;
    fs::create_symlink(directory.Path("later"), directory.Path("live"));
    EXPECT_EQ(Replace("live", "new"), "");
    EXPECT_TRUE(fs::is_symlink(directory.Path("live")));
    EXPECT_EQ(directory.Read("later"), "new");

    fs::create_symlink("round", directory.Path("round"));
    EXPECT_EQ(Replace("round", "new"), "cannot follow the link " + directory.Path("round") +
                                           ": Too many levels of symbolic links");
    fs::create_symlink("nowhere/file", directory.Path("lost"));
    EXPECT_THAT(Replace("lost", "new"),
                AllOf(StartsWith("cannot create " + directory.Path("nowhere")),
                      EndsWith(": No such file or directory")));
    EXPECT_THAT(Entries(), UnorderedElementsAre("live", "later", "round", "lost"));
}

TEST_F(ReplacementTest, LeavesTheOldFileAloneWhenTheNewOneDoesNotFit) {
    directory.Write("live", "old");
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    rlimit small = limit;
    small.rlim_cur = 1000;
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);

    const std::string answer = Replace("live", std::string(2000, 'x'));

    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_THAT(answer, AllOf(StartsWith("cannot write " + directory.Path("live.new.")),
                              EndsWith(": File too large")));
    EXPECT_EQ(directory.Read("live"), "old");
    EXPECT_THAT(Entries(), ElementsAre("live"));
}

TEST_F(ReplacementTest, SaysWhatAnotherUserMayNot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    directory.Write("live", "old");
    {
        ASSERT_EQ(chmod(directory.Path("").c_str(), 0755), 0);
        const WithoutPrivileges anybody;
        EXPECT_THAT(Replace("live", "new"),
                    AllOf(StartsWith("cannot create " + directory.Path("live.new.")),
                          EndsWith(": Permission denied")));
    }
    {
        ASSERT_EQ(chmod(directory.Path("").c_str(), 0777), 0);
        const WithoutPrivileges anybody;
        EXPECT_THAT(Replace("live", "new"),
                    AllOf(StartsWith("cannot give the owner, group and mode of " +
                                     directory.Path("live") + " to " + directory.Path("live.new.")),
                          EndsWith(": Operation not permitted")));
    }
    EXPECT_EQ(directory.Read("live"), "old");
    EXPECT_THAT(Entries(), ElementsAre("live"));
}

TEST_F(ReplacementTest, SaysWhyItCannotTakeThePlace) {
    const auto replacement = Prepare("live", "new");
    ASSERT_TRUE(replacement) << failure;
    std::filesystem::create_directory(directory.Path("live"));
    EXPECT_EQ(replacement->TakePlace(),
              "cannot replace " + directory.Path("live") + ": Is a directory");
    std::filesystem::remove(replacement->DraftPath());
    EXPECT_THAT(replacement->TakePlace(), AllOf(StartsWith("cannot set the time of "),
                                                EndsWith(": No such file or directory")));
}

TEST_F(ReplacementTest, SeesThatItHasBeenRead) {
    const auto replacement = Prepare("live", "new");
    ASSERT_TRUE(replacement) << failure;
    EXPECT_TRUE(replacement->TellsOfReading());
    ASSERT_EQ(replacement->TakePlace(), "");
    EXPECT_FALSE(replacement->WasRead());
    EXPECT_EQ(directory.Read("live"), "new");
    EXPECT_TRUE(replacement->WasRead());
    std::filesystem::remove(directory.Path("live"));
    EXPECT_FALSE(replacement->WasRead());
}

TEST_F(ReplacementTest, SeesThatAnotherHasTakenThePlace) {
    const auto replacement = Prepare("live", "new");
    ASSERT_TRUE(replacement) << failure;
    EXPECT_FALSE(replacement->IsInPlace());
    ASSERT_EQ(replacement->TakePlace(), "");
    EXPECT_TRUE(replacement->IsInPlace());
    directory.Write("other", "other");
    std::filesystem::rename(directory.Path("other"), directory.Path("live"));
    EXPECT_FALSE(replacement->IsInPlace());
    std::filesystem::remove(directory.Path("live"));
    EXPECT_FALSE(replacement->IsInPlace());
}

TEST_F(ReplacementTest, KnowsWhereNothingTellsOfAReading) {
    if (!KeepsNoAccessTimes(directory.Path(""))) {
        GTEST_SKIP() << "this file system keeps times of access for all";
    }
    const auto replacement = Prepare("live", "new");
    ASSERT_TRUE(replacement) << failure;
    EXPECT_FALSE(replacement->TellsOfReading());
}

}  // namespace kennly::test
