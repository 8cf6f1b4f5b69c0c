#include "watch/CreateWatch.h"

#include "watch/DogCheckCommandWatch.h"

namespace kennly {

std::unique_ptr<DogWatch> CreateWatch(std::int32_t type) {
    if (type == CheckTypeCommandResult) {
        return std::make_unique<DogCheckCommandWatch>();
    }
    return std::make_unique<DogWatch>();
}

}  // namespace kennly
