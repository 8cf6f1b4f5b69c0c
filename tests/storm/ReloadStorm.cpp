#include <algorithm>
#include <optional>

#include "storm/Storm.h"
#include "storm/VersionTraces.h"

namespace kennly::test {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

// Under a sanitizer a check takes so much longer that of fifty one would always be running, and a
// job goes on only when it finds none.
const int FullJobs = RunsUnderSanitizer() ? 15 : 50;
const int MostJobs = RunsUnderSanitizer() ? 20 : 80;

// Of more jobs it takes half a minute until all remedies have been seen: a job goes on only when it
// finds that no check of any job is running, and it looks once a second.
constexpr int FewJobs = 15;

// Of each job: were one job lost in each of a hundred loads, this would add up to much more than
// memory may grow by.
constexpr std::size_t Bulk = 131072;

// What the allocator keeps of what the parser has given back, in holes that the next load fills.
constexpr double KeptKiB = 6144;

constexpr std::chrono::seconds Patience(120);

}  // namespace

/// One daemon that lives through the whole storm while its configuration is replaced.
class ReloadStorm : public DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        ASSERT_TRUE(sandbox);
        PutFile(StaleFile, fileTime);
        PutFile(WatchedFile, fileTime);
        traces = std::make_unique<VersionTraces>(*sandbox);
    }

    void TearDown() override {
        figures.Print();
        DaemonTest::TearDown();
    }

    // ---- versions

    Version New(int jobs, std::size_t bulk = Bulk) {
        Version version = VersionMaker(++versions, bulk).Make(jobs);
        traces->Prepare(version);
        return version;
    }

    std::string Full() { return New(FullJobs).content; }

    // Files that cannot be loaded.

    std::string Empty() { return ""; }
    std::string NotXml() { return "no configuration, " + std::to_string(Any(9)) + " times over\n"; }
    std::string CutOff() {
        const std::string whole = New(FullJobs, 10).content;
        const int longest = static_cast<int>(whole.rfind('>'));  // of the last end tag
        return whole.substr(0, 1 + static_cast<std::size_t>(Any(longest - 1)));
    }

    void Put(const std::string& content) {
        figures.Count("versions put in place");
        Configure(content);
    }

    // ---- rounds

    void PutGood(int jobs) {
        const Version version = New(jobs);
        const auto begin = Clock::now();
        Put(version.content);
        ASSERT_NO_FATAL_FAILURE(ExpectInForce(version));
        figures.Largest("slowest reload, s", SecondsBetween(begin, firstChecksSeen));
        if (jobs <= FewJobs) {
            ExpectRemediesOf(version);
        }
    }

    void PutFull() { PutGood(FullJobs); }
    void PutFewJobs() { PutGood(1 + Any(FewJobs - 1)); }
    void PutMoreJobs() { PutGood(FullJobs + 1 + Any(MostJobs - FullJobs - 1)); }

    void PutNoJobs() {
        Put("<kennly/>");
        ASSERT_TRUE(WaitForThreadsOf(0, Patience)) << Threads();
        inForce.reset();
    }

    void PutBroken(const std::string& content) {
        const int threads = Threads();
        const std::size_t before = ParseErrors();
        Put(content);
        // Two, because the first may be that of a broken version before it.
        ASSERT_TRUE(WaitForLine(ParseError(), before + 2, Patience));
        EXPECT_EQ(Threads(), threads) << "those of the version before have to wait";
        inForce.reset();
    }

    void PutCutOff() { PutBroken(CutOff()); }
    void PutNotXml() { PutBroken(NotXml()); }
    void PutEmpty() { PutBroken(Empty()); }

    void RemoveFile() {
        sandbox->RemoveFile(MainConfiguration);  // or it is missing still
        ASSERT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat)));
        ASSERT_TRUE(WaitForHeartbeat(TimeOf(ChildHeartbeat) + 1'500'000'000));
        if (inForce) {  // then its jobs go on
            traces->Forget(*inForce);
            ExpectTraces(*inForce, inForce->checks);
        }
    }

    /// Two versions, the second of them before the first can have been taken up altogether.
    void PutTwo() {
        const auto first = dice.Pick(std::vector{&ReloadStorm::Full, &ReloadStorm::CutOff,
                                                 &ReloadStorm::NotXml, &ReloadStorm::Empty});
        Put((this->*first)());
        std::this_thread::sleep_for(dice.UpTo(std::chrono::milliseconds(2500)));
        PutGood(1 + Any(FullJobs - 1));
    }

    struct Kind {
        std::string name;
        void (ReloadStorm::*put)();
    };

    /// One that stands here twice comes twice as often.
    static const std::vector<Kind>& Kinds() {
        static const std::vector<Kind> kinds = {
            {"full", &ReloadStorm::PutFull},        {"few jobs", &ReloadStorm::PutFewJobs},
            {"few jobs", &ReloadStorm::PutFewJobs}, {"more jobs", &ReloadStorm::PutMoreJobs},
            {"no jobs", &ReloadStorm::PutNoJobs},   {"cut off", &ReloadStorm::PutCutOff},
            {"cut off", &ReloadStorm::PutCutOff},   {"not XML", &ReloadStorm::PutNotXml},
            {"empty", &ReloadStorm::PutEmpty},      {"removed", &ReloadStorm::RemoveFile},
            {"two at once", &ReloadStorm::PutTwo},
        };
        return kinds;
    }

    void Round() {
        const Kind& kind = dice.Pick(Kinds());
        SCOPED_TRACE("seed " + std::to_string(Options().seed) + ", version " +
                     std::to_string(versions + 1) + ", " + kind.name);
        figures.Count("rounds");
        figures.Count("    " + kind.name);
        (this->*kind.put)();
        EXPECT_TRUE(daemon->Running());
    }

    int Any(int most) { return static_cast<int>(dice.UpTo(static_cast<std::uint32_t>(most))); }

    // ---- what has to follow

    /// All jobs of the version run, and nothing of an earlier one does.
    void ExpectInForce(const Version& version) {
        ASSERT_NO_FATAL_FAILURE(ExpectTraces(version, version.checks));
        firstChecksSeen = Clock::now();
        ASSERT_TRUE(WaitForThreadsOf(version.jobs, Patience)) << Threads();
        EXPECT_THAT(traces->LateBut(version), IsEmpty());
        EXPECT_FALSE(sandbox->FileExists(UnexpectedTrace)) << "a remedy of a healthy job has run";
        figures.Count("good versions taken up");
        figures.Count("jobs of these", version.jobs);
        figures.Count("first checks seen", static_cast<std::int64_t>(version.checks.size()));
        inForce = version;
    }

    /// Its remedies answer what its checks find, and so do those whose checks leave no trace.
    void ExpectRemediesOf(const Version& version) {
        const auto begin = Clock::now();
        // Only now: a job of an earlier version would have answered the change.
        ASSERT_TRUE(sandbox->SetFileTime(WatchedFile, fileTime));
        ASSERT_NO_FATAL_FAILURE(ExpectTraces(version, version.remedies));
        figures.Count("remedies seen", static_cast<std::int64_t>(version.remedies.size()));
        figures.Largest("slowest remedy, s", SecondsBetween(begin, Clock::now()));
    }

    void ExpectTraces(const Version& version, const std::vector<std::string>& names) const {
        ASSERT_TRUE(traces->WaitFor(version, names, Patience)) << traces->Missing(version);
    }

    // ---- the daemon

    std::string ParseError() const { return Error("Configuration file parse error"); }
    std::size_t ParseErrors() const { return ArrivalsOf(ParseError()).size(); }

    /// Has what takes up much, when it is freed, go back to the system and not stay with the
    /// allocator: then the resident memory tells what is in use.
    static StartOptions GivingMemoryBack() {
        StartOptions start;
        start.environment = {{"MALLOC_MMAP_THRESHOLD_", "8192"}};
        return start;
    }

    void ExpectOnlyTheLogOpen() const {
        EXPECT_TRUE(WaitUntil([&] { return HasOnlyTheLogOpen(daemon->Pid()); }, Patience))
            << ::testing::PrintToString(OpenDescriptors(daemon->Pid()));
    }

    void Tell(const std::string& when) {
        figures.Tell("descriptors " + when, std::to_string(OpenDescriptors(daemon->Pid()).size()));
        figures.Tell("threads " + when, std::to_string(Threads()));
        figures.Tell("resident memory " + when, StatusField(daemon->Pid(), "VmRSS"));
    }

    void ExpectOnlyLinesOfLoads() const {
        const std::vector<std::string> lines = Lines();
        const std::string reason = "config file failed to load, error: ";
        EXPECT_THAT(lines, Each(AnyOf(HasSubstr(LoadedText("version-")), HasSubstr(reason),
                                      ParseError(), Exit(0))));
        const auto reasons = std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
            return line.find(reason) != std::string::npos;
        });
        EXPECT_EQ(static_cast<std::size_t>(reasons), ParseErrors());
    }

    Figures figures;
    Dice dice{Options().seed};
    std::unique_ptr<VersionTraces> traces;
    int versions = 0;
    std::optional<Version> inForce;
    Clock::time_point firstChecksSeen;
};

TEST_F(ReloadStorm, LeavesTheGoodVersionsInForceAndTheDaemonAsItWas) {
    figures.Count("rounds", 0);
    for (const Kind& kind : Kinds()) {
        figures.Count("    " + kind.name, 0);
    }
    const Version first = New(MostJobs);  // some of what it needs stays with the allocator
    Configure(first.content);
    StartDaemon({"-f"}, GivingMemoryBack());
    ASSERT_NO_FATAL_FAILURE(ExpectInForce(first));
    ASSERT_NO_FATAL_FAILURE(PutGood(FullJobs));
    ExpectOnlyTheLogOpen();
    const double memory = ResidentKiB(daemon->Pid());
    Tell("at the beginning");

    while (StormGoesOn()) {
        Round();
    }
    ASSERT_FALSE(HasFailure());
    EXPECT_GT(figures.CountOf("rounds"), 0);

    ASSERT_NO_FATAL_FAILURE(PutGood(FullJobs));
    ASSERT_NO_FATAL_FAILURE(ExpectRemediesOf(*inForce));
    ExpectOnlyTheLogOpen();
    Tell("at the end");
    if (!RunsUnderSanitizer()) {  // what is freed stays with a sanitizer for a while
        EXPECT_LE(ResidentKiB(daemon->Pid()), 1.1 * memory + KeptKiB);
    }
    const auto asked = Clock::now();
    ASSERT_NO_FATAL_FAILURE(StopDaemon(Generous));
    figures.Largest("end, s", SecondsBetween(asked, Clock::now()));
    figures.Tell("exit status", "0");
    ExpectOnlyLinesOfLoads();
}

}  // namespace kennly::test
