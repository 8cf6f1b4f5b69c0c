#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "action/DogExecuteAction.h"
#include "config/DogConfig.h"
#include "support/Sanitizers.h"
#include "unit/config/ConfigTest.h"
#include "unit/config/generated/Generator.h"
#include "unit/config/generated/Model.h"
#include "unit/config/generated/Writer.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly::test {

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::StartsWith;

// The configurations of two runs are the same; the seed of one that fails is that of it alone.
constexpr unsigned FirstSeed = 40001;
// One thread loads them: the thread sanitizer finds no more in many than in some.
constexpr unsigned Configurations = WithThreadSanitizer ? 300 : 1500;

class GeneratedConfigurationTest : public ConfigTest {
protected:
    // Loads `text` as a file of its own: a new one is written faster than an old one.
    bool Load(const std::string& text) {
        std::filesystem::remove(directory.Path("kennly.xml"));
        WriteConfig(text);
        ForgetLog();
        return config.Load();
    }

    static JobFacts FactsOf(const DogJob& job) {
        EXPECT_TRUE(job.enabled);
        EXPECT_EQ(job.slotBase, NoWorkers);
        EXPECT_EQ(job.check->jobName, job.name);
        EXPECT_EQ(job.remedy->jobName, job.name);
        EXPECT_NE(dynamic_cast<const DogExecuteAction*>(job.remedy), nullptr);
        JobFacts facts;
        facts.name = job.name;
        facts.maxErrors = job.maxErrors;
        facts.checkType = job.check->type;
        facts.checkDelay = job.check->delay;
        if (const auto* const check = dynamic_cast<const DogCheckCommandWatch*>(job.check)) {
            facts.anyNonZeroFails = check->anyNonZeroFails;
            facts.runActionResult = check->runActionResult;
        }
        facts.checkParams = job.check->params;
        facts.remedyType = job.remedy->type;
        facts.remedyDelay = job.remedy->delay;
        facts.blockFiles = {job.remedy->blockAction, job.remedy->blockAction2,
                            job.remedy->blockAction3};
        facts.remedyParams = job.remedy->params;
        return facts;
    }

    std::vector<JobFacts> LoadedJobs() {
        std::vector<JobFacts> jobs;
        for (const JobHandle& job : config.Jobs()) {
            EXPECT_EQ(config.FindJob(job->name), job);
            jobs.push_back(FactsOf(*job));
        }
        return jobs;
    }

    void ExpectLoad(const ConfigurationItem& configuration, const std::string& text) {
        const Model model(configuration);
        const std::int32_t limit =
            configuration.limit.text ? configuration.limit.number : maxLoadErrors;

        EXPECT_TRUE(Load(text));

        EXPECT_EQ(maxLoadErrors, limit);
        EXPECT_THAT(LoadedJobs(), ElementsAreArray(model.jobs));
        EXPECT_THAT(RecordedLines(), ElementsAreArray(model.lines));
        kept += model.jobs.size();
        logged += model.lines.size();
    }

    void ExpectFailure(const std::string& text) {
        const std::int32_t limit = maxLoadErrors;

        EXPECT_FALSE(Load(text));

        EXPECT_EQ(maxLoadErrors, limit);
        EXPECT_THAT(config.Jobs(), IsEmpty());
        const std::vector<RecordedLine> lines = RecordedLines();
        ASSERT_EQ(lines.size(), 1U);
        const RecordedLine begin = Error("config file failed to load, error: ");
        EXPECT_EQ(lines[0].priority, begin.priority);
        EXPECT_THAT(lines[0].text, StartsWith(begin.text.substr(0, begin.text.size() - 1)));
    }

    DogConfig config;  // one for all: nothing of a file may show in the next
    std::size_t kept = 0;
    std::size_t logged = 0;
};

TEST_F(GeneratedConfigurationTest, LoadsWhatTheElementsMeanHoweverTheyAreSpelt) {
    for (unsigned seed = FirstSeed; seed < FirstSeed + Configurations && !HasFailure(); ++seed) {
        Dice dice(seed);
        const ConfigurationItem configuration = Generator(dice).Configuration();
        const std::string text = Writer(dice).Write(configuration);
        SCOPED_TRACE("seed " + std::to_string(seed) + ":\n" + text);

        ExpectLoad(configuration, text);
    }
    EXPECT_GT(kept, Configurations);
    EXPECT_GT(logged, Configurations);
}

TEST_F(GeneratedConfigurationTest, RefusesWhatHasOneAttributeTwice) {
    for (unsigned seed = FirstSeed; seed < FirstSeed + Configurations && !HasFailure(); ++seed) {
        Dice dice(seed);
        const ConfigurationItem configuration = Generator(dice).Configuration();
        Writer writer(dice);
        const std::string good = writer.Write(configuration);
        const std::string text = writer.Write(configuration, dice.Below(writer.Elements()));
        SCOPED_TRACE("seed " + std::to_string(seed) + ":\n" + text);

        EXPECT_TRUE(Load(good));
        ExpectFailure(text);
    }
}

TEST_F(GeneratedConfigurationTest, RefusesWhatEndsBeforeItsRoot) {
    for (unsigned seed = FirstSeed; seed < FirstSeed + Configurations && !HasFailure(); ++seed) {
        Dice dice(seed);
        const ConfigurationItem configuration = Generator(dice).Configuration();
        Writer writer(dice);
        const std::string whole = writer.Write(configuration);
        const std::string text = whole.substr(0, dice.Below(writer.EndOfRoot()));
        SCOPED_TRACE("seed " + std::to_string(seed) + ":\n" + text);

        EXPECT_TRUE(Load(whole));
        ExpectFailure(text);
    }
}

}  // namespace kennly::test
