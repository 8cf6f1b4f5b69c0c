#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "agreement/AgreementFixture.h"
#include "config/FileTime.h"

namespace kennly::test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace fs = std::filesystem;

namespace {

const fs::path Source = KENNLY_SOURCE;

std::string ContentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Every configuration among the project's files, wherever it lies.
std::vector<Candidate> FilesNamedXml() {
    std::set<fs::path> paths;
    for (const char* const folder : {"samples", "recipes", "demo", "tests", "docs", "fleet"}) {
        for (const auto& entry : fs::recursive_directory_iterator(Source / folder)) {
            if (entry.is_regular_file() && entry.path().extension() == ".xml") {
                paths.insert(entry.path());
            }
        }
    }
    std::vector<Candidate> candidates;
    for (const fs::path& path : paths) {
        candidates.push_back({fs::relative(path, Source), ContentOf(path)});
    }
    return candidates;
}

/// What stands between `begin` and `end` in a document, each beginning a line.
std::vector<Candidate> ExamplesIn(const fs::path& path, const std::string& begin,
                                  const std::string& end) {
    const std::string text = "\n" + ContentOf(Source / path);
    std::vector<Candidate> candidates;
    std::size_t at = 0;
    while ((at = text.find("\n" + begin, at)) != std::string::npos) {
        const std::size_t inside = text.find('\n', at + 1) + 1;
        const std::size_t behind = text.find("\n" + end, inside);
        const std::string name = path.string() + ", " + std::to_string(candidates.size() + 1);
        candidates.push_back({name, text.substr(inside, behind - inside)});
        at = behind;
    }
    return candidates;
}

/// Those that are XML, in whole files, as they are printed.
std::vector<Candidate> AsPrinted(const std::vector<Candidate>& examples) {
    std::vector<Candidate> candidates;
    for (const Candidate& example : examples) {
        std::string text = std::regex_replace(example.content, std::regex(R"(\\\(aq)"), "'");
        text = std::regex_replace(text, std::regex(R"(\\\(dq)"), "\"");
        text = std::regex_replace(text, std::regex(R"(\\-)"), "-");
        if (text.compare(0, 6, "<check") == 0 || text.compare(0, 7, "<remedy") == 0) {
            text = Job("example", text);
        }
        if (text.compare(0, 4, "<job") == 0) {
            text = Configuration(text);
        }
        if (text.front() == '<') {
            candidates.push_back({example.name, text});
        }
    }
    return candidates;
}

void Append(std::vector<Candidate>& candidates, const std::vector<Candidate>& more) {
    candidates.insert(candidates.end(), more.begin(), more.end());
}

}  // namespace

using ShippedAgreementTest = AgreementTest;

TEST_F(ShippedAgreementTest, CoversSamplesRecipesDemonstrationAndSeedsOfTheFuzzer) {
    const std::vector<Candidate> candidates = FilesNamedXml();
    for (const char* const name : {"samples/kennly.xml", "samples/dogdog.xml", "recipes/http.xml",
                                   "demo/repair/kennly.xml", "tests/fuzz/corpus/cut.xml"}) {
        EXPECT_TRUE(std::any_of(candidates.begin(), candidates.end(),
                                [&](const Candidate& candidate) { return candidate.name == name; }))
            << name;
    }

    ExpectAgreement(candidates);

    EXPECT_GT(outcome.judged, 50U);
    EXPECT_GT(outcome.refused, 10U);
    EXPECT_GT(outcome.silent, 15U);
}

TEST_F(ShippedAgreementTest, CoversWhatTheDocumentsShow) {
    std::vector<Candidate> candidates = ExamplesIn("README.md", "```xml", "```");
    ASSERT_THAT(candidates, Not(IsEmpty()));
    Append(candidates,
           ExamplesIn("README.md", "cat >/opt/qrv/data/kennly/config/kennly.xml", "END"));
    ASSERT_GT(candidates.size(), 1U);
    for (const auto& entry : fs::recursive_directory_iterator(Source / "docs")) {
        if (entry.is_regular_file()) {
            Append(candidates, ExamplesIn(fs::relative(entry.path(), Source), "```xml", "```"));
        }
    }
    const std::size_t before = candidates.size();
    for (const auto& entry : fs::directory_iterator(Source / "man")) {
        Append(candidates, AsPrinted(ExamplesIn("man" / entry.path().filename(), ".EX", ".EE")));
    }
    ASSERT_GT(candidates.size(), before);

    ExpectAgreement(candidates);

    EXPECT_EQ(outcome.refused, 0U);
    EXPECT_GT(outcome.silent, outcome.judged / 2);
}

TEST_F(ShippedAgreementTest, CoversFilesOfThousandsOfLines) {
    std::string jobs;
    std::string parts;
    for (int i = 0; i < 3000; ++i) {
        jobs += Marker("job-" + std::to_string(i));
        parts += "<check/><remedy type='" + std::string(100, 'x') + "'/>";
    }

    ExpectAgreement({{"jobs", Configuration(jobs)}, {"parts", Configuration(Job("a", parts))}});

    EXPECT_EQ(outcome.lines, 3000U + 2 * 3000U + 1U);
}

/// What lies in the place of a configuration need not be a file with one in it.
TEST_F(ShippedAgreementTest, CoversWhatIsNoFile) {
    struct Row {
        const char* name;
        std::vector<Line> lines;
        int status;
    };
    const std::string failed = "config file failed to load, error: ";
    const std::vector<Line> irregular = {{"err", failed + "not a regular file"}, LoadFailure};
    const std::vector<Row> rows = {
        {"missing", {}, 66},
        {"directory", irregular, 2},
        {"pipe", irregular, 2},
        {"device", irregular, 2},
        {"never-read", {}, 2},
        {"empty", {{"err", failed + "Error document empty."}, LoadFailure}, 2}};
    RunInLanes<AgreementLane>(1, [&](AgreementLane& lane, int) {
        const auto inside = [&](const char* name) {
            return lane.sandbox->PathInside(PathOf(name));
        };
        fs::create_directory(inside("directory"));
        ASSERT_EQ(mkfifo(inside("pipe").c_str(), 0644), 0);
        fs::create_symlink("/dev/zero", inside("device"));
        ASSERT_TRUE(lane.sandbox->WriteFile(PathOf("never-read"), Configuration(Marker("a"))));
        ASSERT_TRUE(lane.sandbox->SetFileTime(PathOf("never-read"), NoFileTime));
        ASSERT_TRUE(lane.sandbox->WriteFile(PathOf("empty"), ""));
        std::vector<std::string> paths;
        for (const Row& row : rows) {
            paths.push_back(PathOf(row.name));
        }

        const std::vector<Verdicts> verdicts = lane.JudgeFiles(paths);

        for (std::size_t i = 0; i < rows.size(); ++i) {
            SCOPED_TRACE(rows[i].name);
            EXPECT_EQ(verdicts[i].daemon, rows[i].lines);
            EXPECT_EQ(verdicts[i].ctl.status, rows[i].status);
            std::string texts;
            for (const Line& line : rows[i].lines) {
                texts += line.text + "\n";
            }
            EXPECT_EQ(verdicts[i].ctl.asDaemon, texts);
        }
    });
}

/// The comparison itself: whoever agrees and then says anything else is caught.
TEST(DisagreementTest, IsWhateverOneOfTheTwoSaysOtherwise) {
    const Verdicts agreeing = {
        {{"err", "job name missing"}, {"debug", "job not enabled - ignoring job: a"}},
        {0, "job name missing\njob not enabled - ignoring job: a\n",
         R"({"daemon": [{"priority": "err", "text": "job name missing"},
                        {"priority": "debug", "text": "job not enabled - ignoring job: a"}],
             "findings": [{"severity": "error", "text": "job name missing: a name"},
                          {"severity": "note", "text": "a thing to know"}]})"}};
    EXPECT_EQ(DisagreementIn(agreeing), "");

    Verdicts added = agreeing;
    added.daemon.push_back(added.daemon.front());
    Verdicts missing = agreeing;
    missing.daemon.pop_back();
    Verdicts reordered = agreeing;
    std::swap(reordered.daemon.front(), reordered.daemon.back());
    Verdicts otherPriority = agreeing;
    otherPriority.daemon.front().priority = "debug";
    Verdicts otherText = agreeing;
    otherText.daemon.back().text += " ";
    Verdicts refused = agreeing;
    refused.ctl.status = 2;
    Verdicts withoutFinding = agreeing;
    withoutFinding.ctl.json.replace(withoutFinding.ctl.json.find("missing: a name"), 1, "M");
    Verdicts falseError = agreeing;
    falseError.ctl.json.replace(falseError.ctl.json.find("note"), 4, "error");
    Verdicts withoutJson = agreeing;
    withoutJson.ctl.json.clear();
    for (const Verdicts& verdicts : {added, missing, reordered, otherPriority, otherText, refused,
                                     withoutFinding, falseError, withoutJson}) {
        EXPECT_THAT(DisagreementIn(verdicts), HasSubstr("says"));
    }
}

}  // namespace kennly::test
