#include "sync/Event.h"

namespace kennly {

Event::Event(bool initiallySet) : signalled_(initiallySet) {
    pthread_mutex_init(&mutex_, nullptr);
    pthread_cond_init(&condition_, nullptr);
}

Event::~Event() {
    pthread_cond_destroy(&condition_);
    pthread_mutex_destroy(&mutex_);
}

bool Event::Wait() {
    pthread_mutex_lock(&mutex_);
    return WaitWithMutexTaken();
}

bool Event::WaitReleasing(AutoLock& held) {
    pthread_mutex_lock(&mutex_);
    held.Release();
    return WaitWithMutexTaken();
}

bool Event::WaitWithMutexTaken() {
    bool becameSet = false;
    if (!signalled_) {
        while (!becameSet && pthread_cond_wait(&condition_, &mutex_) == 0) {
            becameSet = signalled_;
        }
    }
    pthread_mutex_unlock(&mutex_);
    return becameSet;
}

bool Event::IsSet() const {
    pthread_mutex_lock(&mutex_);
    const bool set = signalled_;
    pthread_mutex_unlock(&mutex_);
    return set;
}

bool Event::Set() {
    pthread_mutex_lock(&mutex_);
    signalled_ = true;
    const bool woken = pthread_cond_broadcast(&condition_) == 0;
    pthread_mutex_unlock(&mutex_);
    return woken;
}

bool Event::Reset() {
    pthread_mutex_lock(&mutex_);
    signalled_ = false;
    pthread_mutex_unlock(&mutex_);
    return true;
}

}  // namespace kennly
