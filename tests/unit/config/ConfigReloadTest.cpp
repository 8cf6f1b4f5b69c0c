#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "config/DogConfig.h"
#include "support/FailingAllocation.h"
#include "unit/config/ConfigTest.h"

// TinyXML gives nothing back of what it had when an allocation fails in its midst.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libtinyxml\n";
}

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConfigReloadTest : public ConfigTest {
protected:
    static constexpr time_t Noon = 1700000000;

    // Writes a file with this modification time.
    void WriteAt(time_t seconds, const std::string& text, long nanoseconds = 0) const {
        WriteConfig(text);
        const timespec time = {seconds, nanoseconds};
        const timespec times[] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, configFile, times, 0), 0);
    }
    static std::string Jobs(const std::string& name) {
        return "<config>" + ValidJob(name) + "</config>";
    }

    std::int32_t Reload() { return config.ReloadConfigIfConfigHasChanged(); }
    bool Has(const std::string& name) { return config.FindJob(name) != nullptr; }

    const std::string broken = "<config>";
    const RecordedLine parseError = Error("Configuration file parse error");
    const RecordedLine description =
        Error("config file failed to load, error: Error reading Element value.");
    DogConfig config;
};

TEST_F(ConfigReloadTest, HasFixedResults) {
    EXPECT_EQ(ReloadLoaded, 0);
    EXPECT_EQ(ReloadNoFile, 1);
    EXPECT_EQ(ReloadParseError, 3);
    EXPECT_EQ(ReloadException, 4);
    EXPECT_EQ(ReloadUnchanged, 5);
}

TEST_F(ConfigReloadTest, LoadsAtTheFirstCallWhateverTheTime) {
    for (const time_t time : {time_t{0}, time_t{-1}, Noon, time_t{2147483647}}) {
        SCOPED_TRACE(time);
        WriteAt(time, Jobs("web"));
        DogConfig fresh;

        EXPECT_EQ(fresh.ReloadConfigIfConfigHasChanged(), ReloadLoaded);

        EXPECT_NE(fresh.FindJob("web"), nullptr);
        EXPECT_EQ(fresh.ReloadConfigIfConfigHasChanged(), ReloadUnchanged);
    }
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigReloadTest, DoesNotNoticeASecondWriteWithinTheSameSecond) {
    WriteAt(Noon, Jobs("first"), 1);
    ASSERT_EQ(Reload(), ReloadLoaded);
    WriteAt(Noon, Jobs("second"), 999999999);

    EXPECT_EQ(Reload(), ReloadUnchanged);

    EXPECT_TRUE(Has("first"));
    WriteAt(Noon + 1, Jobs("second"));
    EXPECT_EQ(Reload(), ReloadLoaded);
    EXPECT_TRUE(Has("second"));
    EXPECT_FALSE(Has("first"));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigReloadTest, LoadsAnOlderFileToo) {
    WriteAt(Noon, Jobs("new"));
    ASSERT_EQ(Reload(), ReloadLoaded);
    WriteAt(Noon - 86400, Jobs("old"));

    EXPECT_EQ(Reload(), ReloadLoaded);

    EXPECT_TRUE(Has("old"));
    EXPECT_EQ(Reload(), ReloadUnchanged);
}

TEST_F(ConfigReloadTest, LoadsTheSameContentAgainWhenItIsSavedAgain) {
    WriteAt(Noon, Jobs("web"));
    ASSERT_EQ(Reload(), ReloadLoaded);
    const JobHandle before = config.FindJob("web");
    WriteAt(Noon + 1, Jobs("web"));

    EXPECT_EQ(Reload(), ReloadLoaded);

    EXPECT_NE(config.FindJob("web"), before);
}

TEST_F(ConfigReloadTest, NoticesAFileThatALinkNowLeadsTo) {
    WriteAt(Noon, Jobs("web"));
    const std::string target = directory.Path("target");
    std::filesystem::rename(configFile, target);
    std::filesystem::create_symlink(target, configFile);
    ASSERT_EQ(Reload(), ReloadLoaded);

    WriteAt(Noon + 1, Jobs("db"));

    EXPECT_EQ(Reload(), ReloadLoaded);
    EXPECT_TRUE(Has("db"));
}

TEST_F(ConfigReloadTest, KeepsTheJobsWhileTheFileIsMissing) {
    WriteAt(Noon, Jobs("web"));
    ASSERT_EQ(Reload(), ReloadLoaded);
    const JobHandle before = config.FindJob("web");
    std::filesystem::remove(configFile);

    EXPECT_EQ(Reload(), ReloadNoFile);
    EXPECT_EQ(Reload(), ReloadNoFile);

    EXPECT_EQ(config.FindJob("web"), before);
    WriteAt(Noon, Jobs("db"));
    EXPECT_EQ(Reload(), ReloadUnchanged);
    WriteAt(Noon + 1, Jobs("db"));
    EXPECT_EQ(Reload(), ReloadLoaded);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigReloadTest, ReportsAMissingFileBeforeTheFirstLoad) {
    EXPECT_EQ(Reload(), ReloadNoFile);
    UseConfigFile("");
    EXPECT_EQ(Reload(), ReloadNoFile);
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ConfigReloadTest, LoadsABrokenFileAgainAtEachCallUntilItIsRepaired) {
    WriteAt(Noon, Jobs("web"));
    ASSERT_EQ(Reload(), ReloadLoaded);
    WriteAt(Noon + 1, broken);

    EXPECT_EQ(Reload(), ReloadParseError);
    EXPECT_EQ(Reload(), ReloadParseError);

    EXPECT_THAT(RecordedLines(), ElementsAre(description, parseError, description, parseError));
    EXPECT_TRUE(config.Jobs().empty());
    WriteAt(Noon + 1, Jobs("repaired"));
    EXPECT_EQ(Reload(), ReloadLoaded);
    EXPECT_TRUE(Has("repaired"));
    EXPECT_EQ(Reload(), ReloadUnchanged);
}

TEST_F(ConfigReloadTest, ReportsAFileThatIsBrokenFromTheStart) {
    WriteAt(Noon, broken);

    EXPECT_EQ(Reload(), ReloadParseError);

    EXPECT_THAT(RecordedLines(), ElementsAre(description, parseError));
}

TEST_F(ConfigReloadTest, TakesARepairedFileWithTheTimeOfTheLastLoadForUnchanged) {
    WriteAt(Noon, Jobs("web"));
    ASSERT_EQ(Reload(), ReloadLoaded);
    WriteAt(Noon + 1, broken);
    ASSERT_EQ(Reload(), ReloadParseError);
    WriteAt(Noon, Jobs("web"));

    EXPECT_EQ(Reload(), ReloadUnchanged);

    EXPECT_TRUE(config.Jobs().empty());
}

TEST_F(ConfigReloadTest, ReportsADirectoryAsAParseError) {
    UseConfigFile(directory.Path(""));

    EXPECT_EQ(Reload(), ReloadParseError);

    EXPECT_THAT(
        RecordedLines(),
        ElementsAre(Error("config file failed to load, error: not a regular file"), parseError));
}

TEST_F(ConfigReloadTest, LoadsAFileWithoutJobs) {
    WriteAt(Noon, Jobs("web"));
    ASSERT_EQ(Reload(), ReloadLoaded);
    WriteAt(Noon + 1, "<config/>");

    EXPECT_EQ(Reload(), ReloadLoaded);

    EXPECT_TRUE(config.Jobs().empty());
    EXPECT_EQ(Reload(), ReloadUnchanged);
}

TEST_F(ConfigReloadTest, KeepsTheLoadErrorLimitWhenTheFileSetsNone) {
    WriteAt(Noon, "<config maxloaderrors='0'/>");
    ASSERT_EQ(Reload(), ReloadLoaded);
    EXPECT_EQ(maxLoadErrors, 0);
    WriteAt(Noon + 1, "<config/>");

    EXPECT_EQ(Reload(), ReloadLoaded);

    EXPECT_EQ(maxLoadErrors, 0);
}

TEST_F(ConfigReloadTest, ReportsAnExceptionAndTriesAgain) {
    WriteAt(Noon, Jobs("web"));
    {
        const FailingOnceAllocation allocation(0);  // the path's

        EXPECT_EQ(Reload(), ReloadException);

        EXPECT_TRUE(allocation.HasFailed());
    }
    EXPECT_THAT(RecordedLines(), ElementsAre(Error("exception in ReloadConfigIfConfigHasChanged")));
    EXPECT_EQ(Reload(), ReloadLoaded);
}

TEST_F(ConfigReloadTest, SurvivesTheFailureOfAnyAllocation) {
    const ClosingDescriptors descriptors;
    WriteAt(Noon, Jobs("web"));
    std::size_t index = 0;
    for (bool failed = true; failed; ++index) {
        SCOPED_TRACE(index);
        DogConfig fresh;
        ForgetLog();
        std::int32_t result = -1;
        {
            const FailingOnceAllocation allocation(index);
            result = fresh.ReloadConfigIfConfigHasChanged();
            failed = allocation.HasFailed();
        }
        if (!failed) {
            EXPECT_EQ(result, ReloadLoaded);
        } else if (index > 0) {
            EXPECT_EQ(result, ReloadParseError);
            EXPECT_THAT(RecordedLines(),
                        ElementsAre(Error("exception while loading config"), parseError));
            EXPECT_EQ(fresh.ReloadConfigIfConfigHasChanged(), ReloadLoaded);
        }
    }
    EXPECT_GT(index, 20U);
}

}  // namespace kennly::test
