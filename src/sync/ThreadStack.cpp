#include "sync/ThreadStack.h"

#include <pthread.h>

namespace kennly {

bool SetThreadStack() {
    pthread_attr_t attributes;
    if (pthread_getattr_default_np(&attributes) != 0) {
        return false;
    }
    const bool isSet = pthread_attr_setstacksize(&attributes, ThreadStackBytes) == 0 &&
                       pthread_setattr_default_np(&attributes) == 0;
    pthread_attr_destroy(&attributes);
    return isSet;
}

}  // namespace kennly
