#include "ctl/Verbs.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/ExitStatus.h"

namespace kennly::test {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class VerbsTest : public ::testing::Test {
protected:
    int Run(const std::vector<std::string>& words) { return RunTo(out, words); }
    int RunTo(std::ostream& stream, const std::vector<std::string>& words) {
        out.str("");
        err.str("");
        std::vector<const char*> arguments = {"kennlyctl"};
        for (const std::string& word : words) {
            arguments.push_back(word.c_str());
        }
        return RunKennlyctl(static_cast<int>(arguments.size()), arguments.data(),
                            {stream, err, false});
    }

    const std::vector<std::string> verbs = {"check",   "apply",  "status", "test", "block",
                                            "unblock", "blocks", "start",  "stop"};
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(VerbsTest, AnswersAWrongCommandLineWithOneSentence) {
    struct Row {
        std::vector<std::string> words;
        std::string sentence;
    };
    const std::vector<Row> rows = {
        {{}, "which verb: see kennlyctl --help"},
        {{"foo"}, "there is no verb foo: see kennlyctl --help"},
        {{"a\nb"}, "there is no verb a\\x0Ab: see kennlyctl --help"},
        {{"--bogus"}, "there is no verb --bogus: see kennlyctl --help"},
        {{"status", "--bogus"},
         "The following argument was not expected: --bogus: see kennlyctl status --help"},
        {{"status", "extra"},
         "The following argument was not expected: extra: see kennlyctl status --help"},
        {{"blocks", "extra"},
         "The following argument was not expected: extra: see kennlyctl blocks --help"},
        {{"check", "a", "b"},
         "The following argument was not expected: b: see kennlyctl check --help"},
        {{"apply"}, "FILE is required: see kennlyctl apply --help"},
        {{"test"}, "JOB is required: see kennlyctl test --help"},
        {{"block"}, "JOB is required: see kennlyctl block --help"},
        {{"unblock", "--force"}, "JOB is required: see kennlyctl unblock --help"},
        {{"apply", "x", "--wait", "abc"},
         "--wait: Value abc not in range 0 to 604800: see kennlyctl apply --help"},
        {{"apply", "x", "--wait", "-1"},
         "--wait: Value -1 not in range 0 to 604800: see kennlyctl apply --help"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.sentence);
        EXPECT_EQ(Run(row.words), ExitUsage);
        EXPECT_EQ(err.str(), "kennlyctl: " + row.sentence + "\n");
        EXPECT_EQ(out.str(), "");
    }
}

TEST_F(VerbsTest, TakesOneFormatOfTheStatusAtMost) {
    const std::vector<std::string> formats = {"--json", "--plugin", "--prometheus", "--watch"};
    for (const std::string& first : formats) {
        for (const std::string& second : formats) {
            if (first != second) {
                SCOPED_TRACE(first + " " + second);
                EXPECT_EQ(Run({"status", first, second}), ExitUsage);
                EXPECT_THAT(err.str(),
                            MatchesRegex("kennlyctl: [^\n]+: see kennlyctl status --help\n"));
            }
        }
    }
}

TEST_F(VerbsTest, HasHelpForEveryVerb) {
    EXPECT_EQ(Run({"--help"}), ExitClean);
    const std::string all = out.str();
    for (const std::string& verb : verbs) {
        SCOPED_TRACE(verb);
        EXPECT_THAT(all, HasSubstr("\n  " + verb + " "));
        for (const char* const option : {"--help", "-h"}) {
            EXPECT_EQ(Run({verb, option}), ExitClean);
            EXPECT_THAT(out.str(), HasSubstr("Usage: kennlyctl " + verb));
            EXPECT_EQ(err.str(), "");
        }
    }
}

TEST_F(VerbsTest, TellsItsVersion) {
    EXPECT_EQ(Run({"--version"}), ExitClean);
    EXPECT_THAT(out.str(), MatchesRegex("kennlyctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(err.str(), "");
}

TEST_F(VerbsTest, RunsTheVerbThatIsNamed) {
    EXPECT_EQ(Run({"check", "/no/such/file"}), ExitNoInput);
    EXPECT_EQ(err.str(), "kennlyctl: cannot read /no/such/file: No such file or directory\n");
    EXPECT_EQ(Run({"apply", "/no/such/file"}), ExitNoInput);
    EXPECT_EQ(Run({"start", "--program", "relative"}), ExitNoInput);
    EXPECT_THAT(err.str(), HasSubstr("relative is no program by an absolute path"));
    EXPECT_EQ(Run({"test", "--", "-no-such-job"}), ExitNoInput);
    EXPECT_THAT(err.str(), HasSubstr("-no-such-job"));
}

TEST_F(VerbsTest, DoesNotTakeALostAnswerForOne) {
    std::ofstream full("/dev/full");
    EXPECT_EQ(RunTo(full, {"--help"}), ExitCannotCreate);
    EXPECT_EQ(err.str(), "kennlyctl: cannot write to standard output\n");
    std::ofstream fullToo("/dev/full");
    EXPECT_EQ(RunTo(fullToo, {"status", "--prometheus"}), ExitCannotCreate);
}

TEST_F(VerbsTest, SurvivesWhatThrows) {
    class Throwing : public std::streambuf {
        std::streamsize xsputn(const char* /*text*/, std::streamsize /*size*/) override {
            throw std::bad_alloc();
        }
        int_type overflow(int_type /*c*/) override { throw std::bad_alloc(); }
    } buffer;
    std::ostream stream(&buffer);
    stream.exceptions(std::ios::badbit);
    EXPECT_EQ(RunTo(stream, {"--version"}), ExitSoftware);
    EXPECT_THAT(err.str(), AllOf(StartsWith("kennlyctl: "), EndsWith("\n")));
}

}  // namespace kennly::test
