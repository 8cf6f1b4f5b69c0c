#include "action/ProcessAction.h"

#include "unit/job/StepTest.h"

namespace kennly::test {

class ObservedAction : public DogAction {
public:
    explicit ObservedAction(Observed& observed) : observed_(observed) {}
    ~ObservedAction() override { observed_.Destroy(); }
    ObservedAction(const ObservedAction&) = delete;
    ObservedAction& operator=(const ObservedAction&) = delete;

    std::int32_t DoAction() override { return observed_.Run(); }

private:
    Observed& observed_;
};

const Step Remedy = {
    ProcessAction,
    [](DogJob& job) {
        delete job.remedy;
        job.remedy = nullptr;
    },
    [](DogJob& job, Observed& observed) { job.remedy = new ObservedAction(observed); },
    "Exception processing remedy for job web"};

INSTANTIATE_TEST_SUITE_P(ProcessAction, StepTest, ::testing::Values(Remedy),
                         [](const auto&) { return std::string("Remedy"); });

}  // namespace kennly::test
