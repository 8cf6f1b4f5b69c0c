#include "lint/OwnershipRules.h"

#include <sys/stat.h>
#include <unistd.h>

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class OwnershipRulesTest : public LintTest {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs files that belong to root";
        }
    }

    void SetMode(const std::string& name, mode_t mode) {
        ASSERT_EQ(chmod(directory.Path(name).c_str(), mode), 0);
    }
};

TEST_F(OwnershipRulesTest, FindsAnInstallationThatOthersCanChange) {
    const std::string config = WithCheck(GoodCheck);
    directory.Write("config/kennly.xml", config);
    for (const char* const name :
         {"config", "config/filetimes", "heartbeats", "config/kennly.xml"}) {
        SCOPED_TRACE(name);
        EXPECT_THAT(Those(config, "not-roots-alone"), IsEmpty());
        SetMode(name, 0757);
        EXPECT_THAT(Those(config, "not-roots-alone"), SizeIs(1));
        SetMode(name, 0755);
        ASSERT_EQ(chown(directory.Path(name).c_str(), 1000, 0), 0);
        EXPECT_THAT(Those(config, "not-roots-alone"), SizeIs(1));
        ASSERT_EQ(chown(directory.Path(name).c_str(), 0, 1000), 0);
        EXPECT_THAT(Those(config, "not-roots-alone"), IsEmpty());
        SetMode(name, 0775);
        EXPECT_THAT(Those(config, "not-roots-alone"), SizeIs(1));
        ASSERT_EQ(chown(directory.Path(name).c_str(), 0, 0), 0);
    }
}

TEST_F(OwnershipRulesTest, FindsADirectoryAboveThatOthersCanChange) {
    SetMode(".", 0777);
    const auto found = Those(WithCheck(GoodCheck), "not-roots-alone");
    ASSERT_THAT(found, SizeIs(1)) << "once, whatever lies in it";
    EXPECT_THAT(found[0].text, HasSubstr("can be written by everybody"));

    SetMode(".", 01777);
    EXPECT_THAT(Those(WithCheck(GoodCheck), "not-roots-alone"), IsEmpty());
}

TEST_F(OwnershipRulesTest, FindsADirectoryInWhichOthersCanExchangeAProgram) {
    std::filesystem::create_directory(directory.Path("bin"));
    const std::string path = directory.Write("bin/script", "#!/bin/sh\n");
    SetMode("bin/script", 0755);
    const std::string config = WithCheck(CheckOf(path));
    EXPECT_THAT(Those(config, "not-roots-alone"), IsEmpty());
    SetMode("bin", 0777);
    EXPECT_THAT(Those(config, "not-roots-alone"), SizeIs(1));
}

TEST_F(OwnershipRulesTest, SaysNothingOfFilesThatAreOnlyLookedAt) {
    const std::string path = directory.Write("data", "");
    SetMode("data", 0777);
    const std::vector<std::string> commands = {"test -f " + path, "cat " + path,
                                               "curl -o /dev/null http://localhost",
                                               "sudo -u nobody " + path};
    for (const std::string& command : commands) {
        EXPECT_THAT(Those(WithCheck(CheckOf(command)), "not-roots-alone"), IsEmpty()) << command;
    }
}

TEST_F(OwnershipRulesTest, FindsProgramsThatOthersCanChange) {
    directory.Write("script", "#!/bin/sh\n");
    SetMode("script", 0755);
    const std::string path = directory.Path("script");
    const std::vector<std::string> configs = {WithCheck(CheckOf(path)),
                                              WithCheck(CheckOf("timeout 5 " + path + " -x")),
                                              WithCheck(CheckOf("test -d / &amp;&amp; " + path)),
                                              WithCheck(CheckOf("sh -c 'nice " + path + "; true'")),
                                              WithCheck(CheckOf("sh -e " + path)),
                                              WithRemedy(RemedyOf("timeout 5 python3 " + path)),
                                              WithRemedy(RemedyOf(path + " restart"))};
    for (const std::string& config : configs) {
        EXPECT_THAT(Those(config, "not-roots-alone"), IsEmpty()) << config;
    }
    SetMode("script", 0777);
    for (const std::string& config : configs) {
        const auto found = Those(config, "not-roots-alone");
        ASSERT_THAT(found, SizeIs(1)) << config;
        EXPECT_THAT(found[0].text, HasSubstr("script"));
    }
}

}  // namespace kennly::test
