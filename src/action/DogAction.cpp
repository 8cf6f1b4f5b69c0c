#include "action/DogAction.h"

#include "job/ResultCode.h"

namespace kennly {

std::int32_t DogAction::DoAction() {
    return ResultNotEvaluated;
}

}  // namespace kennly
