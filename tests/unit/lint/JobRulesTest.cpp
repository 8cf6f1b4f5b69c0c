#include "lint/JobRules.h"

#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using JobRulesTest = LintTest;

std::string Watching(const std::string& name) {
    return RootOf(JobOf(FileCheckOf("/etc/passwd") + GoodRemedy, "name='" + name + "'"));
}

TEST_F(JobRulesTest, FindsLimitsAndThresholdsThatWillNotBeMeant) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    const std::string slow = RemedyOf("true", "delay='16'");
    ExpectTraps({
        {"a negative limit", "load-error-limit-negative", RootOf(job, "maxloaderrors='-1'"),
         RootOf(job, "maxloaderrors='1'")},
        {"no errors at all", "load-error-limit-zero", RootOf(job, "maxloaderrors='0'"),
         RootOf(job)},
        {"no digits", "load-error-limit-zero", RootOf(job, "maxloaderrors='many'"),
         RootOf(job, "maxloaderrors='10'")},
        {"a negative threshold", "throttle-off",
         RootOf(JobOf(GoodCheck + GoodRemedy, "name='a' maxerrors='-1'")),
         RootOf(JobOf(GoodCheck + GoodRemedy, "name='a' maxerrors='0'"))},
        {"a delay beyond the throttle's", "throttle-shortens",
         RootOf(JobOf(GoodCheck + slow, "name='a' maxerrors='1'")), WithRemedy(slow)},
        {"a delay within it", "throttle-shortens",
         RootOf(JobOf(GoodCheck + slow, "name='a' maxerrors='1'")),
         RootOf(JobOf(GoodCheck + RemedyOf("true", "delay='15'"), "name='a' maxerrors='1'"))},
    });
}

TEST_F(JobRulesTest, FindsNamesThatAreBadOnesForRecords) {
    for (const std::string& name :
         {std::string("../kennly.xml"), std::string("a/b"), std::string("."), std::string(".."),
          std::string(256, 'x'), std::string()}) {
        SCOPED_TRACE(name);
        EXPECT_THAT(Those(Watching(name), "record-name"), SizeIs(1));
        EXPECT_THAT(
            Those(RootOf(JobOf(GoodCheck + GoodRemedy, "name='" + name + "'")), "record-name"),
            IsEmpty())
            << "a job without a record";
    }
    for (const std::string& name :
         {std::string("web"), std::string("..."), std::string(255, 'x')}) {
        EXPECT_THAT(Those(Watching(name), "record-name"), IsEmpty()) << name;
    }
}

TEST_F(JobRulesTest, SaysWhereTheRecordGoes) {
    EXPECT_THAT(Those(Watching("../kennly.xml"), "record-name").at(0).text,
                HasSubstr("is written to \"" + directory.Path("config/kennly.xml") +
                          "\", over whatever is there"));
    EXPECT_THAT(Those(Watching("a/b"), "record-name").at(0).text,
                HasSubstr("in a directory that is missing"));
}

TEST_F(JobRulesTest, FindsARecordThatBothTreesWouldWrite) {
    directory.Write("config/dogdog.xml", Watching("hosts"));
    directory.Write("config/kennly.xml", Watching("shadow"));

    ExpectTraps({{"of the watcher tree", "shared-record", Watching("hosts"), Watching("shadow")}});
    ExpectTraps({{"of the main tree", "shared-record", Watching("shadow"), Watching("hosts")}},
                true);
    EXPECT_THAT(Those(RootOf(JobOf(GoodCheck + GoodRemedy, "name='hosts'")), "shared-record"),
                IsEmpty())
        << "a job without a record";
}

TEST_F(JobRulesTest, FindsJobsThatStarveEachOther) {
    const auto job = [](const std::string& name, const std::string& delay) {
        return JobOf(CheckOf("true", delay) + GoodRemedy, "name='" + name + "'");
    };
    ExpectTraps(
        {{"two without a delay", "no-pause-rivals", RootOf(job("a", "") + job("b", "delay='0'")),
          RootOf(job("a", "") + job("b", "delay='1'"))}});
    const auto found =
        Those(RootOf(job("a", "") + job("x", "delay='1'") + job("b", "") + job("c", "")),
              "no-pause-rivals");
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_THAT(found[0].text, HasSubstr("job \"a\""));
}

TEST_F(JobRulesTest, FindsMoreJobsThanThisMachineHasThreadsFor) {
    const auto jobs = [](int count) {
        std::string all;
        for (int i = 0; i < count; ++i) {
            all += JobOf(GoodCheck + GoodRemedy, "name='j" + std::to_string(i) + "'");
        }
        return RootOf(all);
    };
    ExpectTraps({{"20,000", "too-many-jobs", jobs(20000), jobs(100)}});
}

}  // namespace kennly::test
