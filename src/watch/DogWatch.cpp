#include "watch/DogWatch.h"

#include "job/ResultCode.h"

namespace kennly {

std::int32_t DogWatch::DoWatch() {
    return ResultNotEvaluated;
}

}  // namespace kennly
