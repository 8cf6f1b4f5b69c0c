#include "watch/DogCheckListeningSocketResponseWatch.h"

#include "job/ResultCode.h"

namespace kennly {

std::int32_t DogCheckListeningSocketResponseWatch::DoWatch() {
    return ResultNotEvaluated;
}

}  // namespace kennly
