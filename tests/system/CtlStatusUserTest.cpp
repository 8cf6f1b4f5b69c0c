#include "system/CtlStatusFixture.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// What somebody sees of the daemon who is not root.
class CtlStatusUserTest : public CtlStatusFixture {
protected:
    void SetUp() override {
        CtlStatusFixture::SetUp();
        if (!IsSkipped() && sandbox->HasUserNamespace()) {
            GTEST_SKIP() << "only root can become another user";
        }
    }
    nlohmann::json StatusForNobody() const {
        return nlohmann::json::parse(CtlAsNobody("status --json").out);
    }
};

TEST_F(CtlStatusUserTest, ShowsTheTreesToEverybody) {
    StartMainTree();
    ASSERT_TRUE(WaitForProblems({}));

    const Answer answer = CtlAsNobody("status");

    EXPECT_EQ(answer.status, 0) << answer.out;
    EXPECT_THAT(answer.out,
                AllOf(HasSubstr("main tree: runs\n  parent     " + Role("P ").number),
                      HasSubstr("child      " + Role("C ").number), HasSubstr("kennly.xml: 2 jobs"),
                      HasSubstr("unknown: which programs the daemon's processes are")));
    EXPECT_EQ(CtlAsNobody("status --plugin").status, 0);
}

TEST_F(CtlStatusUserTest, ShowsAsUnknownWhatOthersMayNotKnow) {
    StartMainTree();
    const nlohmann::json status = StatusForNobody();
    const nlohmann::json& child = status.at("main").at("processes").at(1);
    EXPECT_TRUE(child.at("program").is_null());
    EXPECT_TRUE(child.at("program_replaced").is_null());
    EXPECT_EQ(child.at("threads"), 7);
    EXPECT_TRUE(JobIn(status, "web").at("remedies_probably_running").is_null());
}

TEST_F(CtlStatusUserTest, DoesNotKnowAConfigurationThatItMayNotRead) {
    StartMainTree();
    std::filesystem::permissions(sandbox->PathInside(MainConfiguration),
                                 std::filesystem::perms(0600));
    const nlohmann::json status = StatusForNobody();
    EXPECT_TRUE(status.at("main").at("configuration").at("loads").is_null());
    EXPECT_TRUE(status.at("main").at("configuration").at("jobs").is_null());
    EXPECT_THAT(ProblemsIn(status), ::testing::IsEmpty());
    EXPECT_THAT(CtlAsNobody("status").out, HasSubstr("kennly.xml: unknown, as this user may not"));
}

TEST_F(CtlStatusUserTest, DoesNotKnowADirectoryThatItMayNotSearch) {
    StartMainTree();
    std::filesystem::permissions(sandbox->PathInside(DataDirectory + "/config"),
                                 std::filesystem::perms(0700));
    const nlohmann::json status = StatusForNobody();
    EXPECT_TRUE(status.at("main").at("configuration").at("exists").is_null()) << status;
    EXPECT_THAT(ProblemsIn(status), ::testing::IsEmpty());
}

TEST_F(CtlStatusUserTest, DoesNotKnowProcessesThatAreHidden) {
    StartMainTree();
    const Answer json = CtlBlindly("status --json");
    const Answer plugin = CtlBlindly("status --plugin");
    const Answer text = CtlBlindly("status");

    EXPECT_TRUE(nlohmann::json::parse(json.out).at("main").at("runs").is_null()) << json.out;
    EXPECT_EQ(plugin.status, 3);
    EXPECT_THAT(plugin.out,
                StartsWith("KENNLY UNKNOWN - the processes of other users cannot be seen"));
    EXPECT_EQ(text.status, 77);
    EXPECT_THAT(text.out, AllOf(HasSubstr("main tree: unknown"), Not(HasSubstr("does not run")),
                                Not(HasSubstr("not-running"))));
    EXPECT_THAT(CtlBlindly("status --prometheus").out, Not(HasSubstr("kennly_up{")));
}

}  // namespace kennly::test
