#include "sync/Pause.h"

#include <unistd.h>

#include "main/ProcessState.h"

namespace kennly {

void Pause(unsigned seconds) {
    unsigned left = seconds;
    while (left > 0 && !closingDown) {
        left = sleep(left);
    }
}

}  // namespace kennly
