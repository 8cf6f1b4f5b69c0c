#include "lint/JobSelection.h"

#include "support/Dice.h"
#include "unit/config/generated/Generator.h"
#include "unit/config/generated/Writer.h"
#include "unit/lint/LintTest.h"

namespace kennly::test {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

class JobSelectionTest : public LintTest {
protected:
    // The errors of the log, as the findings that begin with them.
    static std::vector<std::string> ErrorsOf(const DaemonVerdict& verdict) {
        std::vector<std::string> errors;
        for (const DaemonLine& line : verdict.lines) {
            const bool isOfTheLoop = line.text.compare(0, 8, "watchdog") == 0;
            if (line.isError && !isOfTheLoop) {
                errors.push_back(line.text);
            }
        }
        return errors;
    }

    static std::vector<std::string> NamesOf(const std::vector<SelectedJob>& jobs) {
        std::vector<std::string> names;
        for (const SelectedJob& job : jobs) {
            names.push_back(job.name);
        }
        return names;
    }
    static std::vector<std::string> NamesOf(const std::vector<JobHandle>& jobs) {
        std::vector<std::string> names;
        for (const JobHandle& job : jobs) {
            names.push_back(job->name);
        }
        return names;
    }

    // Expects the loader and this selection to agree on `content`.
    void ExpectAgreement(const std::string& content) {
        directory.Write("draft.xml", content);
        const DaemonVerdict verdict = AskDaemon(directory.Path("draft.xml"));
        const ConfigText text(content);
        ASSERT_TRUE(text.HasRoot());
        Findings findings;
        const std::vector<SelectedJob> selected = SelectJobs(text, findings);

        EXPECT_EQ(NamesOf(selected), NamesOf(verdict.jobs));
        const std::vector<std::string> errors = ErrorsOf(verdict);
        std::size_t next = 0;
        for (const Finding& finding : findings) {
            if (finding.severity == Severity::Error) {
                ASSERT_LT(next, errors.size()) << finding.text;
                EXPECT_THAT(finding.text, StartsWith(errors[next] + ": "));
                ++next;
            }
        }
        EXPECT_EQ(next, errors.size());
    }
};

TEST_F(JobSelectionTest, AgreesWithTheLoaderOnAnythingThatIsThoughtUp) {
    for (unsigned seed = 50001; seed < 51001; ++seed) {
        SCOPED_TRACE(seed);
        Dice dice(seed);
        ExpectAgreement(Writer(dice).Write(Generator(dice).Configuration()));
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(JobSelectionTest, SaysWhatIsLeftOutAndWhy) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    ExpectTraps({
        {"no name", "job-name-missing", RootOf("<job enabled='true'/>"), RootOf(job)},
        {"twice", "job-name-twice", RootOf(job + job),
         RootOf(job + JobOf(GoodCheck + GoodRemedy, "name='b'"))},
        {"no check", "no-check", RootOf(JobOf(GoodRemedy)), RootOf(job)},
        {"no remedy", "no-remedy", RootOf(JobOf(GoodCheck)), RootOf(job)},
        {"two checks", "extra-element", RootOf(JobOf(GoodCheck + GoodCheck + GoodRemedy)),
         RootOf(job)},
        {"two remedies", "extra-element", RootOf(JobOf(GoodCheck + GoodRemedy + GoodRemedy)),
         RootOf(job)},
        {"no type", "type-missing", RootOf(JobOf("<check/>" + GoodCheck + GoodRemedy)),
         RootOf(job)},
        {"a bad type", "type-invalid",
         RootOf(JobOf(GoodCheck + "<remedy type='Run'/>" + GoodRemedy)), RootOf(job)},
        {"no value", "param-without-value",
         WithCheck("<check type='CheckCommandResult' delay='1'><param/><param value='x'/></check>"),
         RootOf(job)},
    });
}

TEST_F(JobSelectionTest, WarnsOfJobsThatMayBeMeantToRun) {
    const auto with = [](const std::string& enabled) {
        return RootOf("<job name='a' " + enabled + ">" + GoodCheck + GoodRemedy + "</job>");
    };
    for (const char* const enabled :
         {"", "enabled='yes'", "enabled='1'", "enabled='on'", "enabled=' true'", "enabled=''"}) {
        const auto found = Those(with(enabled), "not-enabled");
        ASSERT_THAT(found, SizeIs(1)) << enabled;
        EXPECT_EQ(found[0].severity, Severity::Warning);
    }
    for (const char* const enabled : {"enabled='no'", "enabled='Off'", "enabled='0'"}) {
        const auto found = Those(with(enabled), "not-enabled");
        ASSERT_THAT(found, SizeIs(1)) << enabled;
        EXPECT_EQ(found[0].severity, Severity::Note) << "that is what it means, after all";
    }
    for (const char* const enabled :
         {"enabled='true'", "enabled='TRUE'", "enabled='false'", "enabled='False'"}) {
        EXPECT_THAT(Those(with(enabled), "not-enabled"), IsEmpty()) << enabled;
    }
}

TEST_F(JobSelectionTest, NotesWhichOneCounts) {
    const std::string job = JobOf(GoodCheck + GoodRemedy);
    ExpectTraps({
        {"a later check", "later-one-counts",
         RootOf(JobOf("\n<check type='Foo'/>\n" + GoodCheck + GoodRemedy)), RootOf(job)},
        {"a later remedy", "later-one-counts", RootOf(JobOf("<remedy/>" + GoodCheck + GoodRemedy)),
         RootOf(job)},
        {"a later job", "later-one-counts", RootOf("<job name='a' enabled='false'/>" + job),
         RootOf(job)},
    });
    EXPECT_THAT(
        Those(RootOf(JobOf("\n<check type='Foo'/>\n" + GoodCheck + GoodRemedy)), "later-one-counts")
            .at(0)
            .text,
        HasSubstr("line 2"));
}

}  // namespace kennly::test
