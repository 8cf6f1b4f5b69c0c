#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "config/DogConfig.h"
#include "support/ProcessView.h"
#include "support/Sanitizers.h"
#include "unit/config/ConfigTest.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr std::size_t Mega = 1U << 20U;

// Processor time, because a busy machine has little part in it. As installed, no load takes more
// than a second or so; a sanitizer makes several of it, a program that is not optimised twenty.
#ifdef NDEBUG
constexpr bool Optimised = true;
#else
constexpr bool Optimised = false;
#endif
constexpr long LongestLoadMilliseconds = Optimised && !WithSanitizer ? 10000 : 60000;
// Without a sanitizer, which keeps what is freed, it is 300 at most.
constexpr long MostMegabytes = WithSanitizer ? 2048 : 600;

std::string Repeated(const std::string& part, std::size_t count) {
    const std::size_t size = part.size() * count;
    std::string text = part;
    text.reserve(size);
    while (text.size() < size) {
        text.append(text, 0, size - text.size());
    }
    return text;
}

// So many times `before`, a number that differs each time, and `behind`.
std::string Numbered(const std::string& before, const std::string& behind, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += before + std::to_string(i) + behind;
    }
    return text;
}

std::string InRoot(const std::string& content) {
    return "<config>" + content + "</config>";
}

struct LoadResult {
    bool loaded = false;
    std::vector<std::string> names;
    std::vector<RecordedLine> lines;
};

class HostileFileTest : public ConfigTest {
protected:
    LoadResult Load(const std::string& text) {
        std::filesystem::remove(directory.Path("kennly.xml"));  // a new one is written faster
        WriteConfig(text);
        ForgetLog();
        LoadResult result;
        result.loaded = config.Load();
        result.lines = RecordedLines();
        for (const JobHandle& job : config.Jobs()) {
            EXPECT_NE(job->check, nullptr);
            EXPECT_NE(job->remedy, nullptr);
            EXPECT_EQ(config.FindJob(job->name), job);
            result.names.push_back(job->name);
        }
        return result;
    }

    // Loads a file that would ask too much of a careless parser, and prints what it took.
    LoadResult LoadWithinLimits(const std::string& what, const std::string& text) {
        std::ofstream("/proc/self/clear_refs") << "5";  // the most memory counts from here on
        const std::clock_t begin = std::clock();
        const LoadResult result = Load(text);
        const long milliseconds = (std::clock() - begin) / (CLOCKS_PER_SEC / 1000);
        // Throws, and so fails, when there is no such field.
        const long megabytes = std::stol(StatusField(getpid(), "VmHWM")) / 1024;
        std::cout << what << ", " << text.size() << " bytes: " << milliseconds << " ms, "
                  << megabytes << " MB\n";
        EXPECT_LT(milliseconds, LongestLoadMilliseconds) << what;
        EXPECT_LT(megabytes, MostMegabytes) << what;
        return result;
    }

    void ExpectAcceptance(const std::string& what, const std::string& text) {
        const LoadResult result = LoadWithinLimits(what, text);
        EXPECT_TRUE(result.loaded) << what;
        EXPECT_THAT(result.names, IsEmpty()) << what;
        EXPECT_THAT(result.lines, IsEmpty()) << what;
    }

    void ExpectRefusal(const std::string& what, const std::string& text,
                       const std::string& reason) {
        const LoadResult result = LoadWithinLimits(what, text);
        EXPECT_FALSE(result.loaded) << what;
        EXPECT_THAT(result.names, IsEmpty()) << what;
        EXPECT_THAT(result.lines,
                    ElementsAre(Error("config file failed to load, error: " + reason)))
            << what;
    }

    static void ExpectRefusedOrLoaded(const LoadResult& result) {
        if (!result.loaded) {
            EXPECT_THAT(result.names, IsEmpty());
            ASSERT_EQ(result.lines.size(), 1U);
            const std::string failure = Error("config file failed to load, error: ").text;
            EXPECT_THAT(result.lines[0].text, StartsWith(failure.substr(0, failure.size() - 1)));
        }
    }

    static std::string Sample() {
        std::ifstream file(KENNLY_SAMPLES "/kennly.xml", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    DogConfig config;
};

TEST_F(HostileFileTest, RefusesNestingHoweverDeep) {
    const std::string reason = "elements nested too deep";
    constexpr std::size_t levels = 500000;
    ExpectRefusal("levels that never end", Repeated("<a>", levels), reason);
    ExpectRefusal("levels that end", Repeated("<a>", levels) + Repeated("</a>", levels), reason);
    ExpectRefusal("jobs in jobs", InRoot(Repeated("<job name='a' enabled='true'>", levels)),
                  reason);
    ExpectRefusal("levels behind the root", "<config/>" + Repeated("<a>", levels), reason);
}

TEST_F(HostileFileTest, RefusesAttributesHoweverMany) {
    const std::string attributes = Numbered(" a", "='b'", 1000000);
    const std::string reason = "too many attributes in one element";
    ExpectRefusal("a million attributes of the root", "<config" + attributes + "/>", reason);
    ExpectRefusal("a million attributes of a param", InRoot("<param" + attributes + "/>"), reason);
}

TEST_F(HostileFileTest, LoadsAHugeTextWithinLimits) {
    const std::string text(16 * Mega, 'x');
    ExpectAcceptance("a very huge value", "<config a='" + Repeated(text, 4) + "'/>");
    ExpectAcceptance("a huge text", InRoot(text));
    ExpectAcceptance("a huge comment", InRoot("<!--" + text + "-->"));
    ExpectAcceptance("a huge name", "<" + text + "/>");
}

TEST_F(HostileFileTest, LoadsHugeBlanksAndCharactersWithinLimits) {
    ExpectAcceptance("huge blanks", InRoot(std::string(16 * Mega, ' ')));
    ExpectAcceptance("huge line ends", InRoot(Repeated("\r\n", 8 * Mega)));
    ExpectAcceptance("entities", "<config a='" + Repeated("&lt;", 2 * Mega) + "'/>");
    ExpectAcceptance("numbered characters", "<config a='" + Repeated("&#65;", 2 * Mega) + "'/>");
    ExpectAcceptance("a number of many digits",
                     "<config a='&#" + std::string(4 * Mega, '0') + "65;'/>");
}

TEST_F(HostileFileTest, LoadsAMillionPartsWithinLimits) {
    ExpectAcceptance("small elements", InRoot(Repeated("<a/>", 1000000)));
    ExpectAcceptance("comments", InRoot(Repeated("<!---->", 300000)));
    ExpectAcceptance("CDATA sections", InRoot(Repeated("<![CDATA[x]]>", 300000)));
    ExpectAcceptance("elements and texts", InRoot(Repeated("<a>b</a>c", 300000)));
}

TEST_F(HostileFileTest, LoadsTheMostThatIsNotRefusedWithinLimits) {
    const std::string widest = "<a" + Numbered(" b", "=''", 1000) + "/>";
    ExpectAcceptance("elements with a thousand attributes", InRoot(Repeated(widest, 200)));
    ExpectAcceptance("small elements 500 levels deep",
                     Repeated("<a>", 499) + Repeated("<b/>", 200000) + Repeated("</a>", 499));
}

TEST_F(HostileFileTest, GoesThroughAHundredThousandJobsWithinLimits) {
    constexpr std::size_t count = 100000;
    const LoadResult ignored = LoadWithinLimits("jobs that are not enabled",
                                                InRoot(Numbered("<job name='", "'/>", count)));
    EXPECT_TRUE(ignored.loaded);
    EXPECT_THAT(ignored.names, IsEmpty());
    ASSERT_EQ(ignored.lines.size(), count);
    EXPECT_EQ(ignored.lines.back(), Debug("job not enabled - ignoring job: 99999"));

    const LoadResult kept = LoadWithinLimits(
        "jobs that are kept", InRoot(Numbered("<job name='",
                                              "' enabled='true'><check type='CheckCommandResult'/>"
                                              "<remedy type='Execute'/></job>",
                                              count / 4)));
    EXPECT_TRUE(kept.loaded);
    EXPECT_EQ(kept.names.size(), count / 4);
    EXPECT_THAT(kept.lines, IsEmpty());
}

TEST_F(HostileFileTest, RefusesASampleThatEndsBeforeItsRoot) {
    const std::string sample = Sample();
    const std::size_t end = sample.rfind('>') + 1;
    const std::size_t jobs = Load(sample).names.size();
    ASSERT_GT(jobs, 0U);
    for (std::size_t size = 0; size < sample.size() && !HasFailure(); ++size) {
        SCOPED_TRACE(size);
        std::string spoilt = sample;
        spoilt[size] = '\0';
        for (const std::string& text : {sample.substr(0, size), spoilt}) {
            const LoadResult result = Load(text);

            ExpectRefusedOrLoaded(result);
            EXPECT_EQ(result.loaded, size >= end);
            EXPECT_EQ(result.names.size(), size >= end ? jobs : 0U);
        }
    }
}

TEST_F(HostileFileTest, RefusesOrLoadsASampleWithAnyByteSpoilt) {
    const std::string sample = Sample();
    const std::size_t jobs = Load(sample).names.size();
    std::size_t refused = 0;
    for (const char wrong : {'<', '\xC3'}) {
        for (std::size_t place = 0; place < sample.size() && !HasFailure(); ++place) {
            SCOPED_TRACE(place);
            std::string text = sample;
            text[place] = wrong;

            const LoadResult result = Load(text);

            ExpectRefusedOrLoaded(result);
            EXPECT_LE(result.names.size(), jobs);
            refused += result.loaded ? 0U : 1U;
        }
    }
    EXPECT_GT(refused, sample.size() / 10);
    EXPECT_LT(refused, sample.size() * 2);
}

}  // namespace kennly::test
