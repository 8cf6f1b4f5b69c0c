#include "action/CreateAction.h"

#include "action/DogExecuteAction.h"

namespace kennly {

std::unique_ptr<DogAction> CreateAction(std::int32_t type) {
    if (type == RemedyTypeExecute || type == RemedyTypeExecuteAlways) {
        return std::make_unique<DogExecuteAction>();
    }
    return std::make_unique<DogAction>();
}

}  // namespace kennly
