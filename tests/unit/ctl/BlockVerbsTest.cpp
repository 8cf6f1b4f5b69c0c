#include "ctl/BlockVerbs.h"

#include <sstream>

#include "ctl/ExitStatus.h"
#include "support/WithoutPrivileges.h"
#include "unit/status/OwnDataTest.h"
#include "unit/status/PlainProcess.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

class BlockVerbsTest : public OwnDataTest {
protected:
    void SetUp() override {
        OwnDataTest::SetUp();
        const std::string block = "blockaction2='" + Block() + "'";
        Write(MainConfigPath,
              RootOf(CommandJob("web", "true", "true", block) +
                     CommandJob("mail", "true", "true", block) + CommandJob("free", "true") +
                     CommandJob("relative", "true", "true", "blockaction='block'") +
                     CommandJob("both", "true", "true",
                                "blockaction='b' blockaction3='" + directory.Path("other") + "'") +
                     CommandJob("own", "true", "true",
                                block + " blockaction3='" + directory.Path("own") + "'")));
        Write(WatcherConfigPath, RootOf(CommandJob("beats", "true", "true", block)));
    }
    std::string Block() const { return directory.Path("block"); }

    template <class Verb, class Options>
    int Run(Verb verb, const Options& options) {
        out.str("");
        err.str("");
        return verb(options, Output{out, err, false});
    }
    int BlockIt(const std::string& job, const std::string& reason = "") {
        return Run(RunBlockVerb, BlockOptions{job, false, reason, false});
    }
    int Unblock(const std::string& job, bool force = false) {
        return Run(RunUnblockVerb, BlockOptions{job, false, "", force});
    }
    int Blocks(bool watcher = false) { return Run(RunBlocksVerb, watcher); }

    const TemporaryDirectory directory;
    const StandInProgram program;
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(BlockVerbsTest, MakesAndRemovesTheFirstBlockFile) {
    EXPECT_EQ(BlockIt("web", "new disks"), ExitClean) << err.str();
    EXPECT_THAT(out.str(), AllOf(StartsWith("blocked by " + Block() + ", until"),
                                 HasSubstr("it blocks job mail as well\n"),
                                 HasSubstr("it blocks job beats of the watcher tree as well\n"),
                                 Not(HasSubstr("job web"))));
    EXPECT_THAT(directory.Read("block"),
                MatchesRegex("blocked by kennlyctl, ....-..-.. ..:..:..: new disks\n"));
    EXPECT_EQ(BlockIt("mail"), ExitClean);
    EXPECT_EQ(out.str(), "blocked already, by " + Block() + "\n");
    EXPECT_EQ(Blocks(true), ExitClean);
    EXPECT_THAT(out.str(), AllOf(StartsWith("beats (watcher tree): " + Block() + ", blocked by "),
                                 Not(HasSubstr("web"))));

    EXPECT_EQ(Unblock("mail"), ExitClean);
    EXPECT_THAT(out.str(), AllOf(StartsWith("removed " + Block() + "\n"),
                                 HasSubstr("it blocked job web as well\n"),
                                 HasSubstr("it blocked job beats of the watcher tree as well\n"),
                                 Not(HasSubstr("mail"))));
    EXPECT_FALSE(std::filesystem::exists(Block()));
    EXPECT_EQ(Unblock("web"), ExitClean);
    EXPECT_EQ(out.str(), "nothing blocks it\n");
}

TEST_F(BlockVerbsTest, PrefersABlockFileThatNoOtherJobHas) {
    EXPECT_EQ(BlockIt("own"), ExitClean) << err.str();
    EXPECT_EQ(out.str(), "blocked by " + directory.Path("own") +
                             ", until kennlyctl unblock; the check goes on\n");
    EXPECT_FALSE(std::filesystem::exists(Block()));
    EXPECT_EQ(BlockIt("web"), ExitClean);
    EXPECT_THAT(out.str(), HasSubstr("it blocks job own as well\n"));
}

TEST_F(BlockVerbsTest, RemovesWhatOthersHaveMadeOnlyByForceAndNoDirectoryEver) {
    directory.Write("block", "lock of another program");
    EXPECT_EQ(Unblock("web"), ExitFindings);
    EXPECT_THAT(err.str(), HasSubstr("made by somebody else"));
    EXPECT_TRUE(std::filesystem::exists(Block()));
    EXPECT_EQ(Blocks(), ExitClean);
    EXPECT_THAT(out.str(), HasSubstr("web: " + Block() + ", made by somebody else\n"));
    EXPECT_EQ(Unblock("web", true), ExitClean);
    EXPECT_FALSE(std::filesystem::exists(Block()));

    std::filesystem::create_directory(Block());
    EXPECT_EQ(Unblock("web", true), ExitFindings);
    EXPECT_THAT(err.str(), HasSubstr("cannot remove " + Block()));
    EXPECT_TRUE(std::filesystem::is_directory(Block()));
}

TEST_F(BlockVerbsTest, TellsWhyItCannotBlock) {
    EXPECT_EQ(BlockIt("free"), ExitFindings);
    EXPECT_THAT(err.str(), HasSubstr("has no block file"));
    EXPECT_EQ(BlockIt("none"), ExitNoInput);
    std::filesystem::create_symlink("nowhere", Block());
    EXPECT_EQ(BlockIt("web"), ExitCannotCreate);
    EXPECT_EQ(err.str(), "kennlyctl: cannot create " + Block() + ": File exists\n");
}

TEST_F(BlockVerbsTest, CountsRelativePathsFromTheDaemonsDirectory) {
    const std::filesystem::path here = std::filesystem::current_path();
    const TemporaryDirectory own;
    std::filesystem::current_path(own.Path(""));
    EXPECT_EQ(BlockIt("relative"), ExitUnavailable);
    EXPECT_EQ(err.str(),
              "kennlyctl: whether there is a file block is not known, as it counts from the "
              "directory of a daemon that does not run, or is another user's\n");
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(Unblock("relative"), ExitFindings);
    EXPECT_EQ(Blocks(), ExitClean);
    EXPECT_THAT(out.str(), HasSubstr("relative: block, unknown whether it is there\n"));
    EXPECT_FALSE(std::filesystem::exists("block"));

    PlainStart start;
    start.directory = directory.Path("");
    const PlainProcess worker(program.path, program.With({"-f"}), start);
    EXPECT_EQ(BlockIt("relative"), ExitClean) << err.str();
    EXPECT_FALSE(std::filesystem::exists("block"));
    EXPECT_TRUE(std::filesystem::exists(Block()));
    EXPECT_THAT(out.str(), HasSubstr("it blocks job web as well\n"));
    EXPECT_EQ(Unblock("relative"), ExitClean);
    EXPECT_FALSE(std::filesystem::exists(Block()));
    std::filesystem::current_path(here);
}

TEST_F(BlockVerbsTest, TakesTheFirstFileWhosePlaceIsKnown) {
    EXPECT_EQ(BlockIt("both"), ExitClean) << err.str();
    EXPECT_TRUE(std::filesystem::exists(directory.Path("other")));
    EXPECT_EQ(Unblock("both"), ExitFindings) << "the other may still block it";
    EXPECT_FALSE(std::filesystem::exists(directory.Path("other")));
    EXPECT_THAT(err.str(), HasSubstr("a file b is not known"));
}

TEST_F(BlockVerbsTest, SaysWhichConfigurationHidesBlocks) {
    Write(WatcherConfigPath, "<broken");
    directory.Write("block", "");
    EXPECT_EQ(Blocks(), ExitLoadFails);
    EXPECT_THAT(out.str(), HasSubstr("web: "));
    EXPECT_THAT(err.str(), HasSubstr(std::string(WatcherConfigPath) + " does not load"));
    std::filesystem::remove(WatcherConfigPath);
    EXPECT_EQ(Blocks(), ExitClean);
    EXPECT_EQ(err.str(), "");
    if (geteuid() == 0) {
        std::filesystem::permissions(MainConfigPath, std::filesystem::perms::owner_all);
        const WithoutPrivileges anybody;
        EXPECT_EQ(Blocks(), ExitNoInput);
        EXPECT_THAT(err.str(), HasSubstr("cannot read " + std::string(MainConfigPath)));
    }
}

}  // namespace kennly::test
