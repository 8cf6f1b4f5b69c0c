#include "watch/ProcessWatch.h"

#include "unit/job/StepTest.h"

namespace kennly::test {

class ObservedWatch : public DogWatch {
public:
    explicit ObservedWatch(Observed& observed) : observed_(observed) {}
    ~ObservedWatch() override { observed_.Destroy(); }
    ObservedWatch(const ObservedWatch&) = delete;
    ObservedWatch& operator=(const ObservedWatch&) = delete;

    std::int32_t DoWatch() override { return observed_.Run(); }

private:
    Observed& observed_;
};

const Step Check = {ProcessWatch,
                    [](DogJob& job) {
                        delete job.check;
                        job.check = nullptr;
                    },
                    [](DogJob& job, Observed& observed) {
                        job.check = new ObservedWatch(observed);
                        job.slotBase = 0;
                    },
                    "Exception while processing check for job: web"};

INSTANTIATE_TEST_SUITE_P(ProcessWatch, StepTest, ::testing::Values(Check),
                         [](const auto&) { return std::string("Check"); });

class ProcessWatchTest : public StepTest {};

INSTANTIATE_TEST_SUITE_P(ProcessWatch, ProcessWatchTest, ::testing::Values(Check),
                         [](const auto&) { return std::string("Check"); });

TEST_P(ProcessWatchTest, LeavesAJobAloneThatHasNoWorkersYet) {
    FindConfiguredJob("web")->slotBase = NoWorkers;

    EXPECT_EQ(Process("web"), ResultNotEvaluated);

    EXPECT_EQ(observed_.runs, 0);
    EXPECT_THAT(RecordedLines(), ::testing::IsEmpty());
}

}  // namespace kennly::test
