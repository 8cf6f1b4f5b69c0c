#include "system/CtlApplyFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

/// Files that are not put in force: the live one stays byte for byte, with its time.
class CtlApplyRefusalTest : public CtlApplyFixture {
protected:
    void SetUp() override {
        CtlApplyFixture::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_TRUE(sandbox);
        StartWithFirst();
        time_ = TimeOf(MainConfiguration);
        file_ = Inode();
    }

    void ExpectUntouched() const {
        EXPECT_EQ(Inode(), file_);
        EXPECT_EQ(TimeOf(MainConfiguration), time_);
        EXPECT_EQ(sandbox->ReadFile(MainConfiguration), WithJob("first"));
        ExpectNothingBesideTheLiveFile();
        EXPECT_TRUE(WaitForMoreTraces("first", 1));
        EXPECT_EQ(ArrivalsOf(LoadedOf("C ", "first-loaded")).size(), 1U);
    }

private:
    ino_t Inode() const {
        struct stat status = {};
        stat(sandbox->PathInside(MainConfiguration).c_str(), &status);
        return status.st_ino;
    }

    std::int64_t time_ = 0;
    ino_t file_ = 0;
};

TEST_F(CtlApplyRefusalTest, RefusesAFileThatDoesNotLoad) {
    const Answer answer = Ctl({"apply", Draft("<kennly>\n<job></kennly>")});
    EXPECT_EQ(answer.status, 2);
    EXPECT_THAT(answer.out, HasSubstr(PathOf("draft.xml") + ":2:"));
    EXPECT_THAT(answer.out, HasSubstr("error: [load-fails]"));
    EXPECT_EQ(answer.err, "kennlyctl: refused; " + MainConfiguration + " stays as it is\n");
    ExpectUntouched();
}

TEST_F(CtlApplyRefusalTest, RefusesAFileWithErrors) {
    const Answer answer = Ctl({"apply", Draft(Configuration(Job("bad", Remedy("true"))))});
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, HasSubstr("error: [no-check]"));
    EXPECT_THAT(answer.err, HasSubstr("refused"));
    ExpectUntouched();
}

TEST_F(CtlApplyRefusalTest, RefusesWhatIsNoReadableFile) {
    std::filesystem::create_directory(sandbox->PathInside(PathOf("directory.xml")));
    ASSERT_EQ(InShell("mkfifo " + PathOf("fifo.xml")).status, 0);
    const std::vector<std::pair<std::string, std::string>> files = {
        {"none.xml", "No such file or directory"},
        {"directory.xml", "Is a directory"},
        {"fifo.xml", "it is no regular file"}};
    for (const auto& [name, why] : files) {
        SCOPED_TRACE(name);
        const Answer answer = Ctl({"apply", PathOf(name)});
        EXPECT_EQ(answer.status, 66);
        EXPECT_EQ(answer.out, "");
        EXPECT_EQ(answer.err, "kennlyctl: cannot read " + PathOf(name) + ": " + why + "\n");
    }
    ExpectUntouched();
}

TEST_F(CtlApplyRefusalTest, LeavesNothingBehindWhenItIsInterrupted) {
    // More to say than a pipe holds: it cannot come to an end before somebody reads.
    std::string jobs;
    for (int i = 0; i < 2000; ++i) {
        jobs += "<job name=\"web\" enabled=\"no\"/>\n";
    }
    const std::string many = Draft(Configuration(jobs));
    const std::string fifo = PathOf("fifo");
    const Answer answer = InShell("mkfifo " + fifo + "; $CTL apply " + many + " >" + fifo +
                                  " & exec 3<" + fifo + "; until ls " + MainConfiguration +
                                  ".new.*; do sleep 0.1; done; kill -TERM $!; cat <&3; wait $!");
    EXPECT_EQ(answer.status, 128 + SIGTERM);
    EXPECT_THAT(answer.err,
                HasSubstr("kennlyctl: interrupted; " + MainConfiguration + " stays as it is\n"));
    ExpectUntouched();
}

TEST_F(CtlApplyRefusalTest, LeavesTheLiveFileAloneWhenTheDiskIsFull) {
    const std::string draft = Draft(WithJob("second") + "<!--" + std::string(8192, 'x') + "-->");
    const std::string filler(1 << 20, 'x');
    int count = 0;
    while (sandbox->WriteFile(PathOf("filler" + std::to_string(count)), filler)) {
        ++count;
    }

    const Answer answer = Ctl({"apply", draft});

    EXPECT_EQ(answer.status, 73) << answer.out;
    EXPECT_THAT(answer.err, AllOf(HasSubstr("No space left on device"),
                                  HasSubstr(MainConfiguration + " stays as it is")));
    EXPECT_THAT(answer.out, Not(HasSubstr("is replaced")));
    for (; count >= 0; --count) {  // so that the job can leave traces again
        sandbox->RemoveFile(PathOf("filler" + std::to_string(count)));
    }
    ExpectUntouched();
}

TEST_F(CtlApplyRefusalTest, NeedsPermission) {
    if (sandbox->HasUserNamespace()) {
        GTEST_SKIP() << "only root can become another user";
    }
    const Answer answer = CtlAsNobody("apply " + Draft(WithJob("second")));
    EXPECT_EQ(answer.status, 73);
    EXPECT_THAT(answer.err, AllOf(HasSubstr("Permission denied"), HasSubstr("stays as it is")));
    ExpectUntouched();
}

TEST_F(CtlApplyRefusalTest, NeedsToBeToldAFile) {
    EXPECT_EQ(Ctl({"apply"}).status, 64);
    ExpectUntouched();
}

}  // namespace kennly::test
