#include "watch/CreateWatch.h"

#include "watch/DogCheckCommandWatch.h"
#include "watch/DogCheckForFileChangeWatch.h"
#include "watch/DogCheckForNoFileChangeWatch.h"
#include "watch/DogCheckListeningSocketResponseWatch.h"
#include "watch/DogCheckSocketListeningWatch.h"

namespace kennly {

std::unique_ptr<DogWatch> CreateWatch(std::int32_t type) {
    switch (type) {
        case CheckTypeCommandResult:
            return std::make_unique<DogCheckCommandWatch>();
        case CheckTypeFileChange:
            return std::make_unique<DogCheckForFileChangeWatch>();
        case CheckTypeNoFileChange:
            return std::make_unique<DogCheckForNoFileChangeWatch>();
        case CheckTypeSocketListening:
            return std::make_unique<DogCheckSocketListeningWatch>();
        case CheckTypeListeningSocketResponse:
            return std::make_unique<DogCheckListeningSocketResponseWatch>();
        default:
            return std::make_unique<DogWatch>();
    }
}

}  // namespace kennly
