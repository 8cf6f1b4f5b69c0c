#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <limits>
#include <string>
#include <vector>

#include "action/DogExecuteAction.h"
#include "config/DogConfig.h"
#include "support/FailingAllocation.h"
#include "unit/config/ConfigTest.h"
#include "watch/DogCheckCommandWatch.h"

// TinyXML gives nothing back of what it had when an allocation fails in its midst.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libtinyxml\n";
}

namespace kennly::test {

using std::string_literals::operator""s;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConfigLoadTest : public ConfigTest {
protected:
    bool Load(const std::string& text) {
        WriteConfig(text);
        return config.Load();
    }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const JobHandle& job : config.Jobs()) {
            names.push_back(job->name);
        }
        return names;
    }

    // Loads a job with these attributes and a valid check and remedy.
    JobHandle LoadJob(const std::string& attributes) {
        EXPECT_TRUE(Load("<config><job " + attributes + ">" + ValidCheck + ValidRemedy +
                         "</job></config>"));
        return config.Jobs().empty() ? nullptr : config.Jobs().front();
    }

    // Loads the job "web" with these children.
    JobHandle LoadChildren(const std::string& children) {
        EXPECT_TRUE(Load("<config><job name='web' enabled='true'>" + children + "</job></config>"));
        return config.FindJob("web");
    }

    DogConfig config;
};

TEST_F(ConfigLoadTest, LoadsAJobWithAllThatItsElementsSay) {
    EXPECT_TRUE(Load(R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- what to watch -->
<config maxloaderrors="5">
    some text
    <job name="web" enabled="true" maxerrors="3">
        <check type="CheckCommandResult" delay="30" runactionresult="2">
            <param value="/usr/bin/probe &quot;x y&quot; &gt; /dev/null"/>
        </check>
        <remedy type="ExecuteAlways" delay="5" blockaction="/run/maintenance">
            <param value="restart"/>
        </remedy>
    </job>
</config>
)"));

    EXPECT_EQ(maxLoadErrors, 5);
    ASSERT_THAT(Names(), ElementsAre("web"));
    const JobHandle job = config.FindJob("web");
    EXPECT_TRUE(job->enabled);
    EXPECT_EQ(job->maxErrors, 3);
    EXPECT_EQ(job->slotBase, NoWorkers);
    const auto& check = dynamic_cast<const DogCheckCommandWatch&>(*job->check);
    EXPECT_EQ(check.jobName, "web");
    EXPECT_EQ(check.type, CheckTypeCommandResult);
    EXPECT_EQ(check.delay, 30);
    EXPECT_FALSE(check.anyNonZeroFails);
    EXPECT_EQ(check.runActionResult, 2);
    EXPECT_THAT(check.params, ElementsAre("/usr/bin/probe \"x y\" > /dev/null"));
    const auto& remedy = dynamic_cast<const DogExecuteAction&>(*job->remedy);
    EXPECT_EQ(remedy.jobName, "web");
    EXPECT_EQ(remedy.type, RemedyTypeExecuteAlways);
    EXPECT_EQ(remedy.delay, 5);
    EXPECT_EQ(remedy.blockAction, "/run/maintenance");
    EXPECT_THAT(remedy.params, ElementsAre("restart"));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigLoadTest, KeepsTheJobsInTheOrderOfTheFile) {
    WriteJobs(ValidJob("c") + ValidJob("a") + ValidJob("d") + ValidJob("b"));

    EXPECT_TRUE(config.Load());

    EXPECT_THAT(Names(), ElementsAre("c", "a", "d", "b"));
}

TEST_F(ConfigLoadTest, ReplacesAllJobsOfTheLoadBefore) {
    WriteJobs(ValidJob("a") + ValidJob("b"));
    ASSERT_TRUE(config.Load());
    const JobHandle before = config.FindJob("b");
    WriteJobs(ValidJob("b") + ValidJob("c"));

    EXPECT_TRUE(config.Load());

    EXPECT_THAT(Names(), ElementsAre("b", "c"));
    EXPECT_EQ(config.FindJob("a"), nullptr);
    EXPECT_NE(config.FindJob("b"), before);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigLoadTest, TakesChildrenOfTheFirstElementNamedJobInAnyCase) {
    const std::string job = " enabled='true'>" + ValidCheck + ValidRemedy + "</";
    EXPECT_TRUE(Load("<Anything><!-- " + ValidJob("comment") + " --><other>" + ValidJob("inner") +
                     "</other><JOB name='a'" + job + "JOB><Job name='b'" + job +
                     "Job><jobs name='c'" + job + "jobs><job name='d'" + job +
                     "job></Anything><config>" + ValidJob("second root") + "</config>"));

    EXPECT_THAT(Names(), ElementsAre("a", "b", "d"));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigLoadTest, DoesNotTakeTheFirstElementItselfForAJob) {
    EXPECT_TRUE(Load(ValidJob("web")));

    EXPECT_THAT(Names(), IsEmpty());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigLoadTest, AcceptsAFileWithoutAnyJob) {
    EXPECT_TRUE(Load("<config/>"));

    EXPECT_THAT(Names(), IsEmpty());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigLoadTest, SetsTheLoadErrorLimitOnlyIfTheFileDoes) {
    const struct {
        const char* root;
        std::int32_t limit;
    } rows[] = {
        {"<config/>", 10},
        {"<config maxloaderrors='5'/>", 5},
        {"<config/>", 5},
        {"<config MaxLoadErrors='7'/>", 5},
        {"<config maxloaderrors='0'/>", 0},
        {"<config maxloaderrors='-3'/>", -3},
        {"<config maxloaderrors='12abc'/>", 12},
        {"<config maxloaderrors='abc'/>", 0},
        {"<config maxloaderrors='4294967301'/>", std::numeric_limits<std::int32_t>::max()},
        {"<config maxloaderrors='-9999999999999999999999'/>",
         std::numeric_limits<std::int32_t>::min()},
        {"<config><job maxloaderrors='9'/></config>", std::numeric_limits<std::int32_t>::min()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.root);
        EXPECT_TRUE(Load(row.root));
        EXPECT_EQ(maxLoadErrors, row.limit);
    }
}

TEST_F(ConfigLoadTest, ReadsTheErrorThresholdOfAJob) {
    const struct {
        const char* attribute;
        std::int32_t expected;
    } rows[] = {
        {"", 0},
        {"maxerrors='3'", 3},
        {"maxerrors='12abc'", 12},
        {"maxerrors='abc'", 0},
        {"maxerrors=''", 0},
        {"maxerrors=' +4'", 4},
        {"maxerrors='-1'", -1},
        {"MaxErrors='5'", 0},
        {"maxerrors='2147483648'", std::numeric_limits<std::int32_t>::max()},
        {"maxerrors='-2147483649'", std::numeric_limits<std::int32_t>::min()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.attribute);
        const JobHandle job = LoadJob("name='web' enabled='true' "s + row.attribute);
        ASSERT_NE(job, nullptr);
        EXPECT_EQ(job->maxErrors, row.expected);
    }
}

TEST_F(ConfigLoadTest, LoadsOnlyJobsThatAreEnabled) {
    for (const char* const value : {"true", "TRUE", "True", "tRuE"}) {
        SCOPED_TRACE(value);
        EXPECT_NE(LoadJob("name='web' enabled='"s + value + "'"), nullptr);
    }
    EXPECT_THAT(RecordedLines(), IsEmpty());
    for (const char* const attribute :
         {"", "enabled='yes'", "enabled='1'", "enabled=''", "enabled=' true'", "enabled='true '",
          "enabled='false'", "Enabled='true'"}) {
        SCOPED_TRACE(attribute);
        ForgetLog();
        EXPECT_EQ(LoadJob("name='web' "s + attribute), nullptr);
        EXPECT_THAT(RecordedLines(), ElementsAre(Debug("job not enabled - ignoring job: web")));
    }
}

TEST_F(ConfigLoadTest, SkipsAJobWithoutAName) {
    EXPECT_EQ(LoadJob("Name='web' enabled='true'"), nullptr);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("job name missing")));
}

TEST_F(ConfigLoadTest, KeepsTheFirstJobOfAName) {
    WriteJobs("<job name='web' enabled='true' maxerrors='1'>" + ValidCheck + ValidRemedy +
              "</job><job name='web' enabled='true' maxerrors='2'>" + ValidCheck + ValidRemedy +
              "</job>" + ValidJob("WEB"));

    EXPECT_TRUE(config.Load());

    EXPECT_THAT(Names(), ElementsAre("web", "WEB"));
    EXPECT_EQ(config.FindJob("web")->maxErrors, 1);
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("job name already exists - ignoring job: web")));
}

TEST_F(ConfigLoadTest, TestsTheNameBeforeTheRestAndEnabledBeforeTheChildren) {
    const std::string bad = "<check/><remedy/>";
    WriteJobs(ValidJob("web") + "<job>" + bad + "</job><job name='web'>" + bad +
              "</job><job name='web' enabled='true'>" + bad + "</job><job name='db'>" + bad +
              "</job>");

    EXPECT_TRUE(config.Load());

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("job name missing"),
                                             Error("job name already exists - ignoring job: web"),
                                             Error("job name already exists - ignoring job: web"),
                                             Debug("job not enabled - ignoring job: db")));
}

TEST_F(ConfigLoadTest, LetsASkippedJobKeepNoName) {
    WriteJobs("<job name='web'>" + ValidCheck + ValidRemedy +
              "</job><job name='web' enabled='true'/>"
              "<job name='web' enabled='true'>" +
              ValidRemedy + "</job>" + ValidJob("web"));

    EXPECT_TRUE(config.Load());

    EXPECT_THAT(Names(), ElementsAre("web"));
    EXPECT_THAT(RecordedLines(), ElementsAre(Debug("job not enabled - ignoring job: web"),
                                             Error("no remedy defined in job: web"),
                                             Error("no check defined in job: web")));
}

TEST_F(ConfigLoadTest, GoesOnBehindABadJob) {
    WriteJobs(ValidJob("a") + "<job/>" + ValidJob("b") + "<job name='x' enabled='true'/>" +
              ValidJob("c"));

    EXPECT_TRUE(config.Load());

    EXPECT_THAT(Names(), ElementsAre("a", "b", "c"));
}

TEST_F(ConfigLoadTest, LogsOnlyTheMissingRemedyOfAJobWithoutChildren) {
    EXPECT_EQ(LoadChildren(""), nullptr);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("no remedy defined in job: web")));
}

TEST_F(ConfigLoadTest, SkipsAJobWithACheckAlone) {
    EXPECT_EQ(LoadChildren(ValidCheck), nullptr);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("no remedy defined in job: web")));
}

TEST_F(ConfigLoadTest, SkipsAJobWithARemedyAlone) {
    EXPECT_EQ(LoadChildren(ValidRemedy + "<checks type='CheckCommandResult'/>"), nullptr);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("no check defined in job: web")));
}

TEST_F(ConfigLoadTest, TakesCheckAndRemedyInAnyOrderAndCase) {
    for (const char* const children :
         {"<check type='CheckCommandResult'/><remedy type='Execute'/>",
          "<remedy type='Execute'/><check type='CheckCommandResult'/>",
          "text<other/><REMEDY type='EXECUTE'/><!-- c --><Check type='checkcommandresult'/>"}) {
        SCOPED_TRACE(children);
        EXPECT_NE(LoadChildren(children), nullptr);
    }
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigLoadTest, UsesTheFirstCheckAndRemedyAndDoesNotEvenParseOthers) {
    const JobHandle job = LoadChildren(
        "<check type='CheckCommandResult' delay='1'/><remedy type='Execute' delay='2'/>"
        "<check type='CheckForFileChange' delay='3'/><check type='Foo'/><check/>"
        "<remedy type='ExecuteAlways' delay='4'/><remedy type='Foo'><param/></remedy>");

    ASSERT_NE(job, nullptr);
    EXPECT_EQ(job->check->delay, 1);
    EXPECT_EQ(job->remedy->delay, 2);
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("extra check ignored in job: web"),
                                             Error("extra check ignored in job: web"),
                                             Error("extra check ignored in job: web"),
                                             Error("extra remedy ignored in job: web"),
                                             Error("extra remedy ignored in job: web")));
}

TEST_F(ConfigLoadTest, UsesTheFirstValidCheckAndRemedyBehindRefusedOnes) {
    const JobHandle job = LoadChildren(
        "<check type='Foo'/><check/><check type='CheckCommandResult' delay='1'/>"
        "<remedy type='Bar'/><remedy/><remedy type='Execute' delay='2'/>");

    ASSERT_NE(job, nullptr);
    EXPECT_EQ(job->check->delay, 1);
    EXPECT_EQ(job->remedy->delay, 2);
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("check type Foo invalid in job web"),
                                             Error("check type missing in job web"),
                                             Error("remedy type Bar not valid in job web"),
                                             Error("remedy type missing in job web")));
}

TEST_F(ConfigLoadTest, SkipsAJobWhoseOnlyCheckOrRemedyIsRefused) {
    EXPECT_EQ(LoadChildren("<check type='Foo'/>" + ValidRemedy), nullptr);
    EXPECT_EQ(LoadChildren(ValidCheck + "<remedy/>"), nullptr);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("check type Foo invalid in job web"),
                                             Error("no check defined in job: web"),
                                             Error("remedy type missing in job web"),
                                             Error("no remedy defined in job: web")));
}

TEST_F(ConfigLoadTest, KeepsAJobWhoseParamsMissTheirValues) {
    EXPECT_NE(LoadChildren("<check type='CheckCommandResult'><param/></check>"
                           "<remedy type='Execute'><param/></remedy>"),
              nullptr);

    EXPECT_THAT(RecordedLines(), ElementsAre(Error("check param missing its value in job web"),
                                             Error("remedy param missing its value in job web")));
}

TEST_F(ConfigLoadTest, LogsNamesAsTheyStand) {
    WriteJobs("<job name='%s %n'/>");

    EXPECT_TRUE(config.Load());

    EXPECT_THAT(RecordedLines(), ElementsAre(Debug("job not enabled - ignoring job: %s %n")));
}

TEST_F(ConfigLoadTest, LoadsEvenWhenNothingCanBeLogged) {
    MakeSyslogThrow(true);
    WriteJobs("<job/><job name='x'/>" + ValidJob("web"));

    EXPECT_TRUE(config.Load());

    MakeSyslogThrow(false);
    EXPECT_THAT(Names(), ElementsAre("web"));
}

TEST_F(ConfigLoadTest, IsEmptyAfterAFileThatCannotBeLoaded) {
    const struct {
        std::string text;
        const char* description;
    } rows[] = {
        {"", "Error document empty."},
        {" \n", "Error document empty."},
        {"no element", "Error document empty."},
        {"<config maxloaderrors='3'>" + ValidJob("web"), "Error reading Element value."},
        {"<config maxloaderrors='3'><job></config>", "Error reading end tag."},
        {"<config maxloaderrors='3'><job name></job></config>", "Error reading Attributes."},
        {"<?xml version='1.0'?>", "no element in the document"},
        {"<!-- only a comment -->", "no element in the document"},
        {"<", "no element in the document"},
        {"<!-- <config/>", "no element in the document"},
        {"<?xml version='1.0'?><config>\xC3", "file ends inside a character"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        WriteJobs(ValidJob("web"));
        ASSERT_TRUE(config.Load());
        ForgetLog();

        EXPECT_FALSE(Load(row.text));

        EXPECT_THAT(Names(), IsEmpty());
        EXPECT_EQ(config.FindJob("web"), nullptr);
        EXPECT_EQ(maxLoadErrors, 10);
        EXPECT_THAT(RecordedLines(),
                    ElementsAre(Error("config file failed to load, error: "s + row.description)));
    }
}

TEST_F(ConfigLoadTest, IsEmptyAfterAFileThatIsNone) {
    ASSERT_EQ(mkfifo(directory.Path("fifo").c_str(), 0600), 0);
    const struct {
        std::string path;
        const char* description;
    } rows[] = {
        {directory.Path("missing"), "Failed to open file"},
        {"", "Failed to open file"},
        {directory.Path(""), "not a regular file"},
        {directory.Path("fifo"), "not a regular file"},
        {"/dev/null", "not a regular file"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        UseConfigFile(directory.Path("kennly.xml"));
        WriteJobs(ValidJob("web"));
        ASSERT_TRUE(config.Load());
        ForgetLog();
        UseConfigFile(row.path);

        EXPECT_FALSE(config.Load());

        EXPECT_THAT(Names(), IsEmpty());
        EXPECT_THAT(RecordedLines(),
                    ElementsAre(Error("config file failed to load, error: "s + row.description)));
    }
}

TEST_F(ConfigLoadTest, RefusesElementsNestedTooDeep) {
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += "<job>";
    }

    EXPECT_FALSE(Load(text));

    EXPECT_THAT(RecordedLines(),
                ElementsAre(Error("config file failed to load, error: elements nested too deep")));
}

TEST_F(ConfigLoadTest, RefusesAnElementWithTooManyAttributes) {
    std::string text = "<config><job";
    for (int i = 0; i < 100000; ++i) {
        text += " a" + std::to_string(i) + "='b'";
    }

    EXPECT_FALSE(Load(text + "/></config>"));

    EXPECT_THAT(RecordedLines(),
                ElementsAre(Error(
                    "config file failed to load, error: too many attributes in one element")));
}

TEST_F(ConfigLoadTest, LoadsAThousandJobs) {
    std::string jobs;
    for (int i = 0; i < 1000; ++i) {
        jobs += ValidJob("job" + std::to_string(i));
    }
    WriteJobs(jobs);

    EXPECT_TRUE(config.Load());

    EXPECT_EQ(config.Jobs().size(), 1000U);
    EXPECT_NE(config.FindJob("job999"), nullptr);
}

// What has to hold for each allocation that may fail in a load.
class ConfigLoadWithoutMemoryTest : public ConfigLoadTest {
protected:
    ConfigLoadWithoutMemoryTest() {
        WriteJobs(ValidJob("job with a name that needs memory") +
                  ValidJob("and another one behind it"));
    }

    // Loads with the allocation number `index` failing. Returns whether it failed.
    template <class Failure>
    bool LoadOnce(std::size_t index) {
        ForgetLog();
        const Failure failure(index);
        loaded = config.Load();
        return failure.HasFailed();
    }

    void ExpectRecovery() {
        const JobHandle found = std::async(std::launch::async, [this] {
                                    return config.FindJob("and another one behind it");
                                }).get();  // does not return while the lock is still held
        EXPECT_EQ(found != nullptr, loaded || config.Jobs().size() == 2);
        ForgetLog();
        EXPECT_TRUE(config.Load());
        EXPECT_EQ(config.Jobs().size(), 2U);
        EXPECT_THAT(RecordedLines(), IsEmpty());
    }

    bool loaded = false;
    const ClosingDescriptors descriptors;
};

TEST_F(ConfigLoadWithoutMemoryTest, ReportsTheExceptionOrLoadsAndRecovers) {
    std::size_t index = 0;
    for (; LoadOnce<FailingOnceAllocation>(index); ++index) {
        SCOPED_TRACE(index);
        EXPECT_FALSE(loaded);
        EXPECT_THAT(RecordedLines(), ElementsAre(Error("exception while loading config")));
        ExpectRecovery();
    }
    EXPECT_TRUE(loaded);
    EXPECT_GT(index, 20U);
}

TEST_F(ConfigLoadWithoutMemoryTest, RecoversWhenAllLaterAllocationsFailToo) {
    std::size_t index = 0;
    for (; LoadOnce<FailingAllocation>(index); ++index) {
        SCOPED_TRACE(index);
        EXPECT_FALSE(loaded);
        ExpectRecovery();
    }
    EXPECT_TRUE(loaded);
    EXPECT_GT(index, 20U);
}

TEST_F(ConfigLoadWithoutMemoryTest, KeepsTheLimitThatItReadsBeforeTheFirstJob) {
    WriteConfig("<config maxloaderrors='3'>" + ValidJob("job with a name that needs memory") +
                "</config>");
    std::vector<std::int32_t> limitsOfEmptyLoads;
    bool failed = true;
    for (std::size_t index = 0; failed; ++index) {
        maxLoadErrors = 10;
        failed = LoadOnce<FailingOnceAllocation>(index);
        EXPECT_EQ(loaded, !failed);
        if (config.Jobs().empty()) {
            limitsOfEmptyLoads.push_back(maxLoadErrors);
        }
    }

    // What fails first is the parser, then the first job.
    EXPECT_EQ(limitsOfEmptyLoads.front(), 10);
    EXPECT_EQ(limitsOfEmptyLoads.back(), 3);
    EXPECT_TRUE(std::is_sorted(limitsOfEmptyLoads.rbegin(), limitsOfEmptyLoads.rend()));
}

TEST_F(ConfigLoadWithoutMemoryTest, FindsEveryJobThatItHasAdded) {
    bool someWereKept = false;
    for (std::size_t index = 0; LoadOnce<FailingOnceAllocation>(index); ++index) {
        SCOPED_TRACE(index);
        for (const JobHandle& job : config.Jobs()) {
            EXPECT_EQ(config.FindJob(job->name), job);
            EXPECT_NE(job->check, nullptr);
            EXPECT_NE(job->remedy, nullptr);
        }
        if (config.Jobs().empty()) {
            EXPECT_EQ(config.FindJob("job with a name that needs memory"), nullptr);
        }
        someWereKept = someWereKept || !config.Jobs().empty();
    }
    EXPECT_TRUE(someWereKept);
}

}  // namespace kennly::test
