#include "watch/DogCheckSocketListeningWatch.h"

#include "job/ResultCode.h"

namespace kennly {

std::int32_t DogCheckSocketListeningWatch::DoWatch() {
    return ResultNotEvaluated;
}

}  // namespace kennly
