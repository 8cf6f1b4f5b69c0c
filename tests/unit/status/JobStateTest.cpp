#include "status/JobState.h"

#include "action/DogAction.h"
#include "lint/DaemonVerdict.h"
#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"
#include "unit/status/OwnDataTest.h"
#include "watch/DogWatch.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class JobStateTest : public ::testing::Test {
protected:
    std::vector<JobHandle> Jobs(const std::string& jobs) const {
        return AskDaemon(directory.Write("kennly.xml", RootOf(jobs))).jobs;
    }
    static void Block(DogAction& remedy, const std::string& first, const std::string& second = "",
                      const std::string& third = "") {
        remedy.blockAction = first;
        remedy.blockAction2 = second;
        remedy.blockAction3 = third;
    }

    const TemporaryDirectory directory;
};

TEST_F(JobStateTest, NamesTheTypesAsConfigurationsDo) {
    EXPECT_EQ(NameOfCheckType(CheckTypeCommandResult), "CheckCommandResult");
    EXPECT_EQ(NameOfCheckType(CheckTypeFileChange), "CheckForFileChange");
    EXPECT_EQ(NameOfCheckType(CheckTypeNoFileChange), "CheckForNoFileChange");
    EXPECT_EQ(NameOfCheckType(CheckTypeSocketListening), "CheckSocketListening");
    EXPECT_EQ(NameOfCheckType(CheckTypeListeningSocketResponse), "CheckListeningSocketResponse");
    EXPECT_TRUE(WatchesFile(CheckTypeFileChange));
    EXPECT_TRUE(WatchesFile(CheckTypeNoFileChange));
    EXPECT_FALSE(WatchesFile(CheckTypeCommandResult));
}

TEST_F(JobStateTest, CountsRelativePathsFromTheStartDirectoryAlone) {
    EXPECT_EQ(WholePath("/a/b", "/srv"), "/a/b");
    EXPECT_EQ(WholePath("/a/b", std::nullopt), "/a/b");
    EXPECT_EQ(WholePath("b", "/srv"), "/srv/b");
    EXPECT_EQ(WholePath("../b", "/srv"), "/srv/../b");
    EXPECT_EQ(WholePath("b", "/"), "/b");
    EXPECT_EQ(WholePath("~/b", "/srv"), "/srv/~/b");
    EXPECT_EQ(WholePath("b", std::nullopt), std::nullopt);
    EXPECT_EQ(WholePath("", "/srv"), std::nullopt);
}

TEST_F(JobStateTest, ListsTheBlockFilesThatAreConfigured) {
    DogAction remedy;
    EXPECT_THAT(BlockFilesOf(remedy), IsEmpty());
    Block(remedy, "/a", "", "c");
    EXPECT_THAT(BlockFilesOf(remedy), ElementsAre("/a", "c"));
    Block(remedy, "", "/b", "");
    EXPECT_THAT(BlockFilesOf(remedy), ElementsAre("/b"));
}

TEST_F(JobStateTest, FindsTheBlockFilesThatAreThere) {
    DogAction remedy;
    const std::string there = directory.Write("there", "");
    const std::string link = directory.Path("link");
    std::filesystem::create_symlink("nowhere", link);
    std::filesystem::create_directory(directory.Path("directory"));
    Block(remedy, there, link, directory.Path("missing"));
    EXPECT_THAT(LookAtBlockFiles(remedy, std::nullopt).inForce, ElementsAre(there));
    EXPECT_THAT(LookAtBlockFiles(remedy, std::nullopt).unknown, IsEmpty());
    Block(remedy, directory.Path("directory"), "", there);
    EXPECT_THAT(LookAtBlockFiles(remedy, std::nullopt).inForce,
                ElementsAre(directory.Path("directory"), there));
    Block(remedy, there + "/below", directory.Path("missing/below"));
    EXPECT_THAT(LookAtBlockFiles(remedy, std::nullopt).inForce, IsEmpty());
    EXPECT_THAT(LookAtBlockFiles(remedy, std::nullopt).unknown, IsEmpty());
}

TEST_F(JobStateTest, LooksForRelativeBlockFilesWhereTheDaemonDoes) {
    DogAction remedy;
    directory.Write("there", "");
    Block(remedy, "there", "missing");
    const BlockFiles known = LookAtBlockFiles(remedy, directory.Path(""));
    EXPECT_THAT(known.inForce, ElementsAre(directory.Path("there")));
    EXPECT_THAT(known.unknown, IsEmpty());

    // Where this process happens to be is nothing to go by.
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::current_path(directory.Path(""));
    const BlockFiles unknown = LookAtBlockFiles(remedy, std::nullopt);
    const BlockFiles elsewhere = LookAtBlockFiles(remedy, "/");
    std::filesystem::current_path(here);

    EXPECT_THAT(unknown.inForce, IsEmpty());
    EXPECT_THAT(unknown.unknown, ElementsAre("there", "missing"));
    EXPECT_THAT(elsewhere.inForce, IsEmpty());
    EXPECT_THAT(elsewhere.unknown, IsEmpty());
}

TEST_F(JobStateTest, DoesNotKnowOfBlockFilesWhereItMayNotLook) {
    DogAction remedy;
    std::filesystem::create_directory(directory.Path("closed"));
    const std::string block = directory.Write("closed/block", "");
    const std::string record = directory.Write("closed/web", "1234");
    std::filesystem::permissions(directory.Path("closed"), std::filesystem::perms::none);
    std::filesystem::permissions(directory.Path(""), std::filesystem::perms::all);
    Block(remedy, block);
    const std::vector<JobHandle> jobs = Jobs(FileJob("web", "/watched"));
    BlockFiles files;
    std::vector<JobState> states;
    {
        const WithoutPrivileges anybody;
        files = LookAtBlockFiles(remedy, std::nullopt);
        states = LookAtJobs(jobs, {}, directory.Path("closed"), std::nullopt);
    }
    std::filesystem::permissions(directory.Path("closed"), std::filesystem::perms::owner_all);

    EXPECT_THAT(files.inForce, IsEmpty());
    EXPECT_THAT(files.unknown, ElementsAre(block));
    ASSERT_THAT(states, SizeIs(1));
    EXPECT_FALSE(states[0].recordKnown);
    EXPECT_EQ(states[0].recorded, std::nullopt);
}

TEST_F(JobStateTest, ReadsTheFirstFourBytesOfRecords) {
    EXPECT_EQ(ReadRecord(directory.Path("missing")), std::nullopt);
    EXPECT_EQ(ReadRecord(directory.Path("")), std::nullopt);
    for (const char* const content : {"", "123"}) {
        EXPECT_EQ(ReadRecord(directory.Write("record", content)), std::nullopt) << content;
    }
    for (const std::int32_t seconds : {0, 1, -1, 1'600'000'000, INT32_MAX, INT32_MIN}) {
        std::string bytes(sizeof(seconds), '\0');
        std::memcpy(bytes.data(), &seconds, sizeof(seconds));
        EXPECT_EQ(ReadRecord(directory.Write("record", bytes)), seconds);
        EXPECT_EQ(ReadRecord(directory.Write("record", bytes + "5")), seconds);
    }
}

TEST_F(JobStateTest, PutsTogetherWhatCanBeSeenOfEachJob) {
    const std::string block = directory.Write("block", "");
    directory.Write("file", std::string("\x01\0\0\0", 4));
    const std::vector<JobHandle> jobs =
        Jobs(CommandJob("web", "probe", "true", "blockaction='" + block + "' blockaction2='b'") +
             FileJob("file", "watched") + FileJob("other", "/watched"));
    ASSERT_THAT(jobs, SizeIs(3));
    RunningCommands running;
    running.checks = {
        {11, 1.5, "probe", {"web"}}, {12, 1, "probe", {"mail", "web"}}, {13, 1, "x", {}}};
    running.remedies = {{14, 1, "true", {"file"}}};

    const std::vector<JobState> known = LookAtJobs(jobs, running, directory.Path(""), "/srv");

    ASSERT_THAT(known, SizeIs(3));
    EXPECT_EQ(known[0].job->name, "web");
    EXPECT_EQ(known[0].check, "CheckCommandResult");
    EXPECT_EQ(known[0].subject, "probe");
    EXPECT_EQ(known[0].file, std::nullopt);
    ASSERT_THAT(known[0].checks, SizeIs(2));
    EXPECT_EQ(known[0].checks[1].number, 12);
    EXPECT_THAT(known[0].remedies, IsEmpty());
    EXPECT_THAT(known[0].blockFiles, ElementsAre(block));
    EXPECT_THAT(known[0].unknownBlockFiles, IsEmpty());
    EXPECT_EQ(known[0].recorded, std::nullopt);
    EXPECT_TRUE(known[0].recordKnown);
    EXPECT_EQ(known[1].file, "/srv/watched");
    EXPECT_THAT(known[1].checks, IsEmpty());
    EXPECT_THAT(known[1].remedies, SizeIs(1));
    EXPECT_TRUE(known[1].recorded);
    EXPECT_EQ(known[2].file, "/watched");
    EXPECT_EQ(known[2].recorded, std::nullopt);
    EXPECT_TRUE(known[2].recordKnown);

    running.remediesKnown = false;
    const std::vector<JobState> unknown =
        LookAtJobs(jobs, running, directory.Path(""), std::nullopt);
    EXPECT_FALSE(unknown[0].remediesKnown);
    EXPECT_THAT(unknown[0].unknownBlockFiles, ElementsAre("b"));
    EXPECT_EQ(unknown[1].file, std::nullopt);
    EXPECT_EQ(unknown[1].subject, "watched");
    EXPECT_EQ(unknown[2].file, "/watched");
}

}  // namespace kennly::test
